// Packets for programs: the fields that a layout finds in them, or else their bytes.
#pragma once

#include "arguments.hpp"
#include "hex.hpp"
#include "layout.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace vxpadctl {

// The layout that the arguments give or name a file for; empty without either. Throws std::runtime_error.
Layout chosen_layout(const Arguments& arguments);

// The same for what has members or columns of these names beside the time. Throws UsageError, too.
Layout chosen_columns(const Arguments& arguments);

// Seconds, with as many digits as there are microseconds.
std::string time_text(std::chrono::microseconds at);

// A JSON object, as docs/recordings.md tells.
std::string packet_json(std::chrono::microseconds at, std::span<const std::uint8_t> packet, const Layout& layout);

// Packets that come now, a line of JSON each.
class PacketLines {
  public:
    explicit PacketLines(Layout layout) : layout_{std::move(layout)} {}

    std::string line(std::chrono::steady_clock::time_point at, std::span<const std::uint8_t> packet);

  private:
    Layout layout_;
    std::optional<std::chrono::steady_clock::time_point> first_;
};

} // namespace vxpadctl
