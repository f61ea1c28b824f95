// Pauses that a signal does not cut short.
#pragma once

#include "support/clock.hpp"

#include <unistd.h>

namespace pausing {

constexpr int most_signals = 10'000;

// As usleep(); where that returns early, once more for what is left. Without the rest a loop that tries again would go
// round, and say so, as fast as it can.
inline void take(useconds_t microseconds) {
    if (usleep(microseconds) == 0) {
        return;
    }
    Stopwatch stopwatch;
    for (int signals = 0; signals < most_signals; ++signals) {
        const std::int64_t slept = stopwatch.elapsed_us();
        if (slept >= microseconds || usleep(microseconds - static_cast<useconds_t>(slept)) == 0) {
            return;
        }
    }
}

} // namespace pausing
