#include "signature_plot.hpp"

#include "text.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace vxpadctl {

namespace {

// Widths of lines, in parts of the picture's longer side.
constexpr double thinnest = 0.003;
constexpr double widest = 0.014;
constexpr int width_steps = 8; // so that neighbours with nearly the same pressure are one line
constexpr double margin = 0.03;
constexpr double picture_side = 800; // its longer one, where a program asks for a size

struct Extent {
    std::int64_t lowest = std::numeric_limits<std::int64_t>::max();
    std::int64_t highest = std::numeric_limits<std::int64_t>::min();

    void take(std::int64_t value) {
        lowest = std::min(lowest, value);
        highest = std::max(highest, value);
    }
    double size() const { return static_cast<double>(highest - lowest); }
};

std::string place(char command, const PlotPoint& point) {
    return command + std::to_string(point.x) + " " + std::to_string(point.y);
}

class Pen {
  public:
    Pen(double side, std::int64_t highest_pressure)
        : side_{side}, highest_pressure_{static_cast<double>(highest_pressure)} {}

    // Pieces of one width each, which begin where the one before has ended.
    std::string draw(const Stroke& stroke) const {
        if (stroke.size() == 1) {
            return path(place('M', stroke[0]) + place('L', stroke[0]), step(stroke[0]));
        }
        std::string text;
        for (std::size_t i = 1; i < stroke.size();) {
            const int width = step(stroke[i]);
            std::string places = place('M', stroke[i - 1]);
            for (; i < stroke.size() && step(stroke[i]) == width; ++i) {
                places += place('L', stroke[i]);
            }
            text += path(places, width);
        }
        return text;
    }

  private:
    int step(const PlotPoint& point) const {
        return static_cast<int>(static_cast<double>(point.pressure) / highest_pressure_ * width_steps);
    }

    std::string path(const std::string& places, int step) const {
        const double part = thinnest + (widest - thinnest) * step / width_steps;
        return "<path d=\"" + places + "\" stroke-width=\"" + decimal(side_ * part, 2) + "\"/>\n";
    }

    double side_;
    double highest_pressure_;
};

} // namespace

std::optional<PlotPoint> point_in(std::span<const std::uint8_t> packet, const Layout& layout) {
    const Field* pressure = find_field(layout, "pressure");
    const auto x = find_field(layout, "x")->read(packet);
    const auto y = find_field(layout, "y")->read(packet);
    const auto pressed = pressure == nullptr ? 1 : pressure->read(packet);
    if (!x || !y || !pressed) {
        return std::nullopt;
    }
    return PlotPoint{*x, *y, *pressed};
}

Signature signature_in(std::span<const RecordedPacket> packets, const Layout& layout) {
    Signature signature;
    bool is_drawing = false;
    for (const RecordedPacket& packet : packets) {
        const auto point = point_in(packet.bytes, layout);
        if (!point) {
            ++signature.too_short;
            continue;
        }
        if (point->pressure > 0) {
            if (!is_drawing) {
                signature.strokes.emplace_back();
            }
            signature.strokes.back().push_back(*point);
        }
        is_drawing = point->pressure > 0;
    }
    return signature;
}

std::string draw_svg(std::span<const Stroke> strokes, std::string_view title) {
    Extent x;
    Extent y;
    Extent pressure;
    for (const Stroke& stroke : strokes) {
        for (const PlotPoint& point : stroke) {
            x.take(point.x);
            y.take(point.y);
            pressure.take(point.pressure);
        }
    }
    const double side = std::max({x.size(), y.size(), 1.0});
    const double edge = side * margin;
    const double width = x.size() + 2 * edge;
    const double height = y.size() + 2 * edge;
    const auto left_edge = [&](double edges) { return decimal(static_cast<double>(x.lowest) - edges * edge, 2); };
    const auto upper_edge = [&](double edges) { return decimal(static_cast<double>(y.lowest) - edges * edge, 2); };
    // Whole pixels; the background reaches beyond the picture, or the last ones would be filled in part.
    const auto pixels = [&](double length) {
        constexpr double rounding = 0.001;
        return decimal(std::ceil(length / std::max(width, height) * picture_side - rounding), 0);
    };
    std::string svg = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                      "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"" +
                      left_edge(1) + " " + upper_edge(1) + " " + decimal(width, 2) + " " + decimal(height, 2) +
                      "\" width=\"" + pixels(width) + "\" height=\"" + pixels(height) + "\">\n<title>" +
                      xml_text(title) + "</title>\n<rect x=\"" + left_edge(2) + "\" y=\"" + upper_edge(2) +
                      "\" width=\"" + decimal(width + 2 * edge, 2) + "\" height=\"" + decimal(height + 2 * edge, 2) +
                      "\" fill=\"#fff\"/>\n<g fill=\"none\" stroke=\"#123\" stroke-linecap=\"round\" "
                      "stroke-linejoin=\"round\">\n";
    const Pen pen{side, pressure.highest};
    for (const Stroke& stroke : strokes) {
        svg += pen.draw(stroke);
    }
    return svg + "</g>\n</svg>\n";
}

} // namespace vxpadctl
