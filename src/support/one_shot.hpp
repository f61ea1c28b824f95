// A one-shot signal between threads.
#pragma once

#include <condition_variable>
#include <mutex>

// A flag with a condition variable: given once for all. Giving it again is harmless, and who comes late does not wait.
class OneShot {
  public:
    void give() {
        const std::lock_guard lock{mutex_};
        given_ = true;
        condition_.notify_all();
    }

    void wait() {
        std::unique_lock lock{mutex_};
        condition_.wait(lock, [this] { return given_; });
    }

    bool is_given() {
        const std::lock_guard lock{mutex_};
        return given_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable condition_;
    bool given_ = false;
};
