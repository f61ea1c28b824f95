// Messages of a pad in a stream that comes in any pieces, received by the engine over both transports.
//
// Bytes 0 to 3: the sizes of the pieces over VCOM, in turn. Byte 4: the kind that is received first. Then messages as
// messages.hpp tells them. What is received is what was sent, each kind in its order, the same in pieces, in one piece
// and in the reports of a HID pad.
#include "messages.hpp"
#include "pads.hpp"

#include <array>

namespace {

using fuzz::bus;
using fuzz::Bytes;

constexpr unsigned int time_out_ms = 1000;

struct Kinds {
    std::vector<Bytes> commands;
    std::vector<Bytes> pen_data;
    bool operator==(const Kinds&) const = default;
};

std::vector<Bytes> receive_all(vx_device* record, int selector) {
    std::vector<Bytes> received;
    for (;;) {
        std::array<unsigned char, 1024> message{};
        auto length = static_cast<unsigned int>(message.size());
        const int result = __receive_ssp_message(record, message.data(), &length, time_out_ms, 0, selector);
        if (result != 0) {
            fuzz::require(result == -1 || result == -7, "result");
            return received;
        }
        received.emplace_back(message.begin(), message.begin() + length);
        fuzz::require(received.size() < 1000, "an end");
    }
}

Kinds receive_both(vx_device* record, bool pen_data_first) {
    Kinds kinds;
    if (pen_data_first) {
        kinds.pen_data = receive_all(record, 1);
    }
    kinds.commands = receive_all(record, 0);
    if (!pen_data_first) {
        kinds.pen_data = receive_all(record, 1);
    }
    return kinds;
}

Kinds over_vcom(const Bytes& stream, const Bytes& sizes, bool pen_data_first) {
    bus().reset();
    bus().cost_us["libusb_bulk_transfer"] = 1;
    standins::UsbDevice& pad = bus().plug(standins::vcom_pad());
    for (std::size_t at = 0, piece = 0; at < stream.size(); ++piece) {
        const std::size_t size =
            std::min(sizes.empty() ? stream.size() : std::size_t{1} + sizes[piece % sizes.size()], stream.size() - at);
        pad.incoming.emplace_back(stream.begin() + static_cast<std::ptrdiff_t>(at),
                                  stream.begin() + static_cast<std::ptrdiff_t>(at + size));
        at += size;
    }
    Kinds received;
    {
        fuzz::VcomRecord record;
        received = receive_both(record.get(), pen_data_first);
    }
    fuzz::require_all_given_back();
    return received;
}

Kinds over_hid(const Bytes& stream, bool pen_data_first) {
    bus().reset();
    bus().cost_us["hid_get_feature_report"] = 50'000;
    standins::HidInterface& pad = bus().plug(standins::pad_of_type(16));
    bus().hooks.get_feature = [reports = fuzz::reports_of(stream), next = std::size_t{0}](
                                  standins::HidInterface&, std::span<unsigned char> report) mutable {
        const Bytes bytes = next < reports.size() ? reports[next++] : Bytes(64);
        fuzz::require(report.size() == bytes.size() + 1, "size of a report");
        report[0] = 0;
        std::copy(bytes.begin(), bytes.end(), report.begin() + 1);
        return std::optional<int>{65};
    };
    Kinds received;
    {
        fuzz::HidRecord record{pad, 16};
        received = receive_both(record.get(), pen_data_first);
    }
    fuzz::require_all_given_back();
    return received;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input{data, size};
    const Bytes sizes = input.bytes(4);
    const bool pen_data_first = input.flag();
    const std::vector<Bytes> messages = fuzz::take_messages(input);
    if (messages.empty()) {
        return 0;
    }
    const Bytes stream = cut_stream::framed(messages);
    Kinds sent;
    for (const Bytes& message : messages) {
        (fuzz::is_pen_data(message) ? sent.pen_data : sent.commands).push_back(message);
    }
    fuzz::require(over_vcom(stream, sizes, pen_data_first) == sent, "messages in pieces");
    fuzz::require(over_vcom(stream, {}, pen_data_first) == sent, "messages in one piece");
    fuzz::require(over_hid(stream, pen_data_first) == sent, "messages in reports");
    return 0;
}
