#include "udev_state.hpp"

#include <array>
#include <cstdio>
#include <fstream>
#include <system_error>

namespace vxpadctl {

namespace {

namespace fs = std::filesystem;

bool is_there(const fs::path& path) {
    std::error_code ignored;
    return fs::exists(path, ignored);
}

// The number by which udev files what it knows of a USB device: "c189:6".
std::optional<std::string> file_of(const BusDevice& device) {
    constexpr unsigned int usb_major = 189;
    constexpr unsigned int devices_of_a_bus = 128;
    unsigned int bus = 0;
    unsigned int address = 0;
    const std::size_t slash = device.node.rfind('/', device.node.rfind('/') - 1);
    if (slash == std::string::npos || std::sscanf(device.node.c_str() + slash, "/%3u/%3u", &bus, &address) != 2 ||
        bus == 0 || address == 0) {
        return std::nullopt;
    }
    return "c" + std::to_string(usb_major) + ":" + std::to_string((bus - 1) * devices_of_a_bus + address - 1);
}

} // namespace

std::optional<fs::path> installed_rules(const fs::path& root) {
    static constexpr std::array<const char*, 5> directories{"etc/udev/rules.d", "run/udev/rules.d",
                                                            "usr/local/lib/udev/rules.d", "usr/lib/udev/rules.d",
                                                            "lib/udev/rules.d"};
    for (const char* directory : directories) {
        const fs::path file = root / directory / rules_file;
        if (std::error_code ignored; is_there(file)) {
            return fs::is_empty(file, ignored) ? std::nullopt : std::optional(file);
        }
    }
    return std::nullopt;
}

std::string rules_to_install() {
    std::error_code ignored;
    const fs::path here = fs::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const char* place : {"../lib/udev/rules.d", "../packaging"}) {
        if (const fs::path file = here / place / rules_file; is_there(file)) {
            return file.lexically_normal().string();
        }
    }
    return rules_file;
}

SeatTag seat_tag_of(const BusDevice& device, const fs::path& root) {
    const auto file = file_of(device);
    if (!file || !is_there(root / "run/udev/data")) {
        return SeatTag::unknown;
    }
    std::ifstream entry{root / "run/udev/data" / *file};
    for (std::string line; std::getline(entry, line);) {
        // G: was ever set, Q: is set; an older udev knows the first one only.
        if (line == "G:uaccess" || line == "Q:uaccess") {
            return SeatTag::set;
        }
    }
    return SeatTag::missing;
}

} // namespace vxpadctl
