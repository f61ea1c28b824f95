// Ctrl-C and the like: noted, so that a command can leave the pads in order.
#pragma once

#include <chrono>
#include <stdexcept>

namespace vxpadctl {

struct Interrupted : std::runtime_error {
    using runtime_error::runtime_error;
};

// How long an interruption may go unnoticed by whoever waits.
constexpr std::chrono::milliseconds notice_time{100};

// From here on SIGINT and SIGTERM do nothing but show up below.
void note_interruptions();
bool is_interrupted();

// Throw Interrupted.
void stop_if_interrupted();
void pause_until(std::chrono::steady_clock::time_point time);

} // namespace vxpadctl
