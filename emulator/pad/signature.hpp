// What a pen writes, point by point, as a text file tells it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace emulator {

struct PenPoint {
    std::uint16_t x = 0;
    std::uint16_t y = 0;
    std::uint16_t pressure = 0; // 0: above the surface
};

using Signature = std::vector<PenPoint>;

// Lines of "x y pressure"; an empty line lifts the pen, one that begins with # is a comment. Throws
// std::invalid_argument.
Signature read_signature(const std::filesystem::path& file);

} // namespace emulator
