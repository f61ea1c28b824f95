#include "pads/pad_thread.hpp"

#include <chrono>
#include <utility>

namespace bridge {

namespace {

constexpr std::chrono::milliseconds between_looks{300};

PadEvents with_settle(PadEvents events, std::function<void()> settle) {
    events.settle = std::move(settle);
    return events;
}

} // namespace

PadThread::PadThread(PadEvents events)
    : pads_{with_settle(std::move(events), [this] { wake(); })}, thread_{[this] { run(); }} {}

PadThread::~PadThread() {
    {
        const std::lock_guard lock{mutex_};
        has_ended_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void PadThread::ask(Job job) {
    {
        const std::lock_guard lock{mutex_};
        jobs_.push_back(std::move(job));
    }
    changed_.notify_one();
}

void PadThread::wake() {
    {
        const std::lock_guard lock{mutex_};
        is_awake_ = true;
    }
    changed_.notify_one();
}

void PadThread::run() {
    using Clock = std::chrono::steady_clock;
    auto next_look = Clock::now();
    std::unique_lock lock{mutex_};
    while (!has_ended_) {
        is_awake_ = false;
        Job job;
        if (!jobs_.empty()) {
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        lock.unlock();
        if (Clock::now() >= next_look) {
            pads_.look();
            next_look = Clock::now() + between_looks;
        }
        if (job) {
            job(pads_);
        }
        pads_.settle();
        lock.lock();
        changed_.wait_until(lock, next_look, [this] { return has_ended_ || is_awake_ || !jobs_.empty(); });
    }
}

} // namespace bridge
