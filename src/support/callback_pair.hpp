// A callback of the application and the pointer that it is given.
#pragma once

#include <atomic>
#include <mutex>

// One whole: whoever takes the pair gets the pointer that was set together with the callback. The lock is held only
// while the two words are copied, never while a callback runs.
template <typename Callback> class CallbackPair {
  public:
    struct Pair {
        Callback callback = nullptr;
        void* user_specific = nullptr;
    };

    void set(Callback callback, void* user_specific) {
        const std::lock_guard lock{mutex_};
        pair_ = {callback, user_specific};
        is_set_ = callback != nullptr;
    }

    Pair get() const {
        const std::lock_guard lock{mutex_};
        return pair_;
    }

    // Without the lock, for those who ask often and mostly in vain.
    bool is_set() const { return is_set_; }

  private:
    mutable std::mutex mutex_;
    Pair pair_;
    std::atomic<bool> is_set_{false};
};
