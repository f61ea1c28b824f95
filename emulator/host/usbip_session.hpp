// One USB/IP connection without its socket: bytes of a client go in, bytes for it come out. It trusts no client.
#pragma once

#include "base/send_buffer.hpp"
#include "host/usbip_protocol.hpp"
#include "usb/bus.hpp"
#include "usb/open_transfers.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace emulator {

// The pads that sessions import, each by one session at a time.
struct UsbipExports {
    Bus& bus;
    std::set<const Port*> imported;
};

class UsbipSession {
  public:
    static constexpr std::size_t most_open = 1024;        // transfers that a client has under way
    static constexpr std::size_t enough_unsent = 1 << 18; // bytes; a client reads them before it is listened to again

    // `wake` is called when something has come to be sent, or the session has ended, later than in receive(). A session
    // that begins with a pad has imported it.
    UsbipSession(UsbipExports& exports, std::function<void()> wake, Port* port = nullptr);
    ~UsbipSession();
    UsbipSession(const UsbipSession&) = delete;
    UsbipSession& operator=(const UsbipSession&) = delete;

    const Port* port() const { return port_; } // the one that it has imported

    bool listens() const { return !ended_ && unsent_.size() < enough_unsent; }
    void receive(std::span<const std::uint8_t> bytes);
    void proceed();   // with what has been received, as far as it listens
    void unplugged(); // the pad's transfers have been completed already

    SendBuffer& unsent() { return unsent_; }

    // Once everything has been sent there is nothing more to do. A client that broke the rules hears nothing more.
    bool ended() const { return ended_; }
    const std::string& why_ended() const { return why_ended_; }

  private:
    bool take_operation();
    bool take_command();
    void list();
    void import(std::string_view bus_id);
    void submit(const usbip::Command& command, std::span<const std::uint8_t> data);
    void answer(const usbip::Command& command, Transfer& transfer, TransferStatus status);
    void unlink(const usbip::Command& command);
    void release();
    void end(const std::string& why);
    void refuse(const std::string& why);

    std::span<const std::uint8_t> pending() const { return std::span{received_}.subspan(taken_); }

    UsbipExports& exports_;
    std::function<void()> wake_;
    Port* port_ = nullptr;
    OpenTransfers transfers_;
    std::vector<std::uint8_t> received_;
    std::size_t taken_ = 0; // of them, at the front
    bool proceeding_ = false;
    SendBuffer unsent_;
    bool ended_ = false;
    std::string why_ended_;
};

} // namespace emulator
