#include "packet_meter.hpp"

#include "terminal_view.hpp"
#include "text.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace vxpadctl {

namespace {

constexpr std::size_t shown_packets = 4;
constexpr std::size_t meter_columns = 40;
constexpr std::chrono::seconds window{1};

std::string right(const std::string& text, std::size_t columns) {
    return std::string(columns - std::min(columns, text.size()), ' ') + text;
}

double in_seconds(PacketMeter::Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

} // namespace

std::string packet_text(std::span<const std::uint8_t> packet, const Field* pressure) {
    std::string text;
    if (pressure != nullptr) {
        const auto value = pressure->read(packet);
        text = "pressure " + right(value ? std::to_string(*value) : "?", 5) + "  ";
    }
    return text + hex_line(packet);
}

PacketMeter::PacketMeter(const Layout& layout, Clock::time_point start) : start_{start} {
    if (const Field* field = find_field(layout, "pressure")) {
        pressure_ = *field;
    }
}

void PacketMeter::take(const Packet& packet) {
    ++count_;
    recent_.push_back(packet.at);
    while (recent_.front() <= packet.at - window) {
        recent_.pop_front();
    }
    last_.push_front(packet.bytes);
    if (last_.size() > shown_packets) {
        last_.pop_back();
    }
}

double PacketMeter::rate(Clock::time_point now) const {
    const auto first = std::ranges::upper_bound(recent_, now - window);
    const double elapsed = in_seconds(std::min<Clock::duration>(now - start_, window));
    return elapsed > 0 ? static_cast<double>(recent_.end() - first) / elapsed : 0;
}

std::string PacketMeter::line(Clock::time_point now) const {
    std::string text = decimal(in_seconds(now - start_), 1) + " s  " + decimal(rate(now), 1) + " reports/s  " +
                       counted(count_, "packet");
    if (!last_.empty()) {
        text += "  " + packet_text(last_.front(), pressure_ ? &*pressure_ : nullptr);
    }
    return text;
}

std::string PacketMeter::meter_line(double rate) {
    double value = rate;
    if (pressure_) {
        const auto pressure = last_.empty() ? std::nullopt : pressure_->read(last_.front());
        value = pressure ? static_cast<double>(*pressure) : 0;
    }
    highest_ = std::max(highest_, value);
    return right(pressure_ ? "pressure" : "rate", 8) + " " + right(decimal(value, pressure_ ? 0 : 1), 8) + " " +
           bar(value / highest_, meter_columns);
}

std::vector<std::string> PacketMeter::lines(Clock::time_point now) {
    const double current = rate(now);
    std::vector<std::string> lines{right(decimal(in_seconds(now - start_), 1), 8) + " s  " +
                                       right(decimal(current, 1), 8) + " reports/s  " +
                                       right(std::to_string(count_), 8) + " packets",
                                   meter_line(current)};
    for (const Bytes& packet : last_) {
        lines.push_back(hex_line(packet));
    }
    lines.resize(2 + shown_packets);
    return lines;
}

} // namespace vxpadctl
