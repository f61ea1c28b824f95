#include "transport/usb_id_tables.hpp"

#include "vxpadcom/internals/usb_id_tables.h"

#include <algorithm>
#include <iterator>

vx_usb_id hid_device_list[55];
vx_usb_id vcom_device_list[10];

namespace {

// A zero pair ends each list.
static_assert(usb_id_tables::hid_pairs.size() + 1 == std::size(decltype(hid_device_list){}));
static_assert(usb_id_tables::vcom_pairs.size() + 2 == std::size(decltype(vcom_device_list){}));

// Filled when the library is loaded: C arrays, which the interface promises, take no computed initialiser.
[[maybe_unused]] const bool lists_filled = [] {
    const auto listed = [](const usb_id_tables::Pair& pair) { return vx_usb_id{pair.vendor_id, pair.product_id}; };
    std::transform(usb_id_tables::hid_pairs.begin(), usb_id_tables::hid_pairs.end(), hid_device_list, listed);
    vx_usb_id* named =
        std::transform(usb_id_tables::vcom_pairs.begin(), usb_id_tables::vcom_pairs.end(), vcom_device_list, listed);
    *named = {usb_ids::vcom_named_vendor, usb_ids::vcom_named_product};
    return true;
}();

} // namespace
