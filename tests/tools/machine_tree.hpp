// A folder that stands for / of a machine with a pad.
#pragma once

#include "scratch.hpp"
#include "usb_bus.hpp"

#include <array>
#include <filesystem>
#include <string>

namespace vxpadctl_test {

class MachineTree : public Scratch {
  protected:
    MachineTree() { pad_.node = put("dev/bus/usb/001/007", ""); }

    // Makes the folders on the way to it.
    std::string put(const std::string& name, const std::string& text) const {
        fs::create_directories((directory_ / name).parent_path());
        return write(name, text);
    }

    void link(const std::string& name, const fs::path& target) const {
        fs::create_directories((directory_ / name).parent_path());
        fs::create_symlink(target, directory_ / name);
    }

    vxpadctl::BusDevice pad_{.id = {0xf1a0, 0x1001},
                             .node = {},
                             .access = vxpadctl::Access::open,
                             .port = "1-4",
                             .maker = "Acme",
                             .product = "Pad",
                             .serial = "SN0042",
                             .interfaces = {0, 1},
                             .hid_interfaces = {0, 1}};
};

} // namespace vxpadctl_test
