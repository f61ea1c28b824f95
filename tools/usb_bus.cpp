#include "usb_bus.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>
#include <unistd.h>

namespace vxpadctl {

namespace {

namespace fs = std::filesystem;

// From the device descriptor, with which the file begins.
std::optional<UsbId> read_id(const fs::path& device) {
    std::array<unsigned char, 18> descriptor{};
    std::ifstream file{device / "descriptors", std::ios::binary};
    if (!file.read(reinterpret_cast<char*>(descriptor.data()), descriptor.size())) {
        return std::nullopt;
    }
    const auto word = [&](std::size_t at) {
        return static_cast<std::uint32_t>(descriptor[at] | descriptor[at + 1] << 8);
    };
    return UsbId{word(8), word(10)};
}

unsigned int read_number(const fs::path& path) {
    unsigned int number = 0;
    std::ifstream(path) >> number;
    return number;
}

bool is_searched(const fs::path& device, UsbId id, std::span<const SearchedId> ids) {
    std::string maker;
    std::getline(std::ifstream(device / "manufacturer"), maker);
    return std::ranges::any_of(
        ids, [&](const SearchedId& searched) { return searched.id == id && maker.starts_with(searched.maker); });
}

Access access_to(const fs::path& node) {
    return ::access(node.c_str(), R_OK | W_OK) != 0 && errno == EACCES ? Access::denied : Access::open;
}

} // namespace

std::vector<BusDevice> find_on_bus(std::span<const SearchedId> ids, const fs::path& root) {
    std::vector<BusDevice> found;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(root / "sys/bus/usb/devices", ignored)) {
        const auto id = read_id(entry.path());
        if (!id || !is_searched(entry.path(), *id, ids)) {
            continue;
        }
        char name[32];
        std::snprintf(name, sizeof name, "%03u/%03u", read_number(entry.path() / "busnum"),
                      read_number(entry.path() / "devnum"));
        const fs::path node = root / "dev/bus/usb" / name;
        found.push_back({*id, node.string(), access_to(node)});
    }
    std::ranges::sort(found, {}, &BusDevice::node);
    return found;
}

} // namespace vxpadctl
