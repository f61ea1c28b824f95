// What is plugged in, without asking any device.
#pragma once

#include <filesystem>
#include <set>
#include <string>

namespace bridge {

// A name for each device, which no other device gets until the machine is started again.
std::set<std::string> usb_devices(const std::filesystem::path& directory = "/sys/bus/usb/devices");

} // namespace bridge
