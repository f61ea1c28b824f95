#include "interruption.hpp"

#include <algorithm>
#include <csignal>
#include <thread>

namespace vxpadctl {

namespace {

volatile std::sig_atomic_t interrupted = 0;

} // namespace

void note_interruptions() {
    for (const int signal : {SIGINT, SIGTERM}) {
        std::signal(signal, [](int) { interrupted = 1; });
    }
}

bool is_interrupted() {
    return interrupted != 0;
}

void stop_if_interrupted() {
    if (is_interrupted()) {
        throw Interrupted("interrupted");
    }
}

void pause_until(std::chrono::steady_clock::time_point time) {
    using Clock = std::chrono::steady_clock;
    for (;;) {
        stop_if_interrupted();
        const auto now = Clock::now();
        if (now >= time) {
            return;
        }
        std::this_thread::sleep_until(std::min(time, now + notice_time));
    }
}

} // namespace vxpadctl
