// The command line.
#pragma once

#include "base/sockets.hpp"
#include "host/vhci_ports.hpp"
#include "pad/faults.hpp"
#include "pad/pad_settings.hpp"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace emulator {

enum class Verb { run, serve, attach }; // how the pads are plugged in

struct Options {
    Verb verb = Verb::run;
    bool help = false;
    bool version = false;
    bool verbose = false;
    std::string control_path; // empty: in the private directory
    std::string ids_path;     // file or folder of ids for the emulator and the command; empty: the usual ones
    std::vector<id_lines::Id> added_ids;
    std::vector<PadSettings> pads;
    std::vector<std::pair<unsigned int, Fault>> faults;     // with the number of the pad
    TcpAddress listen;                                      // serve
    std::string vhci_directory{VhciPorts::usual_directory}; // attach
    std::vector<std::string> command;                       // empty: none
};

struct VerbRow {
    std::string_view name;
    Verb verb;
    std::string_view usage;
    std::string_view does;
};

struct OptionRow {
    std::string_view name;
    std::string_view value; // how the help calls it; empty: it takes none
    std::string_view help;
    void (*set)(Options& options, std::string_view value);
    std::optional<Verb> verb = {}; // the only one that has it
};

// All that the command line knows, and the help, the manual and the shells' completion tell.
std::span<const VerbRow> all_verbs();
std::span<const OptionRow> all_options();

// Throws std::invalid_argument.
Options parse_options(std::span<char* const> arguments);

} // namespace emulator
