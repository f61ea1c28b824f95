#include "host/vhci_ports.hpp"

#include "base/fd.hpp"
#include "host/usbip_protocol.hpp"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace emulator {

namespace {

namespace fs = std::filesystem;

constexpr unsigned int unused = 4; // in a port's column "sta"

std::runtime_error no_module(const fs::path& directory) {
    return std::runtime_error("the kernel module vhci-hcd is not loaded (modprobe vhci-hcd): there is no " +
                              directory.string());
}

} // namespace

std::vector<unsigned int> VhciPorts::free() const {
    std::vector<std::pair<unsigned int, unsigned int>> found; // ports used at the controller, port
    std::error_code error;
    for (const auto& entry :
         fs::directory_iterator(directory_, error)) { // "status", "status.1" ... of a controller each
        if (!entry.path().filename().string().starts_with("status")) {
            continue;
        }
        std::vector<unsigned int> free;
        unsigned int used = 0;
        std::ifstream file{entry.path()};
        for (std::string line; std::getline(file, line);) {
            std::istringstream words{line};
            std::string hub;
            unsigned int port = 0;
            unsigned int state = 0;
            if (words >> hub >> port >> state && hub == "hs") {
                state == unused ? free.push_back(port) : void(++used);
            }
        }
        for (const auto port : free) {
            found.emplace_back(used, port);
        }
    }
    if (error) {
        throw no_module(directory_);
    }
    std::ranges::sort(found);
    std::vector<unsigned int> ports;
    for (const auto& [used, port] : found) {
        ports.push_back(port);
    }
    return ports;
}

void VhciPorts::attach(int socket, std::uint32_t device_id) const {
    const auto path = directory_ / "attach";
    const auto ports = free();
    const Fd file{::open(path.c_str(), O_WRONLY | O_CLOEXEC)};
    if (!file && errno == EACCES) {
        throw std::runtime_error("only root may plug pads into this machine's kernel: " + path.string() + ": " +
                                 std::generic_category().message(errno));
    }
    check(file.get(), path.c_str());
    for (const auto port : ports) {
        const auto line = std::to_string(port) + " " + std::to_string(socket) + " " + std::to_string(device_id) + " " +
                          std::to_string(usbip::full_speed);
        if (::write(file.get(), line.data(), line.size()) >= 0) { // whole, or not at all
            return;
        }
        if (errno != EBUSY) { // else somebody was faster
            check(-1, path.c_str());
        }
    }
    throw std::runtime_error("no port of vhci-hcd is free");
}

} // namespace emulator
