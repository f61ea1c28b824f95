// The command line.
#pragma once

#include "hex.hpp"

#include <optional>
#include <span>
#include <stdexcept>
#include <string>

namespace vxpadctl {

enum class Command { help, version, list, info, feature_get, feature_set, report_read, report_write };

struct Arguments {
    Command command = Command::help;
    unsigned pad = 0;
    Bytes bytes;
    bool json = false;
    bool trace = false;
    bool fill = false;
    bool reply = false;
    unsigned interface = 0;
    std::optional<unsigned> length; // payload bytes
    unsigned wait = 1000;           // milliseconds, for each report
    unsigned count = 1;
};

struct UsageError : std::runtime_error {
    using runtime_error::runtime_error;
};

// Throws UsageError.
Arguments parse_arguments(std::span<char* const> words);

const char* help_text();

} // namespace vxpadctl
