// Plugs the pads of a bus into this machine's own kernel, without a network.
#pragma once

#include "base/event_loop.hpp"
#include "host/host.hpp"
#include "host/usbip_connection.hpp"
#include "usb/bus.hpp"

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>

namespace emulator {

class VhciHost : public Host {
  public:
    // Hands the kernel its end of a connection to a device; throws std::runtime_error.
    using Attach = std::function<void(int socket, std::uint32_t device_id)>;

    VhciHost(EventLoop& loop, Bus& bus, Attach attach);

    Surroundings surroundings() const override { return {}; }
    std::string where() const override { return "this machine's kernel"; }

  private:
    struct Attached {
        Port* port; // until it is pulled out
        std::unique_ptr<UsbipConnection> connection;
    };

    void plugged(Port& port);
    void unplugging(const Port& port);
    void drop(const Attached& attached);

    EventLoop& loop_;
    Bus& bus_;
    UsbipExports exports_;
    Attach attach_;
    std::list<Attached> attached_;
};

} // namespace emulator
