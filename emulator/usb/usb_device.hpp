// A pad as a USB device: endpoints, descriptors and requests. How transfers come here (usbfs calls or anything else)
// is not its business.
#pragma once

#include "base/event_loop.hpp"
#include "pad/faults.hpp"
#include "pad/pad_model.hpp"
#include "pad/pad_settings.hpp"
#include "pad/ssp_pad.hpp"
#include "pad/transfer_log.hpp"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <vector>

namespace emulator {

struct SetupPacket {
    std::uint8_t request_type = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;

    bool is_in() const { return (request_type & 0x80) != 0; }
};

SetupPacket setup_packet(std::span<const std::uint8_t, 8> bytes); // as they travel on the bus

enum class TransferStatus { done, stalled, overflow, cancelled, unplugged };

struct Transfer {
    std::uint8_t endpoint = 0;  // 0 is the control endpoint
    unsigned int interface = 0; // the one that the endpoint belongs to
    SetupPacket setup;          // control transfers only
    std::size_t room = 0;       // bytes that the host can take, or has sent
    std::vector<std::uint8_t> data;
    std::function<void(Transfer&, TransferStatus)> completed; // called exactly once

    bool is_in() const { return endpoint == 0 ? setup.is_in() : (endpoint & 0x80) != 0; }
};

class UsbDevice {
  public:
    using Bytes = std::vector<std::uint8_t>;

    // `pull_out` is called, never from inside a call of this class, when a fault takes the pad off the bus. A VCOM pad
    // has an `ssp`, for its bulk endpoints.
    UsbDevice(EventLoop& loop, PadModel& model, SspPad* ssp, FaultList& faults, TransferLog& log,
              std::function<void()> pull_out);
    ~UsbDevice();
    UsbDevice(const UsbDevice&) = delete;
    UsbDevice& operator=(const UsbDevice&) = delete;

    const PadSettings& settings() const { return model_.settings(); }
    unsigned int interfaces() const { return model_.settings().interfaces; }

    // The device descriptor, then the configuration.
    Bytes descriptors() const;

    bool is_set_up() const { return set_up_; } // a kernel has configured it

    // The interface that has this endpoint: rather a `preferred` one, for the interfaces of a pad with many share
    // addresses. Nothing: there is no such endpoint, and nothing may be submitted to it.
    std::optional<unsigned int> interface_of(std::uint8_t endpoint, const std::set<unsigned int>& preferred = {}) const;

    // Transfers of one lane (the control endpoint, an interface's input, a bulk endpoint) are served one after the
    // other.
    void submit(std::shared_ptr<Transfer> transfer);
    void cancel(const std::shared_ptr<Transfer>& transfer);
    void cancel_all(TransferStatus status);

  private:
    struct Lane {
        std::deque<std::shared_ptr<Transfer>> waiting; // the first one is being served
        bool busy = false;                             // the first one waits for a timer or for ever
        std::optional<EventLoop::Timer> timer;
    };

    Lane& lane_of(const Transfer& transfer);
    bool is_vcom() const { return settings().kind == PadKind::vcom; }
    void serve(Lane& lane);
    void finish(Lane& lane, TransferStatus status);
    void finish_after(Lane& lane, EventLoop::Clock::duration delay, TransferStatus status);
    bool begin(Lane& lane, const Verdict& verdict);
    void serve_control(Lane& lane);
    void serve_input(Lane& lane);
    void serve_bulk_in(Lane& lane);
    void serve_bulk_out(Lane& lane);

    std::optional<Bytes> answer(const SetupPacket& setup, std::span<const std::uint8_t> data);
    std::optional<Bytes> answer_standard(const SetupPacket& setup);
    std::optional<Bytes> answer_hid(const SetupPacket& setup, std::span<const std::uint8_t> data);
    std::optional<Bytes> descriptor(const SetupPacket& setup) const;

    EventLoop& loop_;
    PadModel& model_;
    SspPad* ssp_;
    FaultList& faults_;
    TransferLog& log_;
    std::function<void()> pull_out_;
    std::uint8_t configuration_ = 1;
    bool set_up_ = false;
    Lane control_;
    std::vector<Lane> inputs_; // by interface
    Lane bulk_in_;
    Lane bulk_out_;
};

} // namespace emulator
