// What a pad sends by itself, packet by packet.
#pragma once

#include "hex.hpp"
#include "library.hpp"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace vxpadctl {

struct Packet {
    std::chrono::steady_clock::time_point at; // when the library handed it over
    Bytes bytes;
};

// Between the library's thread and the one that takes the packets.
class Inbox {
  public:
    void put(Packet packet);
    void tell_pad_gone();

    // All that came since the last time, at least one unless the patience ended or the pad has gone.
    std::vector<Packet> take(std::chrono::milliseconds patience);
    bool is_pad_gone() const;

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Packet> packets_;
    bool pad_gone_ = false;
};

// Receives from one interface. It takes the session over and ends it: only then is no callback under way any more.
class Reception {
  public:
    Reception(std::unique_ptr<Session> session, unsigned int pad, unsigned int interface);
    ~Reception() { end(); }
    Reception(const Reception&) = delete;
    Reception& operator=(const Reception&) = delete;

    std::vector<Packet> take(std::chrono::milliseconds patience) { return inbox_.take(patience); }
    bool is_pad_gone() const { return inbox_.is_pad_gone(); }

    // What the pad had sent until then can still be taken.
    void end();

  private:
    static void receive(void* reception, unsigned int pad, unsigned int interface, const void* data,
                        unsigned int length);
    static void see_pad_removed(void* reception, unsigned int pad);
    void wait_until_delivered() const;

    unsigned int pad_;
    unsigned int interface_;
    std::size_t packet_size_;
    Inbox inbox_;
    std::unique_ptr<Session> session_; // last: what callbacks use outlives it
};

} // namespace vxpadctl
