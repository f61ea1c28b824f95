// The library's interface in the form in which the commands use it: values instead of buffers, exceptions instead of
// handles.
#pragma once

#include "added_ids.hpp"
#include "hex.hpp"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vxpadctl {

constexpr unsigned int longest_report = 4096; // payload bytes, more than any pad takes

// An SSP message: component id and size of the payload, then the payload, which begins with a message id.
constexpr std::size_t message_header = 3;
constexpr std::size_t message_id_size = 1;
constexpr std::size_t longest_payload = 0x10000;
constexpr std::size_t longest_message = message_header + longest_payload;

// A failure for which the library has filed a record.
struct LibraryError : std::runtime_error {
    using runtime_error::runtime_error;
};

struct UsbId {
    std::uint32_t vendor;
    std::uint32_t product;
    bool operator==(const UsbId&) const = default;
};

// Throws LibraryError unless a call of the library went well.
void check(int handle);

// A USB id that the search looks for. Where a maker is given, only the devices whose manufacturer's name begins with it
// are pads.
struct SearchedId {
    UsbId id;
    std::string_view maker = {};
    bool from_file = false; // the installed udev rules do not know it
};

// What a pad says about itself; texts in UTF-8, unfiltered.
struct Pad {
    unsigned int number;
    std::string transport;
    std::string maker;
    std::string product;
    std::string serial;
    UsbId id;
    unsigned int interfaces;
    unsigned int feature_report_size; // payload bytes
};

// What a pad's signpad tells about the pad; texts in UTF-8, unfiltered.
struct PadDescription {
    UsbId id;
    std::string version; // with its manufacturer
    std::string serial;
};

struct PadsBefore;

// Searches for pads; they are usable while this exists. Tells on standard error which pad a search waits for that takes
// long.
class Session {
  public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    unsigned int pad_count() const;
    const PadsBefore& before() const { return *before_; }

  private:
    std::unique_ptr<const PadsBefore> before_; // what was plugged in as the search began
};

// All of these need a session and throw LibraryError.
Pad describe_pad(unsigned int number);
UsbId usb_id(unsigned int pad);
unsigned int interface_count(unsigned int pad);
unsigned int feature_report_size(unsigned int pad, unsigned int interface);
unsigned int input_report_size(unsigned int pad);
std::optional<unsigned int> output_packet_size(unsigned int pad); // nothing where it is unknown
void set_feature(unsigned int pad, unsigned int interface, std::span<const std::uint8_t> payload);
Bytes get_feature(unsigned int pad, unsigned int interface, unsigned int size);
void write_report(unsigned int pad, unsigned int interface, std::span<const std::uint8_t> payload);
std::optional<Bytes> take_report(unsigned int pad, unsigned int interface,
                                 unsigned int size); // nothing where none is waiting

// Sends whole pieces, reports without their report ids, over the interfaces of the mask at once. Returns how many
// pieces have been sent: fewer where an interface failed.
std::size_t upload_pieces(unsigned int pad, std::uint32_t interfaces, std::span<const std::uint8_t> payload,
                          std::size_t piece_size);

// Whole messages. Nothing comes out where the time-out passed, in milliseconds.
void send_message(unsigned int pad, unsigned int interface, std::span<const std::uint8_t> message);
std::optional<Bytes> receive_message(unsigned int pad, unsigned int interface, unsigned int time_out);

// Pen data of a pad, switched on while this exists. A HID pad sends it as input reports and needs no switching.
class PenData {
  public:
    PenData(unsigned int pad, unsigned int interface);
    ~PenData();
    PenData(const PenData&) = delete;
    PenData& operator=(const PenData&) = delete;

    std::optional<Bytes> take(); // nothing where none is waiting

  private:
    unsigned int interface_;
    Bytes buffer_;
};

UsbId id_of(const id_lines::Id& id);

// "f1a0:1001"
std::string to_text(const UsbId& id);

// The model class of a pad that tells these ids, 0 where it is unknown.
unsigned int pad_type(UsbId id, std::span<const AddedId> added);

// Those of files in front of those that are built in, for the same pair in place of it.
std::vector<SearchedId> searched_ids(std::span<const AddedId> added);

// A pair that is built in. A VCOM pad's type goes by the ids that it tells.
struct BuiltInId {
    UsbId id;
    id_lines::Transport transport;
    std::optional<unsigned int> type;
    std::string_view maker; // as in SearchedId
};
std::vector<BuiltInId> built_in_ids();

// Keeps the library's own lines off the terminal, or asks for all of them.
void send_error_lines_to_syslog();
void turn_on_tracing();

} // namespace vxpadctl
