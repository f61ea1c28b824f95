// The command line of vxpad-bridge. Its help and its manual page are made from the same table.
#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace bridge {

struct Options {
    unsigned short port = 7429;
    std::vector<std::string> addresses;
    std::vector<std::string> origins;
    std::string layout;
    std::optional<std::filesystem::path> token_file;
    std::optional<std::filesystem::path> address_file;
    bool help = false;
    bool version = false;
};

struct Option {
    std::string_view name;
    std::string_view value; // empty where it takes none
    std::string_view help;
    void (*set)(Options& options, const std::string& value);
};

struct UsageError : std::runtime_error {
    using runtime_error::runtime_error;
};

// A paragraph on what the program is, and one on what it writes where.
extern const std::string_view purpose;
extern const std::string_view places;

std::span<const Option> option_table();

// Throws UsageError.
Options parse_options(std::span<const char* const> arguments);

std::string help_text();

} // namespace bridge
