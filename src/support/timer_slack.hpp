// How late the kernel may end a thread's pauses.
//
// A thread that asks every half a millisecond whether something has come costs several per cent of a core in wake-ups
// alone. Once nothing has come for a while its pauses may end later, together with whatever else wakes the processor.
#pragma once

#include <algorithm>
#include <sys/prctl.h>

namespace timer_slack {

// What a thread has asked for in vain.
class Rest {
  public:
    static constexpr int begins_after = 200; // askings in a row

    void note(bool something_came) { in_vain_ = something_came ? 0 : std::min(in_vain_ + 1, begins_after); }
    bool has_begun() const { return in_vain_ == begins_after; }

  private:
    int in_vain_ = 0;
};

// As long as it lives, and if it is wanted, the calling thread's pauses may end 4 ms late: hidapi keeps 30 reports,
// which takes a pad of 1,500 reports a second 20 ms. Only for a pause: threads that are created inherit the slack.
class Wide {
  public:
    static constexpr unsigned long nanoseconds = 4'000'000;

    explicit Wide(bool wanted) : former_{wanted ? prctl(PR_GET_TIMERSLACK) : -1} {
        if (former_ > 0) {
            prctl(PR_SET_TIMERSLACK, std::max(nanoseconds, static_cast<unsigned long>(former_)));
        }
    }
    ~Wide() {
        if (former_ > 0) {
            prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(former_));
        }
    }
    Wide(const Wide&) = delete;
    Wide& operator=(const Wide&) = delete;

  private:
    int former_; // not positive: left alone
};

} // namespace timer_slack
