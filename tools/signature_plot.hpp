// A signature as a picture.
#pragma once

#include "layout.hpp"
#include "recording_file.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vxpadctl {

struct PlotPoint {
    std::int64_t x;
    std::int64_t y;
    std::int64_t pressure;
    bool operator==(const PlotPoint&) const = default;
};

using Stroke = std::vector<PlotPoint>;

// Nothing where the packet is too short. The layout has x and y; without pressure the pen is never up.
std::optional<PlotPoint> point_in(std::span<const std::uint8_t> packet, const Layout& layout);

struct Signature {
    std::vector<Stroke> strokes;
    std::size_t too_short = 0; // packets that the layout does not fit
};

// The layout has x and y. A packet without pressure lifts the pen; where the layout has none either, all is one stroke.
Signature signature_in(std::span<const RecordedPacket> packets, const Layout& layout);

// An SVG file; y grows downwards, and the lines are as wide as the pen was pressed. There is at least one stroke.
std::string draw_svg(std::span<const Stroke> strokes, std::string_view title);

} // namespace vxpadctl
