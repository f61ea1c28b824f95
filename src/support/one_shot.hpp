// A one-shot signal between threads.
#pragma once

#include "support/waiting.hpp"
#include "vxpadcom/internals/wrappthread.h"

// A flag with a condition variable: given once for all. Giving it again is harmless, and who comes late does not wait.
// The standard library's own throw where a lock or a wait fails.
class OneShot {
  public:
    OneShot() = default;
    ~OneShot() {
        pthread_cond_destroy(&condition_);
        pthread_mutex_destroy(&mutex_);
    }
    OneShot(const OneShot&) = delete;
    OneShot& operator=(const OneShot&) = delete;

    void give() {
        Pthread_mutex_lock(&mutex_);
        given_ = true;
        Pthread_cond_broadcast(&condition_);
        Pthread_mutex_unlock(&mutex_);
    }

    void wait() {
        Pthread_mutex_lock(&mutex_);
        waiting::wait_until(condition_, mutex_, [this] { return given_; });
        Pthread_mutex_unlock(&mutex_);
    }

    bool is_given() {
        Pthread_mutex_lock(&mutex_);
        const bool given = given_;
        Pthread_mutex_unlock(&mutex_);
        return given;
    }

  private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
    bool given_ = false;
};
