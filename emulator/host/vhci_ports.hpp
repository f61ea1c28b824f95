// The ports of the kernel's virtual USB host controllers (module vhci-hcd), as sysfs shows them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>

namespace emulator {

class VhciPorts {
  public:
    static constexpr const char* usual_directory = "/sys/devices/platform/vhci_hcd.0";

    explicit VhciPorts(std::filesystem::path directory) : directory_{std::move(directory)} {}
    virtual ~VhciPorts() = default;

    // The kernel gets one end of a stream; the device is there until the other end is closed. Returns its port. Throws
    // std::runtime_error.
    unsigned int attach(int socket, std::uint32_t device_id) const;

    // The name that the kernel has given the device at a port; empty if there is none.
    std::string device_at(unsigned int port) const;

    virtual bool exists(const std::string& device) const;

  protected:
    // A system call's result.
    virtual long hand_over(unsigned int port, int socket, std::uint32_t device_id) const;

  private:
    std::filesystem::path directory_;
};

} // namespace emulator
