// Asking one pad who it is, without a search: nobody else's silence is in the way.
#pragma once

#include "usb_bus.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace vxpadctl {

// What came of it. The texts are as the pad tells them, unfiltered.
struct PadAnswer {
    unsigned int milliseconds = 0;
    std::string version; // of the firmware; empty where it cannot be asked for
    UsbId id{};          // as the library knows the pad; a VCOM pad tells it itself
    std::string serial;
    bool operator==(const PadAnswer&) const = default;
};

// Without HID interfaces a pad is a VCOM pad. Takes as long as the library's own requests do; nothing comes out where
// the pad did not answer. The type is that of its ids. To be called in a process of its own.
std::optional<PadAnswer> ask_pad(const BusDevice& device, unsigned int type);

// The answer on its way between processes.
std::string to_text(const PadAnswer& answer);
std::optional<PadAnswer> parse_answer(std::string_view text);

} // namespace vxpadctl
