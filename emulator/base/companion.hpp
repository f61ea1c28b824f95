// Files that belong to this program.
#pragma once

#include <filesystem>

namespace emulator {

// Beside this program in the build tree, in a directory of its own when installed; both are given as seen from there.
// Throws std::runtime_error when it is missing.
std::filesystem::path companion(const char* built, const char* installed);

} // namespace emulator
