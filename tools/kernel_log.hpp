// What the kernel has said about a USB port.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace vxpadctl {

struct KernelLog {
    std::vector<std::string> lines; // seconds since the start, and the message
    std::string trouble = {};       // why there are none, where they cannot be read
};

KernelLog read_kernel_log(const std::filesystem::path& root = "/");

// Of the records of /dev/kmsg: "6,1234,5678901,-;usb 1-4: new full-speed USB device".
std::vector<std::string> parse_kernel_log(std::string_view records);

// The last messages about a port, "1-4" or "1-4.2", and about its interfaces.
std::vector<std::string> messages_about(std::string_view port, const std::vector<std::string>& lines);

} // namespace vxpadctl
