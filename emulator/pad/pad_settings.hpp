// What one virtual pad is: its USB identity and how its firmware behaves.
#pragma once

#include "pad/signature.hpp"
#include "support/id_lines.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace emulator {

struct FirmwareVersion {
    std::array<std::uint32_t, 4> numbers{1, 2, 3, 4}; // major, minor, patch, revision
    std::string manufacturer = "VPAD";                // four characters
};

enum class PadKind { hid, vcom };

// The SSP side of a pad.
struct SspSettings {
    std::vector<std::uint8_t> components{5, 11, 3, 1}; // types; a component's id is its place
    std::vector<std::uint32_t> modes{0, 5, 6, 13};     // types; a mode's id is its place
    std::uint32_t vendor_id = 0;                       // ids and serial number that the pad tells of itself
    std::uint32_t product_id = 0;
    std::string serial;
    unsigned int conf_busy = 0; // state queries that still find a changed configuration being applied
    bool conf_fails = false;
    std::uint8_t connection = 0;
    bool answers_set_connection = false;
};

// When a pad plays pen data that nobody has asked for through the control socket.
enum class PenMode { follow, loop, off }; // follow: while the program has biodata on

struct PenSettings {
    PenMode mode = PenMode::follow;
    unsigned int rate = 100;                    // packets per second
    unsigned int size = 64;                     // of a record in the stream
    unsigned int interface = 0;                 // where input reports come
    std::shared_ptr<const Signature> signature; // nothing: the one that comes with the emulator
};

struct PadSettings {
    PadKind kind = PadKind::hid;
    unsigned int type = 16;
    std::uint16_t vendor_id = 0;
    std::uint16_t product_id = 0;
    unsigned int interfaces = 2;
    std::optional<std::u16string> maker; // a string that is missing has no descriptor
    std::optional<std::u16string> product;
    std::optional<std::u16string> serial;
    FirmwareVersion version;
    unsigned int mode_delay = 0; // status replies that still show the old mode after a mode was set
    bool loop_back = false;      // unknown commands are no requests: reading gives back what was written
    bool named = false;          // a VCOM pad with a chip vendor's ids
    bool has_ssp = true;
    bool denied = false; // nobody may open it
    SspSettings ssp;
    PenSettings pen;

    std::size_t input_report_size() const { return type == 1 ? 20 : 64; }
};

inline constexpr unsigned int fastest_pen = 100000; // packets per second

// Most UTF-16 units that a string descriptor can hold: its length is one byte and counts two bytes of header.
inline constexpr std::size_t longest_string = 126;

// What may be said of a pad.
struct PadKey {
    std::string_view name;
    std::string_view usual; // its value where nothing is said, unless the help tells
    std::string_view help;
    void (*set)(PadSettings& pad, const std::string& value);
};

std::span<const PadKey> pad_keys();

// "type=16,interfaces=2,serial=SN0001,..." of the pad with this number; throws std::invalid_argument. A pad that shows
// one of the added ids is of its type.
PadSettings parse_pad_settings(std::string_view text, unsigned int number, PadKind kind = PadKind::hid,
                               std::span<const id_lines::Id> added = {});

} // namespace emulator
