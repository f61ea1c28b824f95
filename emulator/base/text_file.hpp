// Text files that the user names: signatures and recordings.
#pragma once

#include <filesystem>
#include <functional>
#include <string_view>
#include <vector>

namespace emulator {

using Words = std::vector<std::string_view>;

// Hands out the words of one line after the other. What is wrong in a line is told with its number. Throws
// std::invalid_argument.
void read_lines(const std::filesystem::path& file, const std::function<void(const Words& words)>& take);

} // namespace emulator
