// Measuring a frame that may be cut short.
#pragma once

#include <span>

namespace ssp_base_message {

constexpr std::size_t base_header_size = 3;
constexpr std::size_t legacy_header_size = 1;

struct Measure {
    std::size_t header;
    std::size_t data;     // as the header says
    bool header_is_whole; // else data is not known
    std::size_t message() const { return header + data; }
};

// Whether a message with this first byte is a legacy one, without the exported function's trace lines.
constexpr bool is_legacy(unsigned char first) {
    return (first & 0x80) != 0;
}

// frame holds at least one byte.
Measure measure(std::span<const unsigned char> frame);

} // namespace ssp_base_message
