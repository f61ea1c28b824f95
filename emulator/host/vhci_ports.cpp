#include "host/vhci_ports.hpp"

#include "base/fd.hpp"
#include "host/usbip_protocol.hpp"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace emulator {

namespace {

namespace fs = std::filesystem;

// A line of a status file.
struct PortStatus {
    unsigned int controller = 0; // number of its file
    unsigned int port = 0;
    bool free = false;
    std::string device; // "3-1"; something else while it is not known yet
};

constexpr unsigned int state_free = 4;
constexpr unsigned int state_used = 6;

// Of all ports that are slow enough for pads. There is a file for each controller: "status", "status.1" ...
std::vector<PortStatus> read_status(const fs::path& directory) {
    if (!fs::exists(directory / "status")) {
        throw std::runtime_error("the kernel module vhci-hcd is not loaded (modprobe vhci-hcd): there is no " +
                                 directory.string());
    }
    std::vector<PortStatus> all;
    unsigned int controller = 0;
    for (auto path = directory / "status"; fs::exists(path);
         path = directory / ("status." + std::to_string(++controller))) {
        std::ifstream file{path};
        for (std::string line; std::getline(file, line);) {
            std::istringstream words{line};
            PortStatus status;
            status.controller = controller;
            std::string hub;
            std::string other;
            unsigned int state = 0;
            if (words >> hub >> status.port >> state >> other >> other >> other >> status.device && hub == "hs") {
                status.free = state == state_free;
                if (state != state_used) {
                    status.device.clear();
                }
                all.push_back(status);
            }
        }
    }
    return all;
}

// Those of the least used controller first: devices of one controller are set up one after the other.
std::vector<unsigned int> free_ports(const std::vector<PortStatus>& all) {
    std::vector<std::pair<std::ptrdiff_t, unsigned int>> found; // with the number of its neighbours
    for (const auto& status : all) {
        if (status.free) {
            const auto neighbours = std::ranges::count_if(
                all, [&](const auto& other) { return other.controller == status.controller && !other.free; });
            found.emplace_back(neighbours, status.port);
        }
    }
    std::ranges::sort(found);
    std::vector<unsigned int> ports;
    for (const auto& [neighbours, port] : found) {
        ports.push_back(port);
    }
    return ports;
}

} // namespace

unsigned int VhciPorts::attach(int socket, std::uint32_t device_id) const {
    for (const auto port : free_ports(read_status(directory_))) {
        if (hand_over(port, socket, device_id) >= 0) {
            return port;
        }
        if (errno == EACCES || errno == EPERM) {
            throw std::runtime_error("only root may plug pads into this machine's kernel: " +
                                     (directory_ / "attach").string() + ": " + std::generic_category().message(errno));
        }
        if (errno != EBUSY) { // else somebody was faster
            check(-1, (directory_ / "attach").c_str());
        }
    }
    throw std::runtime_error("no port of vhci-hcd is free");
}

std::string VhciPorts::device_at(unsigned int port) const {
    for (const auto& status : read_status(directory_)) {
        if (status.port == port) {
            return status.device;
        }
    }
    return {};
}

bool VhciPorts::exists(const std::string& device) const {
    return fs::exists("/sys/bus/usb/devices/" + device);
}

long VhciPorts::hand_over(unsigned int port, int socket, std::uint32_t device_id) const {
    const Fd file{::open((directory_ / "attach").c_str(), O_WRONLY | O_CLOEXEC)};
    if (!file) {
        return -1;
    }
    const auto line = std::to_string(port) + " " + std::to_string(socket) + " " + std::to_string(device_id) + " " +
                      std::to_string(usbip::full_speed);
    return ::write(file.get(), line.data(), line.size());
}

} // namespace emulator
