// What can be asked of the pads while they are plugged in: a line is a request.
#pragma once

#include "usb/bus.hpp"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace emulator {

struct Request {
    std::string_view name;
    std::size_t least_words;
    std::size_t most_words;
    std::string_view usage;
    std::string (*run)(Bus& bus, const std::vector<std::string>& words);
    std::string_view does;
};

std::span<const Request> all_requests();

// "ok", perhaps with text after a blank, or "error " and what is wrong; may have several lines.
std::string answer_request(Bus& bus, std::string_view request);

} // namespace emulator
