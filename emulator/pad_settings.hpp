// What one virtual pad is: its USB identity and how its firmware behaves.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
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
    unsigned conf_busy = 0; // state queries that still find a changed configuration being applied
    bool conf_fails = false;
    std::uint8_t connection = 0;
    unsigned pen_rate = 100; // records per second
    unsigned pen_size = 6;
};

struct PadSettings {
    PadKind kind = PadKind::hid;
    unsigned type = 16;
    std::uint16_t vendor_id = 0;
    std::uint16_t product_id = 0;
    unsigned interfaces = 2;
    std::optional<std::u16string> maker; // a string that is missing has no descriptor
    std::optional<std::u16string> product;
    std::optional<std::u16string> serial;
    FirmwareVersion version;
    unsigned mode_delay = 0; // status replies that still show the old mode after a mode was set
    bool loop_back = false;  // unknown commands are no requests: reading gives back what was written
    bool named = false;      // a VCOM pad with a chip vendor's ids
    bool has_ssp = true;
    SspSettings ssp;

    std::size_t input_report_size() const { return type == 1 ? 20 : 64; }
};

// Most UTF-16 units that a string descriptor can hold: its length is one byte and counts two bytes of header.
inline constexpr std::size_t longest_string = 126;

// "type=16,interfaces=2,serial=SN0001,..." of the pad with this number; throws std::invalid_argument.
PadSettings parse_pad_settings(std::string_view text, unsigned number, PadKind kind = PadKind::hid);

} // namespace emulator
