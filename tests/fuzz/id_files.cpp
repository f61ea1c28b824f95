// Files of USB ids as any bytes.
//
// Four bytes tell how long the pieces are in which the file comes, less one, again and again; the rest is the file. The
// lines are the same whatever the pieces. A line is an id or bad or neither; an id keeps the format's limits and stays
// what it is when it is written again. Reading the file gives the first lines of their pairs, and says little.
#include "support/id_files.hpp"
#include "file.hpp"
#include "input.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using Lines = std::vector<std::pair<std::string, unsigned int>>;

Lines lines_of(std::string_view file, const std::array<std::size_t, 4>& pieces) {
    Lines lines;
    const auto take = [&](std::string_view text, unsigned int number) { lines.emplace_back(text, number); };
    id_lines::Cutter cutter;
    for (std::size_t i = 0; !file.empty(); ++i) {
        const std::size_t size = std::min(pieces[i % pieces.size()], file.size());
        cutter.put(file.substr(0, size), take);
        file.remove_prefix(size);
    }
    cutter.end(take);
    return lines;
}

bool are_equal(const id_lines::Id& one, const id_lines::Id& other) {
    return one.vendor_id == other.vendor_id && one.product_id == other.product_id && one.transport == other.transport &&
           one.pad_type == other.pad_type && std::strcmp(one.name, other.name) == 0;
}

bool is_same_pair(const id_lines::Id& one, const id_lines::Id& other) {
    return one.vendor_id == other.vendor_id && one.product_id == other.product_id;
}

std::string written(const id_lines::Id& id) {
    char text[64];
    std::snprintf(text, sizeof text, "%04x %04x %s %u ", id.vendor_id, id.product_id,
                  id_lines::transport_names[static_cast<std::size_t>(id.transport)].data(), id.pad_type);
    return text + std::string(id.name);
}

void check_id(const id_lines::Id& id) {
    fuzz::require(id.vendor_id != 0 && id.product_id != 0, "ids above 0");
    fuzz::require(std::find(id_lines::pad_types.begin(), id_lines::pad_types.end(), id.pad_type) !=
                      id_lines::pad_types.end(),
                  "a type that is known");
    fuzz::require(std::memchr(id.name, 0, sizeof id.name) != nullptr, "a name that ends");
    for (const char* c = id.name; *c != 0; ++c) {
        fuzz::require(*c == '\t' || (static_cast<unsigned char>(*c) >= ' ' && *c != 0x7f), "a name of text");
    }
    const id_lines::Line again = id_lines::parse(written(id));
    fuzz::require(again.is_id && are_equal(again.id, id), "the same when written again");
}

struct Read {
    std::vector<id_lines::Id> ids;
    std::size_t complaints = 0;
};

Read read(const std::string& file) {
    Read found;
    const auto take = [](void* context, const id_lines::Id& id, const id_files::Place& place) {
        fuzz::require(place.line > 0, "the line of an id");
        static_cast<Read*>(context)->ids.push_back(id);
    };
    const auto complain = [](void* context, const id_files::Place&, const char* what) {
        fuzz::require(what != nullptr && *what != 0, "a complaint that tells something");
        ++static_cast<Read*>(context)->complaints;
    };
    id_files::Places places;
    places.named = file.c_str();
    id_files::read(places, {&found, take, complain});
    return found;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input{data, size};
    std::array<std::size_t, 4> pieces{};
    for (std::size_t& piece : pieces) {
        piece = std::size_t{input.byte()} + 1;
    }
    const std::string file = input.rest_as_text();
    const Lines lines = lines_of(file, pieces);
    const std::size_t all = std::max<std::size_t>(file.size(), 1);
    fuzz::require(lines == lines_of(file, {all, all, all, all}), "the same lines in one piece");

    std::vector<id_lines::Id> expected;
    std::size_t bad = 0;
    for (const auto& [text, number] : lines) {
        fuzz::require(text.size() <= id_lines::longest_line + 1, "lines of bounded length");
        const id_lines::Line line = id_lines::parse(text);
        fuzz::require(!line.is_id || line.complaint == nullptr, "an id or a complaint");
        bad += line.complaint != nullptr ? 1 : 0;
        if (line.is_id) {
            check_id(line.id);
            const bool is_new = std::none_of(expected.begin(), expected.end(),
                                             [&](const id_lines::Id& one) { return is_same_pair(one, line.id); });
            bad += is_new ? 0 : 1;
            if (is_new && expected.size() < id_files::most_ids) {
                expected.push_back(line.id);
            }
        }
    }
    if (file.size() > id_files::longest_file) {
        return 0;
    }
    const Read found = read(fuzz::File::holding(file));
    fuzz::require(std::equal(found.ids.begin(), found.ids.end(), expected.begin(), expected.end(), are_equal),
                  "the first line of each pair");
    fuzz::require(found.complaints <= id_files::most_complaints + 1, "few words");
    fuzz::require((found.complaints > 0) == (bad > 0) || expected.size() == id_files::most_ids,
                  "a word on what is bad");
    return 0;
}
