// A look at the USB devices beside the library, to explain why a pad that is plugged in cannot be used.
#pragma once

#include "library.hpp"

#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace vxpadctl {

enum class Access { open, denied };

struct BusDevice {
    UsbId id;
    std::string node; // device file
    Access access;
    std::string port = {};  // as the kernel names bus and port, and so this device's interfaces: "1-4.2"
    std::string maker = {}; // as the kernel has read them when the device was plugged in
    std::string product = {};
    std::string serial = {};
    unsigned int configuration = 1;
    std::vector<unsigned int> interfaces = {};     // their numbers
    std::vector<unsigned int> hid_interfaces = {}; // likewise
    bool from_file = false;                        // as in SearchedId
};

// The devices with one of these ids, and of the right maker where one is given. The roots stand for / and differ in
// tests only.
std::vector<BusDevice> find_on_bus(std::span<const SearchedId> ids, const std::filesystem::path& root = "/");

// The same without opening any, so that nothing is known of the access.
std::vector<BusDevice> list_on_bus(std::span<const SearchedId> ids, const std::filesystem::path& root = "/");

// In the order in which the library looks for them, which is that of the ids and, among equal ones, the newest first.
std::vector<BusDevice> in_search_order(std::vector<BusDevice> devices, std::span<const SearchedId> ids);

// "/dev/bus/usb/001/007 (f1a0:1001)"
std::string name_of(const BusDevice& device);

// A device that may be a pad which no id names.
struct LikelyPad {
    UsbId id;
    id_lines::Transport transport;
    std::string name; // maker and product; letters, digits, blanks and a few signs only
};

// Devices of other ids that have an interface as pads have one, HID or bulk endpoints of a vendor's own, and of which
// no driver has taken any but the one for HID. No keyboards, mice and the like.
std::vector<LikelyPad> find_likely_pads(std::span<const SearchedId> ids, const std::filesystem::path& root = "/");

} // namespace vxpadctl
