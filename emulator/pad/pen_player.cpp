#include "pad/pen_player.hpp"

#include <chrono>
#include <memory>
#include <utility>

namespace emulator {

namespace {

using namespace std::chrono_literals;

// After a longer halt of the machine a pad does not make up for what it missed.
constexpr auto longest_delay = 1s;

constexpr std::uint8_t pen_report = 0x50;

void put(std::vector<std::uint8_t>& bytes, std::uint64_t value, unsigned int size) {
    for (unsigned int i = 0; i < size; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
    }
}

} // namespace

PenPlayer::Bytes PenPlayer::packet_at(const PenPoint& point) const {
    Bytes bytes;
    if (kind_ == PenPacket::input_report) {
        bytes = {pen_report, std::uint8_t(point.pressure > 0 ? 1 : 0)};
    } else {
        put(bytes, sent_, 2);
    }
    for (const auto value : {point.x, point.y, point.pressure}) {
        put(bytes, value, 2);
    }
    put(bytes, sent_, 4);
    const std::chrono::nanoseconds now = Clock::now().time_since_epoch();
    put(bytes, static_cast<std::uint64_t>(now.count()), 8);
    bytes.resize(kind_ == PenPacket::input_report ? pad_.input_report_size() : pad_.pen.size,
                 static_cast<std::uint8_t>(sent_));
    return bytes;
}

void PenPlayer::play(std::optional<std::uint64_t> count, unsigned int rate) {
    start({[count, rate](std::uint64_t index) -> std::optional<Clock::duration> {
               if (count && index >= *count) {
                   return std::nullopt;
               }
               // Counted from the start, so that no rounding adds up.
               return std::chrono::seconds(index / rate) + std::chrono::nanoseconds(1s) * (index % rate) / rate;
           },
           [this](std::uint64_t index) {
               const auto& signature = *pad_.pen.signature;
               return packet_at(signature[index % signature.size()]);
           }});
}

void PenPlayer::replay(Recording recording) {
    const auto packets = std::make_shared<const std::vector<RecordedPacket>>(std::move(recording.packets));
    start({[packets](std::uint64_t index) -> std::optional<Clock::duration> {
               if (index >= packets->size()) {
                   return std::nullopt;
               }
               return (*packets)[index].at;
           },
           [packets](std::uint64_t index) { return (*packets)[index].bytes; }});
}

void PenPlayer::start(Score score) {
    stop();
    score_ = std::move(score);
    index_ = 0;
    start_ = Clock::now();
    wait();
}

void PenPlayer::stop() {
    if (timer_) {
        loop_.cancel(*timer_);
    }
    timer_.reset();
    score_ = {};
}

void PenPlayer::wait() {
    const auto due = score_.due(index_);
    if (!due) {
        return stop();
    }
    timer_ = loop_.call_at(start_ + *due, [this] { send_due(); });
}

void PenPlayer::send_due() {
    const auto now = Clock::now();
    auto due = score_.due(index_);
    if (now - (start_ + *due) > longest_delay) {
        start_ = now - *due;
    }
    for (; due && start_ + *due <= now; due = score_.due(++index_)) {
        send_(score_.packet(index_));
        ++sent_;
    }
    wait();
}

std::string PenPlayer::state() const {
    const std::string pen = is_playing() ? "playing" : "resting";
    return "pen=" + pen + " pen-sent=" + std::to_string(sent_);
}

} // namespace emulator
