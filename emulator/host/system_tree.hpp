// What the system shows of the plugged pads: the part of /sys that libusb reads, and udev's hot-plug events.
#pragma once

#include "base/event_loop.hpp"
#include "base/fd.hpp"
#include "usb/bus.hpp"

#include <chrono>
#include <deque>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace emulator {

class SystemTree {
  public:
    // The tree grows below `root`, where the preload libraries look for /sys and /dev.
    SystemTree(EventLoop& loop, Bus& bus, std::filesystem::path root);
    ~SystemTree();
    SystemTree(const SystemTree&) = delete;
    SystemTree& operator=(const SystemTree&) = delete;

    // Whether all who listen have taken the last event in. On a real bus a pad stays for longer than that takes; one
    // that goes at once would have been seen by nobody. Who does not read is waited for no longer than a second.
    bool is_heard();

  private:
    using Clock = std::chrono::steady_clock;

    // A udev monitor of some process, with the events that its full socket does not take yet.
    struct Monitor {
        Fd socket;
        std::deque<std::string> waiting;
    };

    void plugged(const Port& port);
    void unplugging(const Port& port);
    void send_event(const Port& port, const char* action);
    void find_monitors();
    void flush(const std::string& name);
    void drop(const std::string& name);

    EventLoop& loop_;
    std::filesystem::path root_;
    unsigned long events_ = 0;
    Clock::time_point last_event_;
    std::optional<Clock::time_point> read_since_; // by all
    std::map<std::string, Monitor> monitors_;     // by the name of the socket
};

} // namespace emulator
