// Pen data between the library's threads, which must not wait, and the one that hands it on.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <vector>

namespace bridge {

struct PenPacket {
    unsigned int pad;
    unsigned int interface;
    std::chrono::microseconds at; // on a clock that only goes forward
    std::vector<std::uint8_t> bytes;
};

class PenInbox {
  public:
    static constexpr std::size_t most_waiting = 100'000; // minutes; newer ones are lost

    // Told once for all packets that come until they are taken.
    explicit PenInbox(std::function<void()> tell) : tell_{std::move(tell)} {}

    void put(unsigned int pad, unsigned int interface, std::span<const std::uint8_t> bytes);
    std::vector<PenPacket> take();

  private:
    std::function<void()> tell_;
    std::mutex mutex_;
    std::vector<PenPacket> packets_;
};

} // namespace bridge
