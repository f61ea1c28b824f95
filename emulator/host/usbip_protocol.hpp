// The bytes of USB/IP, version 1.1.1. Numbers are big-endian, but for the eight bytes of a setup packet. First come
// operations, of which one imports a device; from then on the connection carries commands to it and their replies.
#pragma once

#include "usb/usb_device.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace emulator::usbip {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::uint16_t version = 0x0111;
inline constexpr std::size_t operation_size = 8; // version, code, status
inline constexpr std::size_t bus_id_size = 32;   // what follows a request to import
inline constexpr std::size_t command_size = 48;

enum OperationCode : std::uint16_t {
    request_import = 0x8003,
    reply_import = 0x0003,
    request_list = 0x8005,
    reply_list = 0x0005,
};

enum OperationStatus : std::uint32_t { status_ok = 0, status_busy = 2, status_no_device = 4 };

struct Operation {
    std::uint16_t version = 0;
    std::uint16_t code = 0;
};

Operation parse_operation(std::span<const std::uint8_t, operation_size> bytes);
std::string_view parse_bus_id(std::span<const std::uint8_t, bus_id_size> bytes); // up to its first zero

// A device as it is told of before it is imported.
struct DeviceRecord {
    std::string bus_id;
    unsigned int bus = 0;
    unsigned int address = 0;
    Bytes descriptors; // the device descriptor, then the configuration
};

inline constexpr std::uint32_t full_speed = 2;

constexpr std::uint32_t device_id(unsigned int bus, unsigned int address) {
    return bus << 16 | address;
}

Bytes list_reply(const std::vector<DeviceRecord>& devices);
Bytes import_reply(const DeviceRecord& device);
Bytes import_refusal(OperationStatus status);

enum CommandCode : std::uint32_t { submit = 1, unlink = 2, reply_submit = 3, reply_unlink = 4 };

struct Command {
    std::uint32_t code = 0;
    std::uint32_t number = 0; // by which its reply is known
    std::uint32_t device = 0; // device_id()
    bool in = false;
    std::uint32_t endpoint = 0; // without its direction
    // submit
    std::uint32_t flags = 0;
    std::int32_t length = 0;  // of the buffer
    std::int32_t packets = 0; // isochronous ones
    SetupPacket setup;
    // unlink
    std::uint32_t unlinked = 0; // number of a submit
};

inline constexpr std::uint32_t flag_short_not_ok = 1;

Command parse_command(std::span<const std::uint8_t, command_size> bytes);
Bytes submit_reply(std::uint32_t number, int status, std::size_t actual_length);
Bytes unlink_reply(std::uint32_t number, int status);

} // namespace emulator::usbip
