#include "usb_bus.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace vxpadctl {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t device_descriptor_size = 18;
constexpr std::size_t most_descriptor_bytes = 65536;

constexpr std::uint8_t configuration_descriptor = 2;
constexpr std::uint8_t interface_descriptor = 4;
constexpr std::uint8_t endpoint_descriptor = 5;
constexpr std::size_t interface_descriptor_size = 9;
constexpr std::uint8_t hid_class = 3;

// Up to where one goes meanwhile, as those of a device do that is pulled out.
std::vector<fs::path> entries_of(const fs::path& directory) {
    std::vector<fs::path> entries;
    std::error_code error;
    for (fs::directory_iterator each{directory, error}, end; !error && each != end; each.increment(error)) {
        entries.push_back(each->path());
    }
    return entries;
}

Bytes read_bytes(const fs::path& path) {
    Bytes bytes(most_descriptor_bytes);
    std::ifstream file{path, std::ios::binary};
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    return bytes;
}

// From the device descriptor, with which the descriptors begin; behind it are those of the configurations.
std::optional<UsbId> id_in(const Bytes& descriptors) {
    if (descriptors.size() < device_descriptor_size) {
        return std::nullopt;
    }
    const auto word = [&](std::size_t at) {
        return static_cast<std::uint32_t>(descriptors[at] | descriptors[at + 1] << 8);
    };
    return UsbId{word(8), word(10)};
}

// Takes each of what follows the device descriptor, up to the first one that makes no sense.
template <typename Take> void each_descriptor(std::span<const std::uint8_t> descriptors, Take take) {
    descriptors = descriptors.subspan(std::min(device_descriptor_size, descriptors.size()));
    while (descriptors.size() >= 2 && descriptors[0] >= 2 && descriptors[0] <= descriptors.size()) {
        take(descriptors.first(descriptors[0]));
        descriptors = descriptors.subspan(descriptors[0]);
    }
}

// Of each interface the first setting; further configurations are passed over.
void read_interfaces(std::span<const std::uint8_t> descriptors, BusDevice& device) {
    unsigned int configurations = 0;
    each_descriptor(descriptors, [&](std::span<const std::uint8_t> descriptor) {
        if (descriptor.size() < interface_descriptor_size) {
            return;
        }
        if (descriptor[1] == configuration_descriptor) {
            if (++configurations == 1) {
                device.configuration = descriptor[5];
            }
        } else if (configurations == 1 && descriptor[1] == interface_descriptor && descriptor[3] == 0) {
            device.interfaces.push_back(descriptor[2]);
            if (descriptor[5] == hid_class) {
                device.hid_interfaces.push_back(descriptor[2]);
            }
        }
    });
}

std::string first_line(const fs::path& path) {
    std::string line;
    std::ifstream file{path};
    std::getline(file, line);
    return line;
}

unsigned int read_number(const fs::path& path) {
    unsigned int number = 0;
    std::ifstream(path) >> number;
    return number;
}

// The id by which the device is a pad, or null.
const SearchedId* searched_as(const fs::path& device, UsbId id, std::span<const SearchedId> ids) {
    const std::string maker = first_line(device / "manufacturer");
    const auto found = std::ranges::find_if(
        ids, [&](const SearchedId& searched) { return searched.id == id && maker.starts_with(searched.maker); });
    return found == ids.end() ? nullptr : &*found;
}

// By opening it, which is all that counts: a container may refuse what the rights of the file allow.
Access access_to(const fs::path& node) {
    const int fd = ::open(node.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        return errno == EACCES || errno == EPERM ? Access::denied : Access::open;
    }
    ::close(fd);
    return Access::open;
}

// What a device's descriptors tell about its interfaces.
struct Interfaces {
    bool hid = false;
    bool bulk = false; // a vendor's own, with endpoints both ways
    bool desk = false; // keyboard or mouse
};

Interfaces interfaces_in(std::span<const std::uint8_t> descriptors) {
    constexpr std::uint8_t vendors_class = 0xff;
    constexpr std::uint8_t bulk_type = 2;
    constexpr std::size_t endpoint_descriptor_size = 7;
    Interfaces found;
    bool vendors = false;
    bool in = false;
    bool out = false;
    each_descriptor(descriptors, [&](std::span<const std::uint8_t> descriptor) {
        if (descriptor[1] == interface_descriptor && descriptor.size() >= interface_descriptor_size) {
            vendors = descriptor[5] == vendors_class;
            in = out = false;
            if (descriptor[5] == hid_class) {
                found.hid = true;
                found.desk = found.desk || descriptor[7] != 0;
            }
        } else if (descriptor[1] == endpoint_descriptor && descriptor.size() >= endpoint_descriptor_size &&
                   (descriptor[3] & 3) == bulk_type) {
            ((descriptor[2] & 0x80) != 0 ? in : out) = true;
            found.bulk = found.bulk || (vendors && in && out);
        }
    });
    return found;
}

// The first usage of a HID report descriptor: that of a mouse, a keyboard, a game's device or a knob?
bool is_of_a_desk(const Bytes& report_descriptor) {
    constexpr unsigned char usage_page = 0x05; // of one byte
    constexpr unsigned char usage = 0x09;
    if (report_descriptor.size() < 4 || report_descriptor[0] != usage_page || report_descriptor[2] != usage) {
        return false;
    }
    const bool desktop = report_descriptor[1] == 0x01;
    const bool media = report_descriptor[1] == 0x0c;
    return media || (desktop && report_descriptor[3] != 0);
}

// Whether only the driver for HID, or none, has taken the device's interfaces, and none is of a desk.
bool is_free(const fs::path& device) {
    std::error_code ignored;
    const std::string prefix = device.filename().string() + ":";
    for (const fs::path& interface : entries_of(device)) {
        if (!interface.filename().string().starts_with(prefix)) {
            continue;
        }
        const fs::path driver = fs::read_symlink(interface / "driver", ignored).filename();
        if (!driver.empty() && driver != "usbhid") {
            return false;
        }
        for (const fs::path& hid : entries_of(interface)) {
            if (is_of_a_desk(read_bytes(hid / "report_descriptor"))) {
                return false;
            }
        }
    }
    return true;
}

// Fit for a shell's words: the name is part of a line that people paste.
std::string plain(std::string text) {
    std::erase_if(text, [](unsigned char c) {
        return std::isalnum(c) == 0 && std::string_view(" ._+-").find(static_cast<char>(c)) == std::string_view::npos;
    });
    text.erase(0, text.find_first_not_of(' '));
    text.resize(std::min(text.size(), id_lines::longest_name));
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

} // namespace

std::vector<LikelyPad> find_likely_pads(std::span<const SearchedId> ids, const fs::path& root) {
    std::vector<LikelyPad> found;
    for (const fs::path& device : entries_of(root / "sys/bus/usb/devices")) {
        const Bytes descriptors = read_bytes(device / "descriptors");
        const auto id = id_in(descriptors);
        if (!id || searched_as(device, *id, ids) != nullptr) {
            continue;
        }
        const Interfaces interfaces = interfaces_in(descriptors);
        if ((interfaces.hid || interfaces.bulk) && !interfaces.desk && is_free(device)) {
            using id_lines::Transport;
            found.push_back({*id, interfaces.hid ? Transport::hid : Transport::vcom,
                             plain(first_line(device / "manufacturer") + " " + first_line(device / "product"))});
        }
    }
    std::ranges::sort(found, {}, [](const LikelyPad& pad) { return std::pair(pad.id.vendor, pad.id.product); });
    return found;
}

std::vector<BusDevice> list_on_bus(std::span<const SearchedId> ids, const fs::path& root) {
    std::vector<BusDevice> found;
    for (const fs::path& directory : entries_of(root / "sys/bus/usb/devices")) {
        const Bytes descriptors = read_bytes(directory / "descriptors");
        const auto id = id_in(descriptors);
        const SearchedId* searched = id ? searched_as(directory, *id, ids) : nullptr;
        if (searched == nullptr) {
            continue;
        }
        char name[32];
        std::snprintf(name, sizeof name, "%03u/%03u", read_number(directory / "busnum"),
                      read_number(directory / "devnum"));
        const fs::path node = root / "dev/bus/usb" / name;
        BusDevice device{*id, node.string(), Access::open};
        device.port = directory.filename();
        device.maker = first_line(directory / "manufacturer");
        device.product = first_line(directory / "product");
        device.serial = first_line(directory / "serial");
        device.from_file = searched->from_file;
        read_interfaces(descriptors, device);
        found.push_back(std::move(device));
    }
    std::ranges::sort(found, {}, &BusDevice::node);
    return found;
}

std::vector<BusDevice> find_on_bus(std::span<const SearchedId> ids, const fs::path& root) {
    std::vector<BusDevice> found = list_on_bus(ids, root);
    for (BusDevice& device : found) {
        device.access = access_to(device.node);
    }
    return found;
}

std::vector<BusDevice> in_search_order(std::vector<BusDevice> devices, std::span<const SearchedId> ids) {
    const auto place = [&](const BusDevice& device) {
        return std::ranges::find(ids, device.id, &SearchedId::id) - ids.begin();
    };
    std::ranges::stable_sort(devices, [&](const BusDevice& one, const BusDevice& other) {
        return place(one) != place(other) ? place(one) < place(other) : one.node > other.node;
    });
    return devices;
}

std::string name_of(const BusDevice& device) {
    return device.node + " (" + to_text(device.id) + ")";
}

} // namespace vxpadctl
