// What follows from the USB ids: pad types and the per-model facts that hang on them.
#pragma once

#include <cstdint>
#include <optional>

namespace usb_id_tables {

enum class Unknown { product, vendor };

struct PadType {
    std::uint32_t type = 0; // 0 where an id is unknown
    std::optional<Unknown> unknown;
};
PadType pad_type(std::uint32_t vendor_id, std::uint32_t product_id);

// The one model that cannot be asked for its firmware version.
bool has_fixed_version(std::uint32_t vendor_id, std::uint32_t product_id);

} // namespace usb_id_tables
