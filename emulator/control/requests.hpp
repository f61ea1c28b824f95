// What can be asked of the pads while they are plugged in: a line is a request.
#pragma once

#include "usb/bus.hpp"

#include <string>
#include <string_view>

namespace emulator {

// "ok", perhaps with text after a blank, or "error " and what is wrong; may have several lines.
std::string answer_request(Bus& bus, std::string_view request);

} // namespace emulator
