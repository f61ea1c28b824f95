#include "pads/pen_inbox.hpp"

#include <utility>

namespace bridge {

void PenInbox::put(unsigned int pad, unsigned int interface, std::span<const std::uint8_t> bytes) {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    {
        const std::lock_guard lock{mutex_};
        if (packets_.size() == most_waiting) {
            return;
        }
        packets_.push_back(
            {pad, interface, std::chrono::duration_cast<std::chrono::microseconds>(now), {bytes.begin(), bytes.end()}});
        if (packets_.size() > 1) {
            return;
        }
    }
    tell_();
}

std::vector<PenPacket> PenInbox::take() {
    const std::lock_guard lock{mutex_};
    return std::exchange(packets_, {});
}

} // namespace bridge
