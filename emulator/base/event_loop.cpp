#include "base/event_loop.hpp"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace emulator {

EventLoop::EventLoop()
    : epoll_{check(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")},
      timer_{check(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create")} {
    watch(timer_.get(), EPOLLIN, [this](std::uint32_t) {
        std::uint64_t expirations;
        if (::read(timer_.get(), &expirations, sizeof expirations) < 0) {
            return; // re-armed meanwhile
        }
        armed_for_ = Clock::time_point::max();
        run_due_timers();
    });
}

void EventLoop::watch(int fd, std::uint32_t events, Handler handler) {
    epoll_event event{};
    event.events = events;
    event.data.fd = fd;
    check(epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event), "epoll_ctl");
    handlers_[fd] = std::make_shared<Handler>(std::move(handler));
}

void EventLoop::change(int fd, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = fd;
    check(epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &event), "epoll_ctl");
}

void EventLoop::forget(int fd) {
    if (handlers_.erase(fd) > 0) {
        epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
    }
}

EventLoop::Timer EventLoop::call_at(Clock::time_point when, Task task) {
    const Timer timer{when, ++timers_made_};
    timers_.emplace(timer, std::move(task));
    arm();
    return timer;
}

void EventLoop::call_when(const std::function<bool()>& condition, const Task& task) {
    if (condition()) {
        return task();
    }
    call_after(std::chrono::milliseconds(2), [this, condition, task] { call_when(condition, task); });
}

void EventLoop::cancel(const Timer& timer) {
    timers_.erase(timer);
}

void EventLoop::run_posted() {
    while (!posted_.empty()) {
        auto tasks = std::exchange(posted_, {});
        for (auto& task : tasks) {
            task();
        }
    }
}

void EventLoop::run_due_timers() {
    const auto now = Clock::now();
    while (!timers_.empty() && timers_.begin()->first.first <= now) {
        auto node = timers_.extract(timers_.begin());
        node.mapped()();
    }
    arm();
}

void EventLoop::arm() {
    if (timers_.empty() || timers_.begin()->first.first >= armed_for_) {
        return;
    }
    armed_for_ = timers_.begin()->first.first;
    const auto since_epoch = armed_for_.time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since_epoch);
    itimerspec setting{};
    setting.it_value.tv_sec = seconds.count();
    setting.it_value.tv_nsec = std::chrono::nanoseconds(since_epoch - seconds).count();
    check(timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &setting, nullptr), "timerfd_settime");
}

void EventLoop::run() {
    running_ = true;
    run_posted();
    while (running_) {
        // One event at a time: a handler may close a descriptor and open another with the same number.
        epoll_event event{};
        const int count = epoll_wait(epoll_.get(), &event, 1, -1);
        if (count < 0 && errno != EINTR) {
            check(count, "epoll_wait");
        }
        if (count < 1) {
            continue;
        }
        if (const auto found = handlers_.find(event.data.fd); found != handlers_.end()) {
            const auto handler = found->second; // it may forget itself
            (*handler)(event.events);
        }
        run_posted();
    }
}

} // namespace emulator
