// What udev has made of the pads: whether its rules for them are installed and in effect.
#pragma once

#include "usb_bus.hpp"

#include <filesystem>
#include <optional>
#include <string>

namespace vxpadctl {

constexpr const char* rules_file = "70-vxpadcom.rules";

// Where udev would find the rules on its own; nothing where they are not installed. An empty file in a directory that
// comes first turns them off.
std::optional<std::filesystem::path> installed_rules(const std::filesystem::path& root = "/");

// The file that was installed or built together with this program, else just its name.
std::string rules_to_install();

// Whether the device has the tag by which the user at the seat gets access.
enum class SeatTag { set, missing, unknown }; // unknown: there is no udev, as in most containers
SeatTag seat_tag_of(const BusDevice& device, const std::filesystem::path& root = "/");

} // namespace vxpadctl
