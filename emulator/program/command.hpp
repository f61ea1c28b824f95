// The program that runs with the pads: started with the preload libraries, watched, and ended with the emulator.
#pragma once

#include "base/event_loop.hpp"
#include "base/fd.hpp"
#include "host/surroundings.hpp"

#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace emulator {

class Command {
  public:
    // Takes over SIGCHLD and the signals that end a program. The loop stops when the command has ended or, as long as
    // none has been started, at such a signal.
    explicit Command(EventLoop& loop);
    ~Command();
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    void start(const std::vector<std::string>& arguments, const Surroundings& surroundings);

    // The exit status, or 128 + the signal that killed it; 0 without a command.
    int result() const { return result_; }

  private:
    void on_signal();
    void end(int signal);
    void collect();

    EventLoop& loop_;
    Fd signals_;
    pid_t pid_ = -1;
    bool ended_by_us_ = false;
    int result_ = 0;
};

} // namespace emulator
