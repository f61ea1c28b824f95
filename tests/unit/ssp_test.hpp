// What the tests of messages, tokens, components and VCOM pads share.
#pragma once

#include "core_test.hpp"

#include <libusb-1.0/libusb.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <utility>

namespace core_test {

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline Bytes part(const Bytes& bytes, std::size_t from, std::size_t count = Bytes().max_size()) {
    from = std::min(from, bytes.size());
    count = std::min(count, bytes.size() - from);
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(from);
    return {begin, begin + static_cast<std::ptrdiff_t>(count)};
}

// Bytes that count up, so that a lost or doubled one shows.
inline Bytes counting(std::size_t size, unsigned char first = 1) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(first + i);
    }
    return bytes;
}

// Messages as a pad builds them.
inline Bytes base(unsigned char component, const Bytes& payload) {
    const std::size_t length = payload.size() - 1;
    return Bytes{component, static_cast<unsigned char>(length), static_cast<unsigned char>(length >> 8)} + payload;
}
inline Bytes legacy(const Bytes& payload) {
    return Bytes{static_cast<unsigned char>(0x80 | (payload.size() - 1))} + payload;
}
inline Bytes pen(const Bytes& payload) {
    return Bytes{static_cast<unsigned char>(0xC0 | (payload.size() - 1))} + payload;
}

inline const Bytes start_token{0xAA, 0x55, 2};

// A message in the stream, written byte by byte.
inline Bytes framed(const Bytes& message) {
    Bytes stream = start_token;
    for (std::size_t i = 0; i < message.size(); ++i) {
        stream.push_back(message[i]);
        if (i > 0 && message[i - 1] == 0xAA && message[i] == 0x55) {
            stream.push_back(0);
        }
    }
    return stream;
}
inline Bytes framed(const std::vector<Bytes>& messages) {
    Bytes stream;
    for (const Bytes& message : messages) {
        stream = stream + framed(message);
    }
    return stream;
}

// The one message in a stream that begins with a token.
inline Bytes unframed(const Bytes& stream) {
    Bytes message;
    for (std::size_t i = 3; i < stream.size();) {
        const bool escaped = i + 2 < stream.size() && stream[i] == 0xAA && stream[i + 1] == 0x55 && stream[i + 2] == 0;
        if (escaped) {
            message = message + Bytes{0xAA, 0x55};
            i += 3;
        } else {
            message.push_back(stream[i++]);
        }
    }
    return message;
}

// A record of a VCOM pad, with a reference to its device.
class VcomRecord : public PadRecord {
  public:
    explicit VcomRecord(const UsbDevice& pad, unsigned int pad_type = 0) : PadRecord(pad_type) {
        libusb_device** list = nullptr;
        const auto count = libusb_get_device_list(nullptr, &list);
        for (ssize_t i = 0; i < count; ++i) {
            libusb_device_descriptor descriptor{};
            libusb_get_device_descriptor(list[i], &descriptor);
            if (descriptor.idVendor == pad.vendor_id && descriptor.idProduct == pad.product_id) {
                get()->vcom_device = libusb_ref_device(list[i]);
            }
        }
        libusb_free_device_list(list, 1);
        get()->ep_in = 0x81;
        get()->ep_out = 0x01;
        get()->ep_in_max_packet_size = 512;
        get()->ep_out_max_packet_size = 64;
        speak_ssp();
    }
};

struct OpenVcomRecord : VcomRecord {
    explicit OpenVcomRecord(const UsbDevice& pad, unsigned int pad_type = 0) : VcomRecord(pad, pad_type) { open(); }
};

// The same over HID.
struct OpenHidSspRecord : OpenRecord {
    explicit OpenHidSspRecord(const HidInterface& pad, unsigned int pad_type = plain_type) : OpenRecord(pad, pad_type) {
        speak_ssp();
    }
};

// The feature reports in which a HID pad hands out a stream.
inline std::vector<Bytes> ssp_reports(const Bytes& stream) {
    std::vector<Bytes> reports;
    for (std::size_t at = 0; at < stream.size(); at += 62) {
        reports.push_back(Bytes{249, 0} + part(stream, at, 62));
        reports.back().resize(64);
    }
    return reports;
}

struct Received {
    int result = 0;
    Bytes message = {};

    bool operator==(const Received&) const = default;
    friend void PrintTo(const Received& received, std::ostream* out) {
        *out << received.result << ", " << describe(received.message);
    }
};

constexpr unsigned char no_legacy = 0;
constexpr int commands = 0;
constexpr int pen_data = 1;

inline Received receive(vx_device* device, int selector = commands, unsigned int time_out = 1000,
                        unsigned char legacy_flag = no_legacy, unsigned int capacity = 2048) {
    Bytes buffer(std::size_t{capacity} + 1, 0xEE);
    unsigned int length = capacity;
    const int result = __receive_ssp_message(device, buffer.data(), &length, time_out, legacy_flag, selector);
    if (result != 0) {
        return {result};
    }
    EXPECT_LE(length, capacity);
    EXPECT_EQ(buffer[capacity], 0xEE);
    return {result, part(buffer, 0, length)};
}

inline int queued(uni_queue* queue) {
    return queue ? get_uni_queue_size(queue) : 0;
}

// What a pad answers, whatever its transport.
class SspPad {
  public:
    std::vector<unsigned char> components{5, 11, 3, 1};
    std::vector<std::uint32_t> modes{13, 5, 0, 6};
    std::uint32_t vendor_id = 0;
    std::uint32_t product_id = 0;
    std::string serial_number = "SN0300";
    unsigned char mode = 0;
    std::vector<Bytes> asked = {}; // every message that came
    // Replaces replies: messages for the stream, or nullopt for the pad's own.
    std::function<std::optional<std::vector<Bytes>>(const Bytes& message)> replace = {};

    std::vector<Bytes> answer(const Bytes& message) {
        asked.push_back(message);
        if (replace) {
            if (auto replies = replace(message)) {
                return *replies;
            }
        }
        return own_answer(message);
    }

    void attach(UsbDevice& pad) {
        pad.answer = [this](UsbDevice& device, const Bytes& sent) {
            const std::vector<Bytes> replies = answer(unframed(sent));
            const auto guard = bus().lock(); // pen data may be coming on another thread
            for (const Bytes& reply : replies) {
                device.incoming.push_back(framed(reply));
            }
        };
    }

    // Over HID a stream comes in reports; the one that completes a message is answered.
    void attach(HidInterface& pad) {
        bus().hooks.send_feature = [this, &pad, stream = Bytes()](HidInterface&,
                                                                  std::span<const unsigned char> report) mutable {
            if (report.size() > 2 && report[1] == 0xF8) {
                stream.insert(stream.end(), report.begin() + 2, report.end());
            }
            const Bytes message = unframed(stream);
            if (message.size() > 3 && message.size() == 4U + message[1] + 256U * message[2]) {
                stream.clear();
                for (const Bytes& reply : answer(message)) {
                    for (const Bytes& piece : ssp_reports(framed(reply))) {
                        pad.feature_replies.push_back(piece);
                    }
                }
            }
            return std::optional<int>();
        };
    }

    Bytes description() const {
        Bytes payload{0x10, 1};
        for (const std::uint32_t number : {vendor_id, product_id, 1U, 2U, 3U, 4U, 5U}) {
            for (int i = 0; i < 4; ++i) {
                payload.push_back(static_cast<unsigned char>(number >> (8 * i)));
            }
        }
        payload.push_back(static_cast<unsigned char>(serial_number.size()));
        for (const char letter : serial_number) {
            payload.push_back(static_cast<unsigned char>(letter));
        }
        return payload;
    }

    Bytes component_list() const {
        Bytes payload{0x10, 1, static_cast<unsigned char>(components.size())};
        payload.insert(payload.end(), components.begin(), components.end());
        return payload;
    }

    Bytes mode_list() const {
        Bytes payload{0x12, 1, static_cast<unsigned char>(modes.size())};
        for (const std::uint32_t type : modes) {
            for (int i = 0; i < 4; ++i) {
                payload.push_back(static_cast<unsigned char>(type >> (8 * i)));
            }
        }
        return payload;
    }

  private:
    std::vector<Bytes> own_answer(const Bytes& message) {
        if (message == Bytes{0xC0, 0}) {
            return {legacy(feature_)};
        }
        if ((message[0] & 0x80) != 0) {
            feature_ = Bytes(64);
            feature_[0] = message[1];
            if (message[1] == 0x01) {
                mode = message[2];
            }
            if (message[1] == 0x27) {
                feature_[11] = mode;
            }
            return {};
        }
        if (message == Bytes{0, 0, 0, 0x10}) {
            return {base(0, component_list())};
        }
        const unsigned char id = message[0];
        const unsigned char type = id < components.size() ? components[id] : 0;
        const unsigned char command = message[3];
        switch (type * 256 + command) {
        case 11 * 256 + 0x10:
            return {base(id, description())};
        case 11 * 256 + 0x11:
            return {base(id, {0x11, 1})};
        case 11 * 256 + 0x12:
            return {base(id, mode_list())};
        case 11 * 256 + 0x13:
            return {base(id, {0x13, 1, message[4], message[5], 0x77})};
        case 3 * 256 + 0x10:
            return {base(id, {0x10, 1, 0})};
        case 3 * 256 + 0x14:
        case 3 * 256 + 0x17:
            return {base(id, {command, 1})};
        case 1 * 256 + 0x10:
            return {base(id, {0x10, 1, 2})};
        default:
            return {};
        }
    }

    Bytes feature_ = Bytes(64);
};

// Ids with which a VCOM pad of this type describes itself.
inline SspPad described_as(unsigned int pad_type) {
    const HidInterface ids = pad_of_type(pad_type);
    SspPad pad;
    pad.vendor_id = ids.vendor_id;
    pad.product_id = ids.product_id;
    return pad;
}

// Log lines of bulk transfers.
inline std::string bulk_out(const Bytes& stream, const std::string& name = "usb1") {
    return "libusb_bulk_transfer(" + name + ", 01, " + describe(stream) + ", 1000)";
}
inline std::string bulk_in(std::size_t size, unsigned int time_out, const std::string& name = "usb1") {
    return "libusb_bulk_transfer(" + name + ", 81, " + std::to_string(size) + ", " + std::to_string(time_out) + ")";
}
inline std::string usb_opened(const std::string& name = "usb1") {
    return "libusb_open(" + name + ")";
}
inline std::string usb_closed(const std::string& name = "usb1") {
    return "libusb_close(" + name + ")";
}

} // namespace core_test
