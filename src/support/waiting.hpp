// Waiting for another thread's signal.
#pragma once

#include "vxpadcom/internals/wrappthread.h"

#include <cerrno>
#include <pthread.h>
#include <unistd.h>

namespace waiting {

constexpr useconds_t look_again_us = 1000;

// Until done() holds, with the mutex held. A wait that fails returns at once and keeps the mutex, which whoever gives
// the signal needs: after it has told so once, there are pauses in its place.
template <typename Done> void wait_until(pthread_cond_t& condition, pthread_mutex_t& mutex, Done done) {
    for (bool can_wait = true; !done();) {
        if (can_wait) {
            errno = 0;
            Pthread_cond_wait(&condition, &mutex);
            can_wait = errno == 0;
        } else {
            pthread_mutex_unlock(&mutex);
            usleep(look_again_us);
            pthread_mutex_lock(&mutex);
        }
    }
}

} // namespace waiting
