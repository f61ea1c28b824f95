// The ports of the kernel's virtual USB host controllers (module vhci-hcd), as sysfs shows them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <utility>
#include <vector>

namespace emulator {

class VhciPorts {
  public:
    static constexpr const char* usual_directory = "/sys/devices/platform/vhci_hcd.0";

    explicit VhciPorts(std::filesystem::path directory) : directory_{std::move(directory)} {}

    // Free ones for pads, those of the least used controller first. Throws std::runtime_error without the module.
    std::vector<unsigned int> free() const;

    // The kernel gets one end of a stream; the device is there until the other end is closed. Throws
    // std::runtime_error.
    void attach(int socket, std::uint32_t device_id) const;

  private:
    std::filesystem::path directory_;
};

} // namespace emulator
