// What there is to tell of packets while they come.
#pragma once

#include "hex.hpp"
#include "layout.hpp"
#include "reception.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vxpadctl {

class PacketMeter {
  public:
    using Clock = std::chrono::steady_clock;

    // The meter shows the layout's pressure, or else the rate.
    PacketMeter(const Layout& layout, Clock::time_point start);

    void take(const Packet& packet);

    // Packets in a second, over the second that has just passed.
    double rate(Clock::time_point now) const;
    std::size_t count() const { return count_; }

    std::string line(Clock::time_point now) const;
    std::vector<std::string> lines(Clock::time_point now); // always as many

  private:
    std::string meter_line(double rate);

    std::optional<Field> pressure_;
    Clock::time_point start_;
    std::size_t count_ = 0;
    std::deque<Clock::time_point> recent_; // of the last second
    std::deque<Bytes> last_;
    double highest_ = 1; // that the meter has shown
};

// The packet's pressure and its bytes.
std::string packet_text(std::span<const std::uint8_t> packet, const Field* pressure);

} // namespace vxpadctl
