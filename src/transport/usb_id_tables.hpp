// What follows from the USB ids: which of them the searches look for, and pad types.
#pragma once

#include VXPADCOM_USB_IDS_FILE

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace usb_id_tables {

struct Pair {
    std::uint32_t vendor_id;
    std::uint32_t product_id;
};

inline constexpr auto hid_pairs = [] {
    std::array<Pair,
               usb_ids::shared_vendors.size() * usb_ids::shared_products.size() + usb_ids::classic_products.size()>
        pairs{};
    std::size_t next = 0;
    for (const auto vendor : usb_ids::shared_vendors) {
        for (const auto& product : usb_ids::shared_products) {
            pairs[next++] = {vendor, product.product_id};
        }
    }
    for (const auto& product : usb_ids::classic_products) {
        pairs[next++] = {usb_ids::classic_vendor, product.product_id};
    }
    return pairs;
}();

// Those that are enough for a VCOM pad. The named pair needs one of the makers, too.
inline constexpr auto vcom_pairs = [] {
    std::array<Pair, usb_ids::shared_vendors.size() * usb_ids::vcom_products.size()> pairs{};
    std::size_t next = 0;
    for (const auto vendor : usb_ids::shared_vendors) {
        for (const auto product : usb_ids::vcom_products) {
            pairs[next++] = {vendor, product};
        }
    }
    return pairs;
}();

enum class Unknown { product, vendor };

struct PadType {
    std::uint32_t type = 0; // 0 where an id is unknown
    std::optional<Unknown> unknown;
};

template <typename Products> constexpr PadType type_among(const Products& products, std::uint32_t product_id) {
    const auto found = std::find_if(products.begin(), products.end(),
                                    [=](const usb_ids::Product& product) { return product.product_id == product_id; });
    if (found == products.end()) {
        return {0, Unknown::product};
    }
    return {found->pad_type, std::nullopt};
}

constexpr PadType pad_type(std::uint32_t vendor_id, std::uint32_t product_id) {
    const auto& shared = usb_ids::shared_vendors;
    if (std::find(shared.begin(), shared.end(), vendor_id) != shared.end()) {
        return type_among(usb_ids::shared_products, product_id);
    }
    if (vendor_id == usb_ids::classic_vendor) {
        return type_among(usb_ids::classic_products, product_id);
    }
    return {0, Unknown::vendor};
}

} // namespace usb_id_tables
