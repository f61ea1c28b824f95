#include "packet_export.hpp"

#include "packet_lines.hpp"
#include "signature_plot.hpp"
#include "text.hpp"

#include "../emulator/base/text.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace vxpadctl {

namespace {

// The channels of a trace, in the order of its numbers.
struct Channel {
    const char* field; // none has the time
    const char* name;
    const char* type;
    const char* unit;
    const char* respect_to = ""; // what its numbers count from
};

// The times of all traces count from the same moment.
constexpr std::array<Channel, 4> channels{{
    {"x", "X", "integer", "dev"},
    {"y", "Y", "integer", "dev"},
    {"pressure", "F", "integer", "dev"},
    {nullptr, "T", "decimal", "s", "#start"},
}};

std::string csv_head(const Layout& layout) {
    std::string line = "time";
    for (const Field& field : layout) {
        line += "," + field.name;
    }
    return line + (layout.empty() ? ",bytes\n" : "\n");
}

std::string csv_row(const RecordedPacket& packet, const Layout& layout) {
    std::string line = time_text(packet.at);
    for (const Field& field : layout) {
        const auto value = field.read(packet.bytes);
        line += "," + (value ? std::to_string(*value) : "");
    }
    return line + (layout.empty() ? "," + emulator::hex(packet.bytes) : "") + "\n";
}

std::string json_head(const RecordedPad& pad) {
    const auto text = [](const std::string& value) {
        return value.empty() ? "null" : json_string(without_escapes(value));
    };
    return "{\"maker\": " + text(pad.maker) + ", \"product\": " + text(pad.product) +
           ", \"serial\": " + text(pad.serial) +
           ", \"interface\": " + (pad.interface ? std::to_string(*pad.interface) : "null") + ",\n\"packets\": [";
}

std::string inkml_head(const RecordedPad& pad, const Layout& layout) {
    const auto attribute = [](const char* name, const std::string& value) {
        return value.empty() ? "" : std::string(" ") + name + "=\"" + xml_text(without_escapes(value)) + "\"";
    };
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                       "<ink xmlns=\"http://www.w3.org/2003/InkML\">\n<definitions>\n"
                       "<context xml:id=\"pen\" traceFormatRef=\"#packet\">\n"
                       "<inkSource xml:id=\"pad\"" +
                       attribute("manufacturer", pad.maker) + attribute("model", pad.product) +
                       attribute("serialNo", pad.serial) + ">\n<traceFormat xml:id=\"packet\">\n";
    for (const Channel& channel : channels) {
        if (channel.field == nullptr || find_field(layout, channel.field) != nullptr) {
            text += "<channel" + attribute("name", channel.name) + attribute("type", channel.type) +
                    attribute("units", channel.unit) + attribute("respectTo", channel.respect_to) + "/>\n";
        }
    }
    return text + "</traceFormat>\n</inkSource>\n<timestamp xml:id=\"start\"/>\n</context>\n</definitions>\n";
}

std::string trace_point(const PlotPoint& point, const RecordedPacket& packet, const Layout& layout) {
    return std::to_string(point.x) + " " + std::to_string(point.y) + " " +
           (find_field(layout, "pressure") != nullptr ? std::to_string(point.pressure) + " " : "") +
           time_text(packet.at);
}

Layout only_channels(const Layout& layout) {
    Layout kept;
    for (const Channel& channel : channels) {
        const Field* field = channel.field != nullptr ? find_field(layout, channel.field) : nullptr;
        if (field != nullptr) {
            kept.push_back(*field);
        }
    }
    return kept;
}

} // namespace

Exporter::Exporter(ExportFormat format, Layout layout)
    : format_{format}, layout_{format == inkml_format ? only_channels(layout) : std::move(layout)} {}

std::string Exporter::take(const RecordedPad& pad, const RecordedPacket& packet) {
    const bool is_first = ++taken_ == 1;
    longest_packet_ = std::max(longest_packet_, packet.bytes.size());
    const auto fits = [&](const Field& field) { return field.read(packet.bytes).has_value(); };
    too_short_ += std::ranges::all_of(layout_, fits) ? 0 : 1;
    switch (format_) {
    case csv_format:
        return (is_first ? csv_head(layout_) : "") + csv_row(packet, layout_);
    case json_format:
        return (is_first ? json_head(pad) + "\n" : ",\n") + packet_json(packet.at, packet.bytes, layout_);
    case inkml_format:
        return (is_first ? inkml_head(pad, layout_) : "") + stroke_part(packet);
    }
    return {};
}

std::string Exporter::stroke_part(const RecordedPacket& packet) {
    const auto point = point_in(packet.bytes, layout_);
    if (!point) {
        return {};
    }
    const bool was_drawing = is_drawing_;
    is_drawing_ = point->pressure > 0;
    if (!is_drawing_) {
        return was_drawing ? "</trace>\n" : "";
    }
    return (was_drawing ? ",\n" : "<trace contextRef=\"#pen\">\n") + trace_point(*point, packet, layout_);
}

std::string Exporter::end() {
    if (taken_ == 0 || format_ == csv_format) {
        return {};
    }
    if (format_ == json_format) {
        return "\n]}\n";
    }
    return std::exchange(is_drawing_, false) ? "</trace>\n</ink>\n" : "</ink>\n";
}

void Exporter::expect_all_fields() const {
    for (const Field& field : layout_) {
        expect_within(field, longest_packet_);
    }
}

} // namespace vxpadctl
