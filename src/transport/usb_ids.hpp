// The USB ids of the pads that are built in: the only file that knows them.
//
// The vendor ids below are placeholders that the public USB id list (usb.ids) assigns to nobody. A maker's real pads
// are told in a file that an administrator adds (docs/ids.md). To build the ids in instead, copy this file, put them in
// and configure with -DVXPADCOM_USB_IDS=/path/to/the/copy. Everything that depends on ids (search tables, pad types,
// udev rules, virtual pads) follows from here.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace usb_ids {

struct Product {
    std::uint32_t product_id;
    std::uint32_t pad_type; // model class, selects per-model behaviour
};

// Four vendor ids under which the same thirteen HID products are sold.
inline constexpr std::array<std::uint32_t, 4> shared_vendors{0xf1a0, 0xf1a1, 0xf1a2, 0xf1a3};

inline constexpr std::array<Product, 13> shared_products{{
    {0x0901, 9},
    {0x0902, 9},
    {0x0a01, 10},
    {0x0a02, 10},
    {0x0b01, 11},
    {0x0c01, 12},
    {0x0d01, 13},
    {0x0d02, 13},
    {0x0f01, 15},
    {0x1001, 16},
    {0x1002, 16},
    {0x1101, 17},
    {0x1102, 17},
}};

// A fifth vendor with two HID products of its own. The type 1 model cannot be asked for its firmware version.
inline constexpr std::uint32_t classic_vendor = 0xf1a4;

inline constexpr std::array<Product, 2> classic_products{{
    {0x0101, 1},
    {0x0801, 8},
}};

// USB ids under which VCOM pads of the shared vendors present themselves on the bus.
inline constexpr std::array<std::uint32_t, 2> vcom_products{0x7c01, 0x7c02};

// One more VCOM pair, of a chip vendor: a device with it is a pad only if its manufacturer string begins with one of
// these names.
inline constexpr std::uint32_t vcom_named_vendor = 0xf1a5;
inline constexpr std::uint32_t vcom_named_product = 0x7c03;
inline constexpr std::array<std::string_view, 3> vcom_named_makers{"Quillon", "Kesta", "mirlo"};

} // namespace usb_ids
