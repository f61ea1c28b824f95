// A VCOM pad with a clock, for what comes late, twice, never or left over.
#pragma once

#include "ssp_test.hpp"

#include <map>

namespace core_test {

inline constexpr std::int64_t ms = 1000;

// What it sends comes when it is due.
class TimedPad {
  public:
    std::int64_t latency = 0;          // of every answer
    int copies = 1;                    // of every answer
    bool answers_pending_once = false; // a request that comes while another waits for its answer is left out
    bool is_silent = false;            // answers nothing
    std::int64_t pen_period = 0;       // 0: no pen data
    std::uint32_t pen_records = 0;     // sent so far
    int requests = 0;                  // for reports
    int transfers = 0;
    std::map<Bytes, Bytes> answers = {}; // to base messages

    void attach() {
        bus().cost_us["libusb_bulk_transfer"] = 20;
        bus().hooks.bulk_out = [this](UsbDevice&, std::span<const unsigned char> data, int& transferred) {
            transferred = static_cast<int>(data.size());
            ++transfers;
            take(unframed(Bytes(data.begin(), data.end())));
            return std::optional(0);
        };
        bus().hooks.bulk_in = [this](UsbDevice&, std::span<unsigned char> data, int& transferred) {
            ++transfers;
            return std::optional(give(data, transferred));
        };
    }
    // What waits on the pad, or comes so much later.
    void leave_in_stream(const Bytes& stream, std::int64_t later = 0) { due_.emplace(bus().now_us() + later, stream); }
    void leave(const Bytes& message) { leave_in_stream(framed(message)); }
    std::size_t waiting() const { return due_.size(); }

  private:
    void take(const Bytes& message) {
        if (message == Bytes{0xC0, 0}) {
            ++requests;
            if (!(answers_pending_once && bus().now_us() < busy_until_)) {
                send(legacy(written_));
            }
        } else if ((message[0] & 0x80) != 0) {
            written_ = part(message, 1);
        } else if (const auto found = answers.find(message); found != answers.end()) {
            send(found->second);
        }
    }
    void send(const Bytes& message) {
        if (is_silent) {
            return;
        }
        busy_until_ = bus().now_us() + latency;
        for (int i = 0; i < copies; ++i) {
            due_.emplace(busy_until_, framed(message));
        }
    }
    int give(std::span<unsigned char> data, int& transferred) {
        const std::int64_t end = bus().now_us() + time_out();
        for (;;) {
            if (pen_period > 0) {
                next_pen_ = std::max(next_pen_, bus().now_us() - most_behind * pen_period);
                while (next_pen_ <= end) {
                    due_.emplace(next_pen_, framed(pen({static_cast<unsigned char>(pen_records),
                                                        static_cast<unsigned char>(pen_records >> 8)})));
                    ++pen_records;
                    next_pen_ += pen_period;
                }
            }
            if (due_.empty() || due_.begin()->first > end) {
                bus().advance_us(end - bus().now_us());
                return LIBUSB_ERROR_TIMEOUT;
            }
            const auto first = due_.begin();
            bus().advance_us(std::max<std::int64_t>(first->first - bus().now_us(), 0));
            transferred = static_cast<int>(std::min(first->second.size(), data.size()));
            std::copy_n(first->second.begin(), transferred, data.begin());
            due_.erase(first);
            return 0;
        }
    }
    // The log has it as the last of the call's arguments.
    static std::int64_t time_out() {
        const std::string line = bus().take_log().back();
        return std::stoll(line.substr(line.rfind(' ') + 1)) * ms;
    }

    static constexpr std::int64_t most_behind = 10;

    std::multimap<std::int64_t, Bytes> due_;
    std::int64_t next_pen_ = 0;
    std::int64_t busy_until_ = 0;
    Bytes written_ = Bytes(64);
};

} // namespace core_test
