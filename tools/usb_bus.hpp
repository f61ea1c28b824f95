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
};

// The devices with one of these ids, and of the right maker where one is given. The roots stand for / and differ in
// tests only.
std::vector<BusDevice> find_on_bus(std::span<const SearchedId> ids, const std::filesystem::path& root = "/");

} // namespace vxpadctl
