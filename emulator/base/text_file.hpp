// Text files that the user names: signatures and recordings.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace emulator {

using Words = std::vector<std::string_view>;

using TakeWords = std::function<void(const Words& words)>;

// Hands out the words of one line after the other, and keeps no more of the file than that line. What is wrong in a
// line is told with its number. Throws std::invalid_argument.
void read_lines(const std::filesystem::path& file, const TakeWords& take);

// The same with what can be read from a descriptor, whatever it is; messages call it by the name.
void read_lines(int fd, const std::string& name, const TakeWords& take);

} // namespace emulator
