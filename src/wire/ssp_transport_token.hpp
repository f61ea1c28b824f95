// Tokens at the end of received bytes, for those who read on.
#pragma once

#include <array>
#include <span>

namespace ssp_transport_token {

inline constexpr std::array<unsigned char, 2> marker{0xAA, 0x55};
inline constexpr std::size_t token_size = 3;
inline constexpr std::array<unsigned char, token_size> start_of_frame{0xAA, 0x55, 2};

// Size of what may be a token that the end of the bytes cuts off: AA, AA 55, or a start of frame with nothing behind.
std::size_t cut_token_size(std::span<const unsigned char> received);

} // namespace ssp_transport_token
