// Any bytes from a pad, in any pieces.
//
// Byte 0: bit 0 HID instead of VCOM, bit 1 pen data wanted, bit 2 a legacy reply wanted. Then pieces, each a length and
// that many bytes, one for each read; 0 is a read that brings nothing, FF pulls the pad out. Over HID a piece is the
// beginning of a report.
#include "fuzz.hpp"
#include "standins.hpp"
#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <libusb-1.0/libusb.h>

#include <algorithm>
#include <array>

namespace {

using standins::bus;
using standins::Bytes;

constexpr unsigned char unplug = 0xFF;
constexpr unsigned int time_out_ms = 20;

struct Pieces {
    const uint8_t* next;
    const uint8_t* end;

    // The next read's bytes, or nullopt where the pad is pulled out. Nothing more comes behind the last.
    std::optional<Bytes> take() {
        if (next == end) {
            return Bytes{};
        }
        const std::size_t size = *next++;
        if (size == unplug) {
            return std::nullopt;
        }
        const auto* from = next;
        next += std::min(size, static_cast<std::size_t>(end - next));
        return Bytes(from, next);
    }
};

void feed_vcom(Pieces& pieces) {
    bus().hooks.bulk_in = [&pieces](standins::UsbDevice& pad, std::span<unsigned char> data,
                                    int& transferred) -> std::optional<int> {
        const auto piece = pieces.take();
        if (!piece) {
            bus().unplug(pad);
            return std::nullopt;
        }
        const std::size_t count = std::min(piece->size(), data.size());
        std::copy_n(piece->begin(), count, data.begin());
        transferred = static_cast<int>(count);
        return count == 0 ? std::nullopt : std::optional(0);
    };
}

void feed_hid(Pieces& pieces) {
    bus().hooks.get_feature = [&pieces](standins::HidInterface& pad,
                                        std::span<unsigned char> report) -> std::optional<int> {
        const auto piece = pieces.take();
        if (!piece) {
            bus().unplug(pad);
            return std::nullopt;
        }
        std::fill(report.begin(), report.end(), static_cast<unsigned char>(0));
        if (!piece->empty()) {
            report[1] = 249;
            std::copy_n(piece->begin(), std::min(piece->size(), report.size() - 3), report.begin() + 3);
        }
        return static_cast<int>(report.size());
    };
}

std::size_t announced_size(const unsigned char* message) {
    return (message[0] & 0x80) != 0 ? std::size_t{1} + (message[0] & 0x3FU) + 1
                                    : std::size_t{3} + message[1] + message[2] * std::size_t{256} + 1;
}

void receive(vx_device& record, bool legacy, int selector) {
    std::array<unsigned char, 5000> message{};
    auto length = static_cast<unsigned int>(message.size());
    const std::int64_t started = bus().now_us();
    const int result = __receive_ssp_message(&record, message.data(), &length, time_out_ms, legacy ? 1 : 0, selector);
    fuzz::require(result == 0 || result == -1 || result == -4 || result == -7 || result == -20, "result");
    if (result == 0) {
        fuzz::require(length > 0 && length <= message.size(), "length");
        fuzz::require(length == announced_size(message.data()), "length against the header");
        const bool is_pen_data = (message[0] & 0xC0) == 0xC0;
        fuzz::require(is_pen_data == (selector == 1 && !legacy), "queue");
    }
    // One failing HID transfer alone may take 1.7 s.
    fuzz::require(bus().now_us() - started < 6'000'000, "time-out");
}

void clear(vx_device& record) {
    bus().hooks = {};
    __core_close_dev(&record);
    destroy_uni_queue(record.ssp_input_read);
    destroy_uni_queue(record.ssp_command_messages);
    destroy_uni_queue(record.ssp_unfinished);
    if (record.vcom_device) {
        libusb_unref_device(record.vcom_device);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool hid = (data[0] & 1) != 0;
    const int selector = (data[0] & 2) != 0 ? 1 : 0;
    const bool legacy = (data[0] & 4) != 0;
    Pieces pieces{data + 1, data + size};

    bus().reset();
    bus().cost_us["libusb_bulk_transfer"] = 500;
    bus().cost_us["hid_get_feature_report"] = 500;
    vx_device record{};
    if (hid) {
        bus().plug(standins::pad_of_type(10)).path.copy(record.hid_path, sizeof record.hid_path - 1);
        feed_hid(pieces);
    } else {
        bus().plug(standins::vcom_pad());
        libusb_device** list = nullptr;
        libusb_get_device_list(nullptr, &list);
        record.vcom_device = libusb_ref_device(list[0]);
        libusb_free_device_list(list, 1);
        record.ep_in = 0x81;
        record.ep_out = 0x01;
        feed_vcom(pieces);
    }
    __core_open_dev(&record);
    for (int i = 0; i < 3; ++i) {
        receive(record, legacy, selector);
    }
    receive(record, false, 1 - selector);
    clear(record);
    fuzz::require(bus().open_handles() == 0, "open handles");
    fuzz::require(bus().usb_references() == 0, "references");
    fuzz::require(bus().misuses().empty(), "use of handles");
    return 0;
}
