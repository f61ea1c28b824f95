// Records of stand-in pads, and what is true after every input.
#pragma once

#include "fuzz.hpp"
#include "input.hpp"

#include "base/pad_record.hpp"
#include "standins.hpp"

#include <functional>

namespace fuzz {

using standins::bus;

class VcomRecord : public core_test::PadRecord {
  public:
    // Of the only device on the bus.
    explicit VcomRecord(unsigned int pad_type = 0) : PadRecord(pad_type) {
        libusb_device** list = nullptr;
        libusb_get_device_list(nullptr, &list);
        get()->vcom_device = libusb_ref_device(list[0]);
        libusb_free_device_list(list, 1);
        get()->ep_in = 0x81;
        get()->ep_out = 0x01;
        get()->ep_in_max_packet_size = 64;
        get()->ep_out_max_packet_size = 64;
        speak_ssp();
        open();
    }
};

class HidRecord : public core_test::PadRecord {
  public:
    HidRecord(const standins::HidInterface& pad, unsigned int pad_type) : PadRecord(pad_type) {
        pad.path.copy(get()->hid_path, sizeof get()->hid_path - 1);
        speak_ssp();
        open();
    }
};

// The message in what a VCOM pad was sent, byte by byte.
inline Bytes unframed(const Bytes& stream) {
    Bytes message;
    for (std::size_t i = 3; i < stream.size(); ++i) {
        const bool is_escape = i >= 5 && stream[i - 2] == 0xAA && stream[i - 1] == 0x55 && stream[i] == 0;
        if (!is_escape) {
            message.push_back(stream[i]);
        }
    }
    return message;
}

// The feature reports in which a HID pad hands out a stream.
inline std::vector<Bytes> reports_of(const Bytes& stream) {
    std::vector<Bytes> reports;
    for (std::size_t at = 0; at < stream.size(); at += 62) {
        Bytes report{249, 0};
        const std::size_t size = std::min<std::size_t>(62, stream.size() - at);
        report.insert(report.end(), stream.begin() + static_cast<std::ptrdiff_t>(at),
                      stream.begin() + static_cast<std::ptrdiff_t>(at + size));
        report.resize(64);
        reports.push_back(std::move(report));
    }
    return reports;
}

inline void require_all_given_back() {
    require(bus().open_handles() == 0, "open handles");
    require(bus().open_lists() == 0, "open lists");
    require(bus().usb_references() == 0, "references");
    require(bus().misuses().empty(), "use of handles");
}

} // namespace fuzz
