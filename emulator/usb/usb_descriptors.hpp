// The descriptors with which a pad presents itself on the bus.
#pragma once

#include "pad/pad_settings.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace emulator {

inline constexpr std::uint8_t descriptor_device = 0x01;
inline constexpr std::uint8_t descriptor_configuration = 0x02;
inline constexpr std::uint8_t descriptor_string = 0x03;
inline constexpr std::uint8_t descriptor_interface = 0x04;
inline constexpr std::uint8_t descriptor_hid = 0x21;
inline constexpr std::uint8_t descriptor_report = 0x22;

std::vector<std::uint8_t> device_descriptor(const PadSettings& pad);
std::vector<std::uint8_t> configuration_descriptor(const PadSettings& pad);
std::vector<std::uint8_t> hid_descriptor(const PadSettings& pad);
std::vector<std::uint8_t> report_descriptor(const PadSettings& pad);
std::optional<std::vector<std::uint8_t>> string_descriptor(const PadSettings& pad, std::uint8_t index);

inline constexpr std::uint8_t bulk_in_endpoint = 0x81;
inline constexpr std::uint8_t bulk_out_endpoint = 0x02;
inline constexpr std::size_t bulk_packet_size = 64; // at full speed

bool has_endpoint(const PadSettings& pad, unsigned int interface, std::uint8_t endpoint);

// USB has 15 IN endpoints: a pad with more interfaces uses the same addresses again.
constexpr std::uint8_t input_endpoint(unsigned int interface) {
    return static_cast<std::uint8_t>(0x80 | (interface % 15 + 1));
}

} // namespace emulator
