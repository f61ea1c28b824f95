#include "usb/usb_descriptors.hpp"

#include "pad/pad_model.hpp"

#include <array>
#include <initializer_list>
#include <string>

namespace emulator {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t low(std::size_t value) {
    return static_cast<std::uint8_t>(value & 0xff);
}
constexpr std::uint8_t high(std::size_t value) {
    return static_cast<std::uint8_t>(value >> 8 & 0xff);
}

void append(Bytes& bytes, std::initializer_list<std::uint8_t> more) {
    bytes.insert(bytes.end(), more);
}

// In the order of their indices, which begin with 1.
std::array<const std::optional<std::u16string>*, 3> strings(const PadSettings& pad) {
    return {&pad.maker, &pad.product, &pad.serial};
}

std::uint8_t string_index(const PadSettings& pad, std::uint8_t index) {
    return *strings(pad)[index - 1U] ? index : std::uint8_t{0};
}

} // namespace

Bytes device_descriptor(const PadSettings& pad) {
    return {18,
            descriptor_device,
            0x00,
            0x02, // USB 2.0
            0,
            0,
            0,  // class, subclass and protocol: see the interfaces
            64, // packet size of endpoint 0
            low(pad.vendor_id),
            high(pad.vendor_id),
            low(pad.product_id),
            high(pad.product_id),
            0x00,
            0x01, // device release
            string_index(pad, 1),
            string_index(pad, 2),
            string_index(pad, 3),
            1}; // configurations
}

bool has_endpoint(const PadSettings& pad, unsigned int interface, std::uint8_t endpoint) {
    if (pad.kind == PadKind::vcom) {
        return endpoint == bulk_in_endpoint || endpoint == bulk_out_endpoint;
    }
    return endpoint == input_endpoint(interface);
}

Bytes configuration_descriptor(const PadSettings& pad) {
    Bytes bytes;
    for (unsigned int i = 0; i < pad.interfaces; ++i) {
        if (pad.kind == PadKind::vcom) {
            append(bytes, {9, 0x04, low(i), 0, 2 /* endpoints */, 0xff /* a vendor's own */, 0, 0, 0});
            for (const auto endpoint : {bulk_in_endpoint, bulk_out_endpoint}) {
                append(bytes, {7, 0x05, endpoint, 0x02 /* bulk */, low(bulk_packet_size), high(bulk_packet_size), 0});
            }
            continue;
        }
        append(bytes, {9, 0x04, low(i), 0, 1 /* endpoint */, 0x03 /* HID */, 0, 0, 0});
        const auto hid = hid_descriptor(pad); // hidapi wants it between interface and endpoint
        bytes.insert(bytes.end(), hid.begin(), hid.end());
        append(bytes, {7, 0x05, input_endpoint(i), 0x03 /* interrupt */, low(pad.input_report_size()), 0, 1 /* ms */});
    }
    const auto total = bytes.size() + 9;
    const Bytes head{9, descriptor_configuration,      low(total), high(total), low(pad.interfaces), 1 /* its value */,
                     0, 0x80 /* powered by the bus */, 50 /* 100 mA */};
    bytes.insert(bytes.begin(), head.begin(), head.end());
    return bytes;
}

Bytes hid_descriptor(const PadSettings& pad) {
    const auto size = report_descriptor(pad).size();
    return {9, descriptor_hid, 0x11, 0x01 /* HID 1.11 */, 0, 1, descriptor_report, low(size), high(size)};
}

// A vendor's page with one report of each kind, none with a report id.
Bytes report_descriptor(const PadSettings& pad) {
    return {0x06, 0x00, 0xff,       // usage page
            0x09, 0x01, 0xa1, 0x01, // application collection
            0x15, 0x00, 0x26, 0xff,
            0x00, 0x75, 0x08, // bytes
            0x09, 0x02, 0x95, low(pad.input_report_size()),
            0x81, 0x02, // input
            0x09, 0x03, 0x95, low(feature_report_size),
            0x91, 0x02, // output
            0x09, 0x04, 0x95, low(feature_report_size),
            0xb1, 0x02, // feature
            0xc0};
}

std::optional<Bytes> string_descriptor(const PadSettings& pad, std::uint8_t index) {
    if (index == 0) {
        return Bytes{4, descriptor_string, 0x09, 0x04}; // the only language: English (US)
    }
    const auto all = strings(pad);
    if (index > all.size() || !*all[index - 1U]) {
        return std::nullopt;
    }
    const auto& text = **all[index - 1U];
    Bytes bytes{low(2 + 2 * text.size()), descriptor_string};
    for (const auto unit : text) {
        append(bytes, {low(unit), high(unit)});
    }
    return bytes;
}

} // namespace emulator
