// The library's interface in the form in which the commands use it: values instead of buffers, exceptions instead of
// handles.
#pragma once

#include "hex.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace vxpadctl {

// A failure for which the library has filed a record.
struct LibraryError : std::runtime_error {
    using runtime_error::runtime_error;
};

struct UsbId {
    std::uint32_t vendor;
    std::uint32_t product;
    auto operator<=>(const UsbId&) const = default;
};

// What a pad says about itself; texts in UTF-8, unfiltered.
struct Pad {
    unsigned number;
    std::string transport;
    std::string maker;
    std::string product;
    std::string serial;
    UsbId id;
    unsigned interfaces;
    unsigned feature_report_size; // payload bytes
};

// Searches for pads; they are usable while this exists.
class Session {
  public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    unsigned pad_count() const;
};

// All of these need a session and throw LibraryError.
Pad describe_pad(unsigned number);
unsigned interface_count(unsigned pad);
unsigned feature_report_size(unsigned pad, unsigned interface);
unsigned input_report_size(unsigned pad);
void set_feature(unsigned pad, unsigned interface, std::span<const std::uint8_t> payload);
Bytes get_feature(unsigned pad, unsigned interface, unsigned size);
void write_report(unsigned pad, unsigned interface, std::span<const std::uint8_t> payload);
std::optional<Bytes> take_report(unsigned pad, unsigned interface, unsigned size); // nothing where none is waiting

// The USB ids that the search looks for.
std::vector<UsbId> searched_ids();

// Keeps the library's own lines off the terminal, or asks for all of them.
void send_error_lines_to_syslog();
void turn_on_tracing();

} // namespace vxpadctl
