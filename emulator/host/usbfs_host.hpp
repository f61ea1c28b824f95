// Plugs the pads of a bus into one program alone, without the kernel: preload libraries show it a tree of its own for
// /sys and a /dev/bus/usb behind which this process stands.
#pragma once

#include "base/event_loop.hpp"
#include "host/host.hpp"
#include "host/system_tree.hpp"
#include "host/usbfs_server.hpp"
#include "usb/bus.hpp"

#include <filesystem>
#include <string>

namespace emulator {

class UsbfsHost : public Host {
  public:
    static constexpr const char* socket_name = "usbfs"; // in the directory

    UsbfsHost(EventLoop& loop, Bus& bus, const std::filesystem::path& directory);

    Surroundings surroundings() const override;
    std::string where() const override { return "one program"; }
    bool is_settled() override { return tree_.is_heard(); }

  private:
    std::filesystem::path directory_;
    SystemTree tree_;
    UsbfsServer server_;
};

} // namespace emulator
