// One thread that waits for descriptors and timers, so that nothing in the emulator needs a lock.
#pragma once

#include "base/fd.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace emulator {

class EventLoop {
  public:
    using Clock = std::chrono::steady_clock;
    using Task = std::function<void()>;
    using Handler = std::function<void(std::uint32_t events)>;
    using Timer = std::pair<Clock::time_point, std::uint64_t>;

    EventLoop();

    void watch(int fd, std::uint32_t events, Handler handler);
    void change(int fd, std::uint32_t events);
    void forget(int fd); // before the descriptor is closed; fine inside its own handler

    Timer call_at(Clock::time_point when, Task task);
    Timer call_after(Clock::duration delay, Task task) { return call_at(Clock::now() + delay, std::move(task)); }
    void cancel(const Timer& timer); // harmless when it has run already

    // Looks again and again, but not all the time.
    void call_when(const std::function<bool()>& condition, const Task& task);

    // Runs the task once the current handler has returned.
    void post(Task task) { posted_.push_back(std::move(task)); }

    void run(); // until stop()
    void stop() { running_ = false; }

  private:
    void run_posted();
    void run_due_timers();
    void arm();

    Fd epoll_;
    Fd timer_;
    bool running_ = false;
    std::uint64_t timers_made_ = 0;
    std::map<Timer, Task> timers_;
    Clock::time_point armed_for_ = Clock::time_point::max();
    std::vector<Task> posted_;
    std::unordered_map<int, std::shared_ptr<Handler>> handlers_;
};

} // namespace emulator
