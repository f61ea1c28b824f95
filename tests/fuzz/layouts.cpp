// Layouts as any text, and what they find in a packet.
//
// Two packets (counted), then the text. A layout that is taken is the same when written again and when read from a
// file, a line for each field; a field's number is what its bytes say, one by one, and so do a table and an object of
// the packets. A picture of them has all their points and is whole.
#include "file.hpp"
#include "input.hpp"
#include "layout.hpp"
#include "packet_export.hpp"
#include "packet_lines.hpp"
#include "signature_plot.hpp"

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace {

using vxpadctl::Field;
using vxpadctl::Layout;

template <typename Parse> std::optional<Layout> parsed(Parse parse) {
    try {
        return parse();
    } catch (const std::invalid_argument& error) {
        fuzz::require(error.what()[0] != '\0', "a message");
        return std::nullopt;
    }
}

std::string text_of(const Layout& layout, const char* separator) {
    std::string text;
    for (const Field& field : layout) {
        text += (text.empty() ? "" : separator) + field.name + "=" + std::to_string(field.offset) + ":" +
                std::string{field.type->name};
    }
    return text;
}

bool are_equal(const std::optional<Layout>& one, const std::optional<Layout>& other) {
    return one.has_value() == other.has_value() && (!one || text_of(*one, ",") == text_of(*other, ","));
}

// By its type's name: i16be has a sign, two bytes, the big end first.
std::optional<std::int64_t> number_in(const fuzz::Bytes& packet, const Field& field) {
    const std::string name{field.type->name};
    const std::size_t size = name[1] == '8' ? 1 : name[1] == '1' ? 2 : 4;
    if (field.offset + size > packet.size()) {
        return std::nullopt;
    }
    std::int64_t number = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const std::size_t place = name.ends_with("be") ? size - 1 - i : i;
        number += std::int64_t{packet[field.offset + i]} << 8 * place;
    }
    const bool is_negative = name[0] == 'i' && (number >> (8 * size - 1)) != 0;
    return is_negative ? number - (std::int64_t{1} << 8 * size) : number;
}

void check_table(const std::vector<emulator::RecordedPacket>& packets, const Layout& layout) {
    vxpadctl::Exporter table{vxpadctl::csv_format, layout};
    vxpadctl::Exporter objects{vxpadctl::json_format, layout};
    for (const emulator::RecordedPacket& packet : packets) {
        if (packet.bytes.empty()) {
            continue;
        }
        std::string row = vxpadctl::time_text(packet.at);
        std::string object = "{\"time\": " + row;
        for (const Field& field : layout) {
            const auto number = number_in(packet.bytes, field);
            row += "," + (number ? std::to_string(*number) : "");
            object += ", \"" + field.name + "\": " + (number ? std::to_string(*number) : "null");
        }
        fuzz::require(table.take({}, packet).ends_with(row + "\n"), "a row of the same numbers");
        fuzz::require(objects.take({}, packet).ends_with(object + "}"), "an object of the same numbers");
    }
}

void check_picture(const std::vector<emulator::RecordedPacket>& packets, const Layout& layout) {
    if (vxpadctl::find_field(layout, "x") == nullptr || vxpadctl::find_field(layout, "y") == nullptr) {
        return;
    }
    const vxpadctl::Signature signature = vxpadctl::signature_in(packets, layout);
    std::size_t points = 0;
    for (const vxpadctl::Stroke& stroke : signature.strokes) {
        fuzz::require(!stroke.empty(), "a stroke with points");
        points += stroke.size();
    }
    fuzz::require(points + signature.too_short <= packets.size(), "a point for a packet");
    if (signature.strokes.empty()) {
        return;
    }
    const std::string svg = vxpadctl::draw_svg(signature.strokes, "a <title> &");
    fuzz::require(svg.starts_with("<?xml") && svg.ends_with("</svg>\n"), "a whole picture");
    fuzz::require(std::count(svg.begin(), svg.end(), '<') == std::count(svg.begin(), svg.end(), '>'), "whole tags");
    fuzz::require(svg.find("nan") == std::string::npos && svg.find("inf") == std::string::npos, "numbers");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input{data, size};
    const fuzz::Bytes first = input.counted();
    const fuzz::Bytes second = input.counted();
    const std::string text = input.rest_as_text();
    const auto layout = parsed([&] { return vxpadctl::parse_layout(text); });
    if (text.find_first_of(" \t\r\n#") == std::string::npos) {
        std::string lines = text;
        std::replace(lines.begin(), lines.end(), ',', '\n');
        fuzz::require(are_equal(parsed([&] { return vxpadctl::read_layout(fuzz::File::holding(text)); }), layout),
                      "a line from a file");
        const bool has_empty_field =
            text.starts_with(',') || text.find(",,") != std::string::npos; // an empty line is none
        fuzz::require(has_empty_field ||
                          are_equal(parsed([&] { return vxpadctl::read_layout(fuzz::File::holding(lines)); }), layout),
                      "lines from a file");
    } else {
        parsed([&] { return vxpadctl::read_layout(fuzz::File::holding(text)); });
    }
    if (!layout) {
        return 0;
    }
    fuzz::require(!layout->empty(), "a field");
    fuzz::require(are_equal(parsed([&] { return vxpadctl::parse_layout(text_of(*layout, ",")); }), layout),
                  "the same when written again");
    for (const Field& field : *layout) {
        fuzz::require(vxpadctl::find_field(*layout, field.name) == &field, "one field of a name");
        fuzz::require(field.offset <= 4095, "offset");
        for (const fuzz::Bytes& packet : {first, second}) {
            fuzz::require(field.read(packet) == number_in(packet, field), "a number, byte by byte");
        }
    }
    using namespace std::chrono_literals;
    check_table({{0us, first}, {1us, second}, {2us, first}}, *layout);
    check_picture({{0us, first}, {1us, second}, {2us, first}}, *layout);
    return 0;
}
