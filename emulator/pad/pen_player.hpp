// Sends packets at their times: a signature at an even rate, or a recording.
#pragma once

#include "base/event_loop.hpp"
#include "pad/pad_settings.hpp"
#include "pad/recording.hpp"
#include "pad/signature.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace emulator {

// The two kinds of pen data, which differ in their first two bytes and in size.
enum class PenPacket { input_report, ssp_record };

class PenPlayer {
  public:
    using Clock = EventLoop::Clock;
    using Bytes = std::vector<std::uint8_t>;
    using Send = std::function<void(std::span<const std::uint8_t> packet)>;

    PenPlayer(EventLoop& loop, const PadSettings& pad, PenPacket kind, Send send)
        : loop_{loop}, pad_{pad}, kind_{kind}, send_{std::move(send)} {}
    ~PenPlayer() { stop(); }
    PenPlayer(const PenPlayer&) = delete;
    PenPlayer& operator=(const PenPlayer&) = delete;

    // What is playing ends. The signature comes again and again until there were `count` packets, or for ever.
    void play(std::optional<std::uint64_t> count, unsigned int rate);
    void replay(Recording recording);
    void stop();

    bool is_playing() const { return timer_.has_value(); }
    std::uint32_t sent() const { return sent_; } // since the pad was plugged in; the next packet's number
    std::string state() const;

  private:
    // The packets of one performance, by their place in it.
    struct Score {
        std::function<std::optional<Clock::duration>(std::uint64_t index)> due; // since its start; nothing: it is over
        std::function<Bytes(std::uint64_t index)> packet;
    };

    void start(Score score);
    void wait();
    void send_due();
    Bytes packet_at(const PenPoint& point) const;

    EventLoop& loop_;
    const PadSettings& pad_;
    PenPacket kind_;
    Send send_;
    Score score_;
    Clock::time_point start_;
    std::uint64_t index_ = 0;
    std::optional<EventLoop::Timer> timer_; // while something is playing
    std::uint32_t sent_ = 0;
};

} // namespace emulator
