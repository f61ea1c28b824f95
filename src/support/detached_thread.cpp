#include "support/detached_thread.hpp"

#include "support/trace.hpp"

namespace detached_thread {
namespace {

constexpr std::size_t stack_size = 1024 * 1024;

pthread_mutex_t inside_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t all_left = PTHREAD_COND_INITIALIZER;
int inside = 0; // guarded by inside_lock

// Pthread_create() keeps the result to itself.
int create_thread(const pthread_attr_t* attributes, void* (*routine)(void*), void* argument) {
    const trace::Location where = trace::here(__FILE_NAME__, __LINE__, "Pthread_create");
    pthread_t thread;
    const int result = pthread_create(&thread, attributes, routine, argument);
    if (result == 0) {
        VX_INFO_AT(where, "pthread_create return -> %d", result);
    } else {
        trace::system_error(where, result, "pthread_create()");
    }
    return result;
}

} // namespace

int create(void* (*routine)(void*), void* argument) {
    pthread_attr_t attributes;
    if (const int failed = pthread_attr_init(&attributes)) {
        return failed;
    }
    int result = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    result |= pthread_attr_setstacksize(&attributes, stack_size);
    if (result == 0) {
        entered();
        result = create_thread(&attributes, routine, argument);
        if (result != 0) {
            left();
        }
    }
    pthread_attr_destroy(&attributes);
    return result;
}

void entered() {
    Pthread_mutex_lock(&inside_lock);
    ++inside;
    Pthread_mutex_unlock(&inside_lock);
}

void left() {
    Pthread_mutex_lock(&inside_lock);
    if (--inside == 0) {
        Pthread_cond_broadcast(&all_left);
    }
    Pthread_mutex_unlock(&inside_lock);
}

void wait_for_all() {
    Pthread_mutex_lock(&inside_lock);
    while (inside != 0) {
        Pthread_cond_wait(&all_left, &inside_lock);
    }
    Pthread_mutex_unlock(&inside_lock);
}

} // namespace detached_thread
