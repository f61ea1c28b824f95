#include "transport/usb_id_tables.hpp"

#include "vxpadcom/vxpadcom.h"

#include VXPADCOM_USB_IDS_FILE

#include <algorithm>
#include <array>
#include <iterator>

namespace {

constexpr std::uint32_t fixed_version_type = 1;

constexpr auto hid_pairs = [] {
    std::array<vx_usb_id,
               usb_ids::shared_vendors.size() * usb_ids::shared_products.size() + usb_ids::classic_products.size() + 1>
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

constexpr auto vcom_pairs = [] {
    std::array<vx_usb_id, usb_ids::shared_vendors.size() * usb_ids::vcom_products.size() + 2> pairs{};
    std::size_t next = 0;
    for (const auto vendor : usb_ids::shared_vendors) {
        for (const auto product : usb_ids::vcom_products) {
            pairs[next++] = {vendor, product};
        }
    }
    pairs[next++] = {usb_ids::vcom_named_vendor, usb_ids::vcom_named_product};
    return pairs;
}();

static_assert(hid_pairs.size() == std::size(decltype(hid_device_list){}));
static_assert(vcom_pairs.size() == std::size(decltype(vcom_device_list){}));

// Filled when the library is loaded: C arrays, which the interface promises, take no computed initialiser.
[[maybe_unused]] const bool lists_filled = [] {
    std::copy(hid_pairs.begin(), hid_pairs.end(), hid_device_list);
    std::copy(vcom_pairs.begin(), vcom_pairs.end(), vcom_device_list);
    return true;
}();

template <typename Products> usb_id_tables::PadType type_among(const Products& products, std::uint32_t product_id) {
    const auto found = std::find_if(products.begin(), products.end(),
                                    [=](const usb_ids::Product& product) { return product.product_id == product_id; });
    if (found == products.end()) {
        return {0, usb_id_tables::Unknown::product};
    }
    return {found->pad_type, std::nullopt};
}

} // namespace

vx_usb_id hid_device_list[55];
vx_usb_id vcom_device_list[10];

namespace usb_id_tables {

PadType pad_type(std::uint32_t vendor_id, std::uint32_t product_id) {
    const auto& shared = usb_ids::shared_vendors;
    if (std::find(shared.begin(), shared.end(), vendor_id) != shared.end()) {
        return type_among(usb_ids::shared_products, product_id);
    }
    if (vendor_id == usb_ids::classic_vendor) {
        return type_among(usb_ids::classic_products, product_id);
    }
    return {0, Unknown::vendor};
}

bool has_fixed_version(std::uint32_t vendor_id, std::uint32_t product_id) {
    return pad_type(vendor_id, product_id).type == fixed_version_type;
}

} // namespace usb_id_tables
