#include "transport/known_ids.hpp"

#include "support/id_files.hpp"
#include "transport/usb_id_tables.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>

namespace known_ids {
namespace {

struct Added {
    std::array<id_lines::Id, id_files::most_ids> ids;
    std::atomic<std::size_t> count; // also asked for by calls that know of no search
};
Added files;

// A path may hold any byte.
struct Shown {
    char text[256];
    explicit Shown(const char* path) {
        std::snprintf(text, sizeof text, "%s", path);
        std::replace_if(
            text, text + sizeof text, [](unsigned char c) { return (c < ' ' && c != '\0') || c == 0x7f; }, '?');
    }
};

void take(void* /*context*/, const id_lines::Id& id, const id_files::Place& /*place*/) {
    const std::size_t count = files.count.load();
    files.ids[count] = id;
    files.count.store(count + 1);
}

void complain(void* context, const id_files::Place& place, const char* what) {
    const auto& where = *static_cast<const trace::Location*>(context);
    const Shown path{place.file};
    if (place.line == 0) {
        trace::error(where, "%s: %s", path.text, what);
    } else {
        trace::error(where, "%s:%u: %s", path.text, place.line, what);
    }
}

} // namespace

void read_files(const trace::Location& where) {
    files.count.store(0);
    trace::Location told = where;
    id_files::read(id_files::find_places(), {&told, take, complain});
    if (const std::size_t count = files.count.load(); count > 0) {
        VX_INFO_AT(where, "ids of files: %zu", count);
    }
}

std::span<const id_lines::Id> added() {
    return {files.ids.data(), files.count.load()};
}

const id_lines::Id* find_added(std::uint32_t vendor_id, std::uint32_t product_id) {
    for (const id_lines::Id& id : added()) {
        if (id.vendor_id == vendor_id && id.product_id == product_id) {
            return &id;
        }
    }
    return nullptr;
}

bool has_fixed_version(std::uint32_t vendor_id, std::uint32_t product_id) {
    const id_lines::Id* id = find_added(vendor_id, product_id);
    return (id != nullptr ? id->pad_type : usb_id_tables::pad_type(vendor_id, product_id).type) == 1;
}

} // namespace known_ids
