// Wall-clock time-outs.
#pragma once

#include <cstdint>
#include <sys/time.h>

// Time since its creation. A clock that is set back while it runs does not prolong a time-out.
class Stopwatch {
  public:
    Stopwatch() : start_{now()}, last_{start_} {}

    int elapsed_ms() { return static_cast<int>(elapsed_us() / 1000); }

    std::int64_t elapsed_us() {
        const std::int64_t current = now();
        if (current < last_) {
            start_ -= last_ - current;
        }
        last_ = current;
        return current - start_;
    }

  private:
    static std::int64_t now() {
        timeval time{};
        gettimeofday(&time, nullptr);
        return std::int64_t{time.tv_sec} * 1'000'000 + time.tv_usec;
    }

    std::int64_t start_; // µs
    std::int64_t last_;
};
