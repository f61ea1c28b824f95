// Who has a pad: the processes that have its device file open, and the drivers of its interfaces.
#pragma once

#include "usb_bus.hpp"

#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vxpadctl {

struct Holder {
    pid_t pid;
    std::string name;
    bool operator==(const Holder&) const = default;
};

struct Holders {
    std::vector<Holder> processes;
    bool all_seen = true; // false where there are processes that this user may not look into
};

// The root stands for / in /proc and in the device's node.
Holders holders_of(const BusDevice& device, const std::filesystem::path& root = "/");

// Whether this process has the pad open.
bool is_open_here(const BusDevice& device);

// "usbhid"; "usbfs" where a program has claimed the interface, empty where nobody has.
struct InterfaceDriver {
    unsigned int interface;
    std::string driver;
    bool operator==(const InterfaceDriver&) const = default;
};
std::vector<InterfaceDriver> drivers_of(const BusDevice& device, const std::filesystem::path& root = "/");

// The driver of the whole device: "usb", or another one that has taken it away from this machine.
std::string device_driver_of(const BusDevice& device, const std::filesystem::path& root = "/");

// Gives an interface that nobody has back to the kernel's driver.
void give_back(const BusDevice& device, unsigned int interface);

} // namespace vxpadctl
