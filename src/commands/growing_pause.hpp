// The pauses between attempts of a command.
#pragma once

#include "support/pausing.hpp"
#include "support/trace.hpp"

#include <algorithm>

// The first takes 1 ms, each later one twice as long and 1 ms more, up to a cap if there is one.
class GrowingPause {
  public:
    GrowingPause(const trace::Location& where, useconds_t cap_us) : where_{where}, cap_us_{cap_us} {}

    void take() {
        if (cap_us_ != 0) {
            pause_us_ = std::min(pause_us_, cap_us_);
        }
        VX_INFO_AT(where_, "failed, going to try again after usleep(%d)", pause_us_);
        pausing::take(pause_us_);
        pause_us_ = 2 * pause_us_ + 1000;
    }

  private:
    const trace::Location& where_;
    useconds_t cap_us_; // 0: none
    useconds_t pause_us_ = 1000;
};
