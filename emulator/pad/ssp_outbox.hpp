// The pad's end of the byte stream: messages become bytes that wait until the host fetches them, and go wrong on the
// way where a fault says so.
#pragma once

#include "base/event_loop.hpp"
#include "pad/faults.hpp"
#include "pad/transfer_log.hpp"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <utility>
#include <vector>

namespace emulator {

class SspOutbox {
  public:
    using Bytes = std::vector<std::uint8_t>;

    SspOutbox(EventLoop& loop, FaultList& faults, TransferLog& log) : loop_{loop}, faults_{faults}, log_{log} {}

    void send(Bytes message, TransferKind kind);
    void send_raw(Bytes stream); // as it is, met by no fault

    bool empty() const { return !junk_ && pieces_.empty(); }

    // What the pad writes in one go is a piece of its own, which ends with a packet that is not full, be it empty.
    Bytes take_packet(std::size_t packet_size);

    // The next bytes of one piece; never empty unless nothing is waiting.
    Bytes take_bytes(std::size_t most);

    // Called when there is something to take.
    void on_bytes(std::function<void()> callback) { callback_ = std::move(callback); }

    std::size_t lost() const { return lost_; } // messages that nobody fetched in time

  private:
    struct Piece {
        Bytes bytes;
        std::size_t taken = 0;
    };

    void queue(Bytes stream, std::size_t piece_size);
    Bytes junk(std::size_t size);

    EventLoop& loop_;
    FaultList& faults_;
    TransferLog& log_;
    std::deque<Piece> pieces_;
    Bytes held_; // goes with the next bytes
    std::optional<std::minstd_rand> junk_;
    std::size_t lost_ = 0;
    std::function<void()> callback_;
    std::shared_ptr<SspOutbox*> self_ = std::make_shared<SspOutbox*>(this); // for what comes late
};

} // namespace emulator
