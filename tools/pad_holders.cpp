#include "pad_holders.hpp"

#include "text.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <fstream>
#include <linux/usbdevice_fs.h>
#include <optional>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace vxpadctl {

namespace {

namespace fs = std::filesystem;

std::optional<pid_t> pid_in(const std::string& name) {
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    return error == std::errc{} && end == name.data() + name.size() ? std::optional(pid) : std::nullopt;
}

// By what the file is and not by its name: in a container it may have another one.
bool is_same_file(const struct stat& one, const struct stat& other) {
    const bool both_devices = S_ISCHR(one.st_mode) && S_ISCHR(other.st_mode);
    return (one.st_dev == other.st_dev && one.st_ino == other.st_ino) ||
           (both_devices && one.st_rdev != 0 && one.st_rdev == other.st_rdev);
}

// Whether a process has the file open; refused tells that it may not be looked into.
bool has_open(const fs::path& process, const struct stat& node, std::error_code& refused) {
    for (fs::directory_iterator file{process / "fd", refused}, end; !refused && file != end; file.increment(refused)) {
        struct stat status {};
        if (::stat(file->path().c_str(), &status) == 0 && is_same_file(node, status)) {
            return true;
        }
    }
    return false;
}

std::string link_name(const fs::path& link) {
    std::error_code ignored;
    return fs::read_symlink(link, ignored).filename().string();
}

class OpenNode {
  public:
    explicit OpenNode(const std::string& node) : fd_{::open(node.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK)} {}
    ~OpenNode() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    OpenNode(const OpenNode&) = delete;
    OpenNode& operator=(const OpenNode&) = delete;

    std::string driver_of(unsigned int interface) const {
        usbdevfs_getdriver driver{};
        driver.interface = interface;
        if (fd_ < 0 || ::ioctl(fd_, USBDEVFS_GETDRIVER, &driver) != 0) {
            return {};
        }
        driver.driver[sizeof driver.driver - 1] = '\0';
        return driver.driver;
    }

    void connect(unsigned int interface) const {
        usbdevfs_ioctl command{};
        command.ifno = static_cast<int>(interface);
        command.ioctl_code = USBDEVFS_CONNECT;
        if (fd_ >= 0) {
            ::ioctl(fd_, USBDEVFS_IOCTL, &command);
        }
    }

  private:
    int fd_;
};

} // namespace

Holders holders_of(const BusDevice& device, const fs::path& root) {
    Holders holders;
    struct stat node {};
    if (::stat(device.node.c_str(), &node) != 0) {
        return holders;
    }
    std::error_code error;
    for (fs::directory_iterator process{root / "proc", error}, end; !error && process != end;
         process.increment(error)) {
        const auto pid = pid_in(process->path().filename().string());
        if (!pid) {
            continue;
        }
        std::error_code refused;
        const bool holds = has_open(process->path(), node, refused);
        if (refused == std::errc::permission_denied) {
            holders.all_seen = false;
        }
        if (holds) {
            std::string name;
            std::getline(std::ifstream(process->path() / "comm"), name);
            holders.processes.push_back({*pid, only_ascii(name)}); // the system cuts names anywhere
        }
    }
    std::ranges::sort(holders.processes, {}, &Holder::pid);
    return holders;
}

bool is_open_here(const BusDevice& device) {
    struct stat node {};
    std::error_code ignored;
    return ::stat(device.node.c_str(), &node) == 0 && has_open("/proc/self", node, ignored);
}

std::vector<InterfaceDriver> drivers_of(const BusDevice& device, const fs::path& root) {
    const OpenNode node{device.node};
    std::vector<InterfaceDriver> drivers;
    for (const unsigned int interface : device.interfaces) {
        const std::string name =
            device.port + ":" + std::to_string(device.configuration) + "." + std::to_string(interface);
        std::string driver = link_name(root / "sys/bus/usb/devices" / name / "driver");
        if (driver.empty()) {
            driver = node.driver_of(interface);
        }
        drivers.push_back({interface, driver});
    }
    return drivers;
}

std::string device_driver_of(const BusDevice& device, const fs::path& root) {
    return link_name(root / "sys/bus/usb/devices" / device.port / "driver");
}

void give_back(const BusDevice& device, unsigned int interface) {
    const OpenNode node{device.node};
    if (node.driver_of(interface).empty()) {
        node.connect(interface);
    }
}

} // namespace vxpadctl
