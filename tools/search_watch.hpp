// Tells people which pad a search waits for. The library says nothing while a silent pad takes its time.
#pragma once

#include "usb_bus.hpp"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace vxpadctl {

// What was plugged in as a search began. A type of its own so that a session can name it without knowing the bus.
struct PadsBefore {
    std::vector<BusDevice> on_bus;
};

// When to tell that a pad is waited for. A pad counts from when it was first seen in use to when another one is.
class WaitingTime {
  public:
    using Clock = std::chrono::steady_clock;

    // Whole seconds since the pad (its place) was first seen, where they are to be told now.
    std::optional<std::chrono::seconds> see(std::size_t pad, Clock::time_point now);

  private:
    std::optional<std::size_t> pad_;
    Clock::time_point since_;
    Clock::time_point next_;
};

// While this exists.
class SearchWatch {
  public:
    explicit SearchWatch(const PadsBefore& pads);
    ~SearchWatch();
    SearchWatch(const SearchWatch&) = delete;
    SearchWatch& operator=(const SearchWatch&) = delete;

  private:
    void watch();

    const PadsBefore& pads_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool ended_ = false;
    std::thread thread_;
};

} // namespace vxpadctl
