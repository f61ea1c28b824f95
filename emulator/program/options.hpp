// The command line.
#pragma once

#include "base/sockets.hpp"
#include "host/vhci_ports.hpp"
#include "pad/faults.hpp"
#include "pad/pad_settings.hpp"

#include <span>
#include <string>
#include <utility>
#include <vector>

namespace emulator {

enum class Verb { run, serve, attach }; // how the pads are plugged in

struct Options {
    Verb verb = Verb::run;
    bool help = false;
    bool verbose = false;
    std::string control_path; // empty: in the private directory
    std::vector<PadSettings> pads;
    std::vector<std::pair<unsigned int, Fault>> faults;     // with the number of the pad
    TcpAddress listen;                                      // serve
    std::string vhci_directory{VhciPorts::usual_directory}; // attach
    std::vector<std::string> command;                       // empty: none
};

// Throws std::invalid_argument.
Options parse_options(std::span<char* const> arguments);

const char* help_text();

} // namespace emulator
