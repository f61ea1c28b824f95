// Versions of what pads are reached through, and what a program answers to --version.
#pragma once

#include <string>
#include <string_view>

namespace version_line {

// Of the libraries that are loaded.
std::string of_libusb();
std::string of_hidapi();

// A line: "vxpadctl 0.1.0 (libvxpadcom 0.1.0, libusb 1.0.26, hidapi 0.13.1)", with the versions that are loaded. A
// program that does without libvxpadcom leaves its version empty.
std::string of(std::string_view program, std::string_view libvxpadcom = {});

} // namespace version_line
