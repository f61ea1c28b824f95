// Wall-clock time-outs.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <sys/time.h>

// Time since its creation. A clock that is set back while it runs does not prolong a time-out, and one that cannot be
// read ends it.
class Stopwatch {
  public:
    Stopwatch() : start_{now()}, last_{start_} {}

    int elapsed_ms() { return static_cast<int>(std::min<std::int64_t>(elapsed_us() / 1000, most_ms)); }

    std::int64_t elapsed_us() {
        const std::int64_t current = now();
        if (current == unknown || start_ == unknown) {
            return std::numeric_limits<std::int64_t>::max(); // else a time-out would never come
        }
        if (current < last_) {
            start_ -= last_ - current;
        }
        last_ = current;
        return current - start_;
    }

  private:
    static constexpr std::int64_t unknown = -1;
    static constexpr int most_ms = std::numeric_limits<int>::max() / 2; // twelve days, and room to add to

    static std::int64_t now() {
        timeval time{};
        if (gettimeofday(&time, nullptr) != 0) {
            return unknown;
        }
        return std::int64_t{time.tv_sec} * 1'000'000 + time.tv_usec;
    }

    std::int64_t start_; // µs
    std::int64_t last_;
};
