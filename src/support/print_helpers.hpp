// Bytes and bits as text for trace lines, without the static buffers of the exported functions.
#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace print_helpers {

using BytesText = std::array<char, 1024>;

// "[ 01 AB ]". At most 340 bytes are shown, and from 340 bytes on the closing bracket is left out.
BytesText bytes_text(std::span<const unsigned char> bytes);

using BitsText = std::array<char, 32>;

// The low eight bits, most significant first.
BitsText bits_text(int value);

} // namespace print_helpers
