// Plugs the pads of a bus into this machine's own kernel, without a network.
#pragma once

#include "base/event_loop.hpp"
#include "host/host.hpp"
#include "host/usbip_connection.hpp"
#include "host/vhci_ports.hpp"
#include "usb/bus.hpp"

#include <list>
#include <memory>
#include <string>

namespace emulator {

class VhciHost : public Host {
  public:
    VhciHost(EventLoop& loop, Bus& bus, std::unique_ptr<VhciPorts> ports);

    Surroundings surroundings() const override { return {}; }
    std::string where() const override { return "this machine's kernel"; }
    bool is_settled() override;

  private:
    struct Attached {
        Port* pad; // until it is pulled out
        unsigned int port;
        EventLoop::Clock::time_point since;
        std::unique_ptr<UsbipConnection> connection;
    };
    struct Leaving {
        std::string device; // the kernel's name for it
        EventLoop::Clock::time_point since;
    };

    void plugged(Port& pad);
    void unplugging(const Port& pad);
    void drop(const Attached& attached);

    EventLoop& loop_;
    Bus& bus_;
    UsbipExports exports_;
    std::unique_ptr<VhciPorts> ports_;
    std::list<Attached> attached_;
    std::list<Leaving> leaving_;
};

} // namespace emulator
