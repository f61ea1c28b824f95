// What the words of a command line mean.
#pragma once

#include "hex.hpp"
#include "layout.hpp"
#include "support/id_lines.hpp"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vxpadctl {

struct Command;

// A component of a pad, by the type that its name stands for or by its id.
struct ComponentChoice {
    enum class By { type, id } by;
    std::uint32_t number;
    bool operator==(const ComponentChoice&) const = default;
};

constexpr double most_seconds = 1'000'000;

struct Arguments {
    const Command* command = nullptr; // null where help or version is all that is wanted
    bool help = false;
    bool version = false;
    unsigned int pad = 0;
    Bytes bytes;
    bool json = false;
    bool trace = false;
    bool fill = false;
    bool reply = false;
    bool pen_data = false;
    unsigned int interface = 0;
    std::optional<unsigned int> length; // payload bytes
    unsigned int wait = 1000;           // milliseconds, for each report
    unsigned int timeout = 1000;        // milliseconds, for each message
    std::optional<unsigned int> count;
    std::optional<ComponentChoice> component;
    std::optional<unsigned int> message_id;
    std::optional<unsigned int> connection; // type to set
    std::string variable;
    std::string value;
    unsigned int mode = 0; // type
    unsigned int button = 0;
    std::uint32_t button_state[2] = {};
    std::string file;
    std::string output; // a file, or "-"
    double seconds = most_seconds;
    Layout layout;
    std::string layout_file; // in place of layout, unless it is empty
    double speed = 1;        // of a replay
    bool fast = false;       // without any pause
    std::optional<unsigned int> virtual_pad;
    std::uint32_t interface_mask = 0xffffffff;
    std::string format;                  // of a picture or of an export, by its name
    std::vector<std::string> help_topic; // what help is wanted for
    std::string new_transport;           // the words of a new id
    std::string new_type;
    std::string new_name;
    id_lines::Id new_id = {};
    std::string node;   // device file or port of a pad on the bus, in place of its number
    std::string bundle; // file for those who help
};

struct UsageError : std::runtime_error {
    using runtime_error::runtime_error;
};

} // namespace vxpadctl
