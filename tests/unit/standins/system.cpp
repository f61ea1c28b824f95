// Time in place of the system's: pauses that move a clock of the test's own.
#include "calls.hpp"

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>

using standins::bus;
using standins::Calls;

extern "C" {

int usleep(useconds_t microseconds) {
    auto guard = Calls::begin("usleep", std::to_string(microseconds));
    if (bus().signals) {
        Calls::note_pause(std::min(microseconds, 1000U));
        return -1;
    }
    Calls::note_pause(microseconds);
    const auto hook = bus().hooks.usleep;
    guard.unlock();
    if (hook) {
        hook(microseconds);
    }
    return 0;
}

int gettimeofday(struct timeval* __restrict time, void* __restrict) noexcept {
    const auto guard = bus().lock();
    if (bus().gettimeofday_result < 0) {
        return bus().gettimeofday_result;
    }
    const std::int64_t now = bus().now_us();
    time->tv_sec = now / 1'000'000;
    time->tv_usec = now % 1'000'000;
    return 0;
}

} // extern "C"
