// Bytes as people type and read them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vxpadctl {

using Bytes = std::vector<std::uint8_t>;

// Appends the bytes of "1f", "1f002a", "0x1f" or "1f:00,2a". Throws std::invalid_argument for anything else.
void parse_hex(std::string_view text, Bytes& bytes);

// A USB id as it is usually written, "1f2a".
std::string hex_id(std::uint32_t value);

// "1f 00 2a"
std::string hex_line(std::span<const std::uint8_t> bytes);

// Lines of 16 bytes: offset, bytes, printable characters.
std::string hex_dump(std::span<const std::uint8_t> bytes);

} // namespace vxpadctl
