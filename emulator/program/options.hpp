// The command line.
#pragma once

#include "pad/faults.hpp"
#include "pad/pad_settings.hpp"

#include <span>
#include <string>
#include <utility>
#include <vector>

namespace emulator {

struct Options {
    bool help = false;
    bool verbose = false;
    std::string control_path; // empty: in the private directory
    std::vector<PadSettings> pads;
    std::vector<std::pair<unsigned int, Fault>> faults; // with the number of the pad
    std::vector<std::string> command;
};

// Throws std::invalid_argument.
Options parse_options(std::span<char* const> arguments);

const char* help_text();

} // namespace emulator
