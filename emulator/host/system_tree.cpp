#include "host/system_tree.hpp"

#include "base/text.hpp"
#include "pad/pad_settings.hpp"
#include "usb/usb_device.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <linux/sockios.h>
#include <optional>
#include <string_view>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <utility>
#include <vector>

namespace emulator {

namespace {

constexpr std::string_view monitor_prefix = "monitor";

constexpr std::chrono::milliseconds time_to_look{3}; // at a new pad, for one who has just heard of it
constexpr std::chrono::seconds most_patience{1};

// A process that never reads its events loses the later ones.
constexpr std::size_t most_waiting_events = 1000;

void write_file(const std::filesystem::path& path, std::string_view content) {
    std::ofstream file{path, std::ios::binary};
    file << content;
    if (!file.flush()) {
        throw std::filesystem::filesystem_error("cannot write", path, std::make_error_code(std::errc::io_error));
    }
}

std::string three_digits(unsigned int number) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%03u", number);
    return text.data();
}

std::string device_name(const Port& port) {
    return "bus/usb/" + three_digits(Bus::number) + "/" + three_digits(port.address);
}

std::string device_path(const Port& port) {
    return "devices/" + port.name(); // below /sys
}

// In udev's databases a device with numbers but without an entry is not ready yet: it has no MAJOR and MINOR.
std::vector<std::string> properties(const Port& port) {
    return {"DEVTYPE=usb_device", "DEVNAME=" + device_name(port), "BUSNUM=" + three_digits(Bus::number),
            "DEVNUM=" + three_digits(port.address)};
}

} // namespace

SystemTree::SystemTree(EventLoop& loop, Bus& bus, std::filesystem::path root) : loop_{loop}, root_{std::move(root)} {
    for (const auto* directory : {"sys/devices", "sys/class", "sys/bus/usb/devices"}) {
        std::filesystem::create_directories(root_ / directory);
    }
    std::filesystem::create_directories(root_ / "dev/bus/usb" / three_digits(Bus::number));
    bus.observe([this](Port& port) { plugged(port); }, [this](Port& port) { unplugging(port); });
}

SystemTree::~SystemTree() {
    for (const auto& [name, monitor] : monitors_) {
        loop_.forget(monitor.socket.get());
    }
}

void SystemTree::plugged(const Port& port) {
    // Built beside the tree and moved in whole: another thread may be reading.
    const auto building = root_ / ("new-" + port.name());
    std::filesystem::create_directory(building);
    std::string uevent;
    for (const auto& property : properties(port)) {
        uevent += property + "\n";
    }
    const auto bytes = port.device->descriptors();
    const std::array<std::pair<const char*, std::string>, 6> attributes{{
        {"uevent", uevent},
        {"busnum", std::to_string(Bus::number) + "\n"},
        {"devnum", std::to_string(port.address) + "\n"},
        {"speed", "12\n"},
        {"bConfigurationValue", "1\n"},
        {"descriptors", {bytes.begin(), bytes.end()}},
    }};
    for (const auto& [name, content] : attributes) {
        write_file(building / name, content);
    }
    // The kernel has asked the pad for these when it was plugged in; an empty one is none.
    const auto& pad = port.settings;
    const std::array<std::pair<const char*, const std::optional<std::u16string>*>, 3> texts{
        {{"manufacturer", &pad.maker}, {"product", &pad.product}, {"serial", &pad.serial}}};
    for (const auto& [name, text] : texts) {
        if (*text && !(*text)->empty()) {
            write_file(building / name, utf8(**text) + "\n");
        }
    }
    std::filesystem::create_symlink("../../bus/usb", building / "subsystem");
    const auto node = root_ / "dev" / device_name(port);
    write_file(node, "");
    if (port.settings.denied) {
        std::filesystem::permissions(node, std::filesystem::perms::none);
    }
    std::filesystem::rename(building, root_ / "sys" / device_path(port));
    std::filesystem::create_symlink("../../../" + device_path(port), root_ / "sys/bus/usb/devices" / port.name());
    send_event(port, "add");
}

void SystemTree::unplugging(const Port& port) {
    std::filesystem::remove(root_ / "sys/bus/usb/devices" / port.name());
    std::filesystem::remove_all(root_ / "sys" / device_path(port));
    std::filesystem::remove(root_ / "dev" / device_name(port));
    send_event(port, "remove");
}

// In the kernel's format, which udev's library takes as well as the one of its daemon.
void SystemTree::send_event(const Port& port, const char* action) {
    std::string event = action + std::string{"@/"} + device_path(port) + '\0';
    event += std::string{"ACTION="} + action + '\0';
    event += "DEVPATH=/" + device_path(port) + '\0';
    event += std::string{"SUBSYSTEM=usb"} + '\0';
    for (const auto& property : properties(port)) {
        event += property + '\0';
    }
    event += "SEQNUM=" + std::to_string(++events_) + '\0';

    find_monitors();
    std::vector<std::string> names;
    for (auto& [name, monitor] : monitors_) {
        if (monitor.waiting.size() < most_waiting_events) {
            monitor.waiting.push_back(event);
        }
        names.push_back(name);
    }
    for (const auto& name : names) {
        flush(name);
    }
    last_event_ = Clock::now();
    read_since_.reset();
}

bool SystemTree::is_heard() {
    const auto now = Clock::now();
    if (monitors_.empty() || now - last_event_ > most_patience) {
        return true;
    }
    const bool is_read = std::ranges::all_of(monitors_, [](const auto& named) {
        const auto& [socket, waiting] = named.second;
        int unread = 0;
        return waiting.empty() && (::ioctl(socket.get(), SIOCOUTQ, &unread) < 0 || unread == 0);
    });
    if (!is_read) {
        read_since_.reset();
        return false;
    }
    read_since_ = read_since_.value_or(now);
    return now - *read_since_ >= time_to_look;
}

void SystemTree::find_monitors() {
    for (const auto& entry : std::filesystem::directory_iterator(root_)) {
        const auto name = entry.path().filename().string();
        if (!name.starts_with(monitor_prefix)) {
            continue;
        }
        // Always connected anew: a descriptor number may have come back with another socket.
        Monitor monitor{Fd{check(::socket(AF_UNIX, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket")}, {}};
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        entry.path().string().copy(address.sun_path, sizeof address.sun_path - 1);
        if (::connect(monitor.socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
            drop(name);
            std::filesystem::remove(entry.path()); // its process has closed it
            continue;
        }
        if (const auto known = monitors_.find(name); known != monitors_.end()) {
            if (!known->second.waiting.empty()) {
                continue;
            }
            drop(name);
        }
        const auto fd = monitor.socket.get();
        monitors_.emplace(name, std::move(monitor));
        loop_.watch(fd, 0, [this, name](std::uint32_t events) {
            if ((events & (EPOLLERR | EPOLLHUP)) != 0) {
                drop(name);
            } else {
                flush(name);
            }
        });
    }
}

void SystemTree::flush(const std::string& name) {
    const auto found = monitors_.find(name);
    if (found == monitors_.end()) {
        return;
    }
    auto& [socket, waiting] = found->second;
    while (!waiting.empty()) {
        const auto& event = waiting.front();
        if (::send(socket.get(), event.data(), event.size(), MSG_NOSIGNAL) < 0) {
            if (errno != EAGAIN) {
                return drop(name);
            }
            break;
        }
        waiting.pop_front();
    }
    loop_.change(socket.get(), waiting.empty() ? 0U : std::uint32_t{EPOLLOUT});
}

void SystemTree::drop(const std::string& name) {
    const auto found = monitors_.find(name);
    if (found == monitors_.end()) {
        return;
    }
    loop_.forget(found->second.socket.get());
    monitors_.erase(found);
}

} // namespace emulator
