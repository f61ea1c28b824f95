// Multi-byte fields on the wire.
#pragma once

#include <cstddef>
#include <cstdint>

namespace little_endian {

template <typename Value> void put(unsigned char* target, Value value) {
    for (std::size_t i = 0; i < sizeof value; ++i) {
        target[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

inline std::uint32_t get_u32(const unsigned char* source) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i) {
        value |= std::uint32_t{source[i]} << (8 * i);
    }
    return value;
}

} // namespace little_endian
