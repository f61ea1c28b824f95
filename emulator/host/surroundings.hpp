// What the program under the emulator is given, so that it sees the pads.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace emulator {

struct Surroundings {
    std::string preload_libraries; // for LD_PRELOAD, separated by colons
    std::vector<std::pair<std::string, std::string>> variables;
};

} // namespace emulator
