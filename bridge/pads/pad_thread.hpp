// The one thread that asks the pads, since that may take long.
#pragma once

#include "pads/pads.hpp"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace bridge {

class PadThread {
  public:
    using Job = std::function<void(Pads& pads)>;

    // Of the events, settle is the thread's own.
    explicit PadThread(PadEvents events);
    ~PadThread(); // waits for the job that runs, leaves out the others, and leaves the pads in order
    PadThread(const PadThread&) = delete;
    PadThread& operator=(const PadThread&) = delete;

    // One after the other. A job does not throw.
    void ask(Job job);

    PenInbox& inbox() { return pads_.inbox(); }

  private:
    void wake();
    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Job> jobs_;
    bool is_awake_ = true;
    bool has_ended_ = false;
    Pads pads_;
    std::thread thread_; // the last: it uses the others
};

} // namespace bridge
