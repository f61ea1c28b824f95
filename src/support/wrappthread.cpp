// Checked thread calls: a failure is logged and otherwise ignored.
#include "vxpadcom/internals/wrappthread.h"
#include "support/trace.hpp"

#include <cerrno>
#include <csignal>

namespace {

// The text is "<function in lower case>()"; errno carries the code that the call returned.
[[gnu::noinline]] void tell(const trace::Location& where, int result, const char* call) {
    trace::system_error(where, result, "%s()", call);
    errno = result;
}

} // namespace

#define CHECKED(call, ...)                                                                                             \
    do {                                                                                                               \
        if (const int result_ = call(__VA_ARGS__); result_ != 0) [[unlikely]] {                                        \
            tell(VX_HERE, result_, #call);                                                                             \
        }                                                                                                              \
    } while (false)

void Pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*), void* argument) {
    const int result = pthread_create(thread, attributes, routine, argument);
    if (result == 0) {
        VX_INFO("pthread_create return -> %d", result);
    } else {
        tell(VX_HERE, result, "pthread_create");
    }
}

void Pthread_join(pthread_t thread, void** result) {
    CHECKED(pthread_join, thread, result);
}
void Pthread_detach(pthread_t thread) {
    CHECKED(pthread_detach, thread);
}
void Pthread_kill(pthread_t thread, int signal_number) {
    CHECKED(pthread_kill, thread, signal_number);
}

void Pthread_mutexattr_init(pthread_mutexattr_t* attributes) {
    CHECKED(pthread_mutexattr_init, attributes);
}
void Pthread_mutexattr_setpshared(pthread_mutexattr_t* attributes, int shared) {
    CHECKED(pthread_mutexattr_setpshared, attributes, shared);
}

void Pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    CHECKED(pthread_mutex_init, mutex, attributes);
}
void Pthread_mutex_lock(pthread_mutex_t* mutex) {
    CHECKED(pthread_mutex_lock, mutex);
}
void Pthread_mutex_unlock(pthread_mutex_t* mutex) {
    CHECKED(pthread_mutex_unlock, mutex);
}

void Pthread_cond_broadcast(pthread_cond_t* condition) {
    CHECKED(pthread_cond_broadcast, condition);
}
void Pthread_cond_signal(pthread_cond_t* condition) {
    CHECKED(pthread_cond_signal, condition);
}
void Pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    CHECKED(pthread_cond_wait, condition, mutex);
}
void Pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline) {
    CHECKED(pthread_cond_timedwait, condition, mutex, deadline);
}

void Pthread_once(pthread_once_t* once, void (*routine)()) {
    CHECKED(pthread_once, once, routine);
}
void Pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) {
    CHECKED(pthread_key_create, key, destructor);
}
void Pthread_setspecific(pthread_key_t key, const void* value) {
    CHECKED(pthread_setspecific, key, value);
}
