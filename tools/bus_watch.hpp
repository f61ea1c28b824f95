// USB devices that come and go.
//
// News of them come from libusb, in order and at once. Where no udev runs, as in most containers, libusb has none; so
// the bus is looked at from time to time as well. What two looks in a row agree on counts, news or not: one look may be
// ahead of news that are under way.
#pragma once

#include "library.hpp"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

struct libusb_context;
struct libusb_device;

namespace vxpadctl {

// Bus and address, which is another one with each plugging.
using BusPlace = std::pair<std::uint8_t, std::uint8_t>;

// What the kernel tells; texts in UTF-8, unfiltered. Nothing needs to be opened for that.
struct WatchedDevice {
    UsbId id;
    std::string path; // bus and ports, "1-2.4"
    std::string maker;
    std::string serial;
};

struct BusChange {
    enum class Kind { arrived, left } kind;
    WatchedDevice device;
};

using BusContents = std::map<BusPlace, WatchedDevice>;

// Which devices are there, as both sources tell. Each change comes out once.
class Presence {
  public:
    explicit Presence(BusContents present) : present_{std::move(present)} {}

    std::optional<BusChange> hear_arrived(BusPlace place, const WatchedDevice& device);
    std::optional<BusChange> hear_left(BusPlace place);
    std::vector<BusChange> look(const BusContents& seen);

  private:
    BusContents present_;
    std::set<BusPlace> doubtful_; // where the last look differed
};

class BusWatch {
  public:
    // From now on. Throws std::runtime_error.
    BusWatch();
    ~BusWatch();
    BusWatch(const BusWatch&) = delete;
    BusWatch& operator=(const BusWatch&) = delete;

    // What has changed, oldest first; waits for a moment where nothing has. Throws std::runtime_error.
    std::vector<BusChange> wait(std::chrono::milliseconds patience);

  private:
    struct News;

    std::unique_ptr<News> news_;
    Presence presence_;
    std::chrono::steady_clock::time_point next_look_;
};

} // namespace vxpadctl
