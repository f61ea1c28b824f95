// A USB/IP session on its socket. Whatever the client does, the event loop never waits for it.
#pragma once

#include "base/event_loop.hpp"
#include "base/fd.hpp"
#include "host/usbip_session.hpp"
#include "usb/bus.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace emulator {

class UsbipConnection {
  public:
    using Closed = std::function<void(UsbipConnection& connection, const std::string& why)>;

    // `closed` is called when the connection has come to its end; it may destroy the connection.
    UsbipConnection(EventLoop& loop, Fd socket, UsbipExports& exports, Closed closed, Port* port = nullptr);
    ~UsbipConnection();
    UsbipConnection(const UsbipConnection&) = delete;
    UsbipConnection& operator=(const UsbipConnection&) = delete;

    const Port* port() const { return session_.port(); }
    void unplugged() { session_.unplugged(); }

  private:
    void on_event(std::uint32_t events);
    bool receive();
    bool flush();
    void listen_for(std::uint32_t events);
    void watch_reader();

    EventLoop& loop_;
    Fd socket_;
    Closed closed_;
    std::uint32_t events_ = 0;
    std::optional<EventLoop::Timer> patience_; // while the client does not read what is to be sent
    bool lost_patience_ = false;
    UsbipSession session_; // the last one: its end may still wake the connection
};

} // namespace emulator
