// Plugs the pads of a bus into any kernel that asks for them with USB/IP over TCP.
#pragma once

#include "base/event_loop.hpp"
#include "base/fd.hpp"
#include "base/sockets.hpp"
#include "host/host.hpp"
#include "host/usbip_connection.hpp"
#include "usb/bus.hpp"

#include <cstddef>
#include <list>
#include <string>

namespace emulator {

// Where a program that the emulator has started finds this server: "ADDRESS:PORT".
inline constexpr const char* usbip_variable = "VXPAD_EMULATOR_USBIP";

class UsbipServer : public Host {
  public:
    static constexpr std::size_t most_waiting = 64; // connections without a pad; a newer one ends the oldest

    UsbipServer(EventLoop& loop, Bus& bus, const TcpAddress& address);
    ~UsbipServer() override;

    Surroundings surroundings() const override;
    std::string where() const override { return address_; }

  private:
    void accept_client();
    void drop(UsbipConnection& connection);

    EventLoop& loop_;
    UsbipExports exports_;
    Fd listener_;
    std::string address_;
    std::list<UsbipConnection> connections_; // the oldest first
};

} // namespace emulator
