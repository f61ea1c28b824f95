// A callback of the application and the pointer that it is given.
#pragma once

#include <atomic>
#include <pthread.h>
#include <utility>

// One whole: whoever takes the pair gets the pointer that was set together with the callback. The lock is held only
// while the two words are copied, never while a callback runs. It is a plain one, since std::mutex throws where a lock
// fails and a traced one has something to say to the very callback that is being looked up.
template <typename Callback> class CallbackPair {
  public:
    struct Pair {
        Callback callback = nullptr;
        void* user_specific = nullptr;
    };

    void set(Callback callback, void* user_specific) {
        const Guard guard{mutex_};
        pair_ = {callback, user_specific};
        is_set_ = callback != nullptr;
    }

    Pair get() const {
        const Guard guard{mutex_};
        return pair_;
    }

    // Leaves null; what is set meanwhile is either taken or stays.
    Pair take() {
        const Guard guard{mutex_};
        is_set_ = false;
        return std::exchange(pair_, {});
    }

    // Without the lock, for those who ask often and mostly in vain.
    bool is_set() const { return is_set_; }

  private:
    class Guard {
      public:
        explicit Guard(pthread_mutex_t& mutex) : mutex_{mutex} { pthread_mutex_lock(&mutex_); }
        ~Guard() { pthread_mutex_unlock(&mutex_); }
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;

      private:
        pthread_mutex_t& mutex_;
    };

    mutable pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    Pair pair_;
    std::atomic<bool> is_set_{false};
};
