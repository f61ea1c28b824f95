// Linked into a test, lets the library's pauses pass at once: they only move the clock by which it measures its
// time-outs. libusb waits by another clock, so a pad that stays silent still takes its time.
#include <atomic>
#include <cstdint>
#include <ctime>
#include <sys/time.h>
#include <unistd.h>

namespace {
std::atomic<std::int64_t> skipped_us{0};
} // namespace

extern "C" int usleep(useconds_t pause) {
    skipped_us += pause;
    return 0;
}

extern "C" int gettimeofday(timeval* time, void*) noexcept {
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    const std::int64_t us = std::int64_t{real.tv_sec} * 1'000'000 + real.tv_nsec / 1000 + skipped_us;
    *time = {us / 1'000'000, us % 1'000'000};
    return 0;
}
