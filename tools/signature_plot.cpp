#include "signature_plot.hpp"

#include "text.hpp"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace vxpadctl {

namespace {

// Widths of lines, in parts of the picture's longer side.
constexpr double thinnest = 0.003;
constexpr double widest = 0.014;
constexpr int width_steps = 8; // so that neighbours with nearly the same pressure are one line
constexpr double margin = 0.03;

struct Extent {
    std::int64_t lowest = std::numeric_limits<std::int64_t>::max();
    std::int64_t highest = std::numeric_limits<std::int64_t>::min();

    void take(std::int64_t value) {
        lowest = std::min(lowest, value);
        highest = std::max(highest, value);
    }
    double size() const { return static_cast<double>(highest - lowest); }
};

// Fit for an XML file, which may not have control characters in any form.
std::string xml_text(std::string_view utf8) {
    std::string text;
    for (const char c : for_terminal(utf8)) {
        switch (c) {
        case '&':
            text += "&amp;";
            break;
        case '<':
            text += "&lt;";
            break;
        case '>':
            text += "&gt;";
            break;
        default:
            text += c;
        }
    }
    return text;
}

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

Signature signature_in(std::span<const RecordedPacket> packets, const Layout& layout) {
    const Field& x = *find_field(layout, "x");
    const Field& y = *find_field(layout, "y");
    const Field* pressure = find_field(layout, "pressure");
    Signature signature;
    bool is_drawing = false;
    for (const RecordedPacket& packet : packets) {
        const auto at_x = x.read(packet.bytes);
        const auto at_y = y.read(packet.bytes);
        const auto pressed = pressure == nullptr ? 1 : pressure->read(packet.bytes);
        if (!at_x || !at_y || !pressed) {
            ++signature.too_short;
            continue;
        }
        if (*pressed > 0) {
            if (!is_drawing) {
                signature.strokes.emplace_back();
            }
            signature.strokes.back().push_back({*at_x, *at_y, *pressed});
        }
        is_drawing = *pressed > 0;
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
    const std::string box = decimal(static_cast<double>(x.lowest) - edge, 2) + " " +
                            decimal(static_cast<double>(y.lowest) - edge, 2) + " " + decimal(x.size() + 2 * edge, 2) +
                            " " + decimal(y.size() + 2 * edge, 2);
    std::string svg = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                      "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"" +
                      box + "\" style=\"background:#fff\">\n<title>" + xml_text(title) +
                      "</title>\n<g fill=\"none\" stroke=\"#123\" stroke-linecap=\"round\" "
                      "stroke-linejoin=\"round\">\n";
    const Pen pen{side, pressure.highest};
    for (const Stroke& stroke : strokes) {
        svg += pen.draw(stroke);
    }
    return svg + "</g>\n</svg>\n";
}

} // namespace vxpadctl
