// Linked into a test, lets the library's pauses pass at once, or shortens them: they only move the clock by which it
// measures its time-outs. libusb waits by another clock, so a pad that stays silent still takes its time.
#include "pad_test.hpp"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <sys/time.h>
#include <unistd.h>

std::atomic<unsigned int> pads::longest_pause_us{0};

namespace {
// Of each thread, for a time-out is measured by one alone: threads that pause all the time would hurry it.
thread_local std::int64_t skipped_us = 0;
} // namespace

extern "C" int usleep(useconds_t pause) {
    const useconds_t passing = std::min(pause, pads::longest_pause_us.load());
    if (passing > 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(passing));
    }
    skipped_us += pause - passing;
    return 0;
}

extern "C" int gettimeofday(timeval* time, void*) noexcept {
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    const std::int64_t us = std::int64_t{real.tv_sec} * 1'000'000 + real.tv_nsec / 1000 + skipped_us;
    *time = {us / 1'000'000, us % 1'000'000};
    return 0;
}
