// The guard of the library's mutexes, with its trace lines. Messages for the logging callback wait while a thread holds
// one.
#pragma once

#include "support/trace.hpp"

#include <pthread.h>

namespace trace {

// Holds a mutex, from the beginning or from lock() on; a null mutex is left alone. The expression is the lock's name in
// trace lines.
class Lock {
  public:
    enum class Taken { now, if_free };
    Lock(pthread_mutex_t* mutex, const char* expression, const Location& where, Taken taken = Taken::now);
    Lock(pthread_mutex_t* mutex, const char* expression, const Location&& where, Taken taken = Taken::now) = delete;
    ~Lock() { unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    bool is_held() const { return held_; }
    void lock(); // where it is not held
    void unlock();

  private:
    pthread_mutex_t* mutex_;
    const char* expression_;
    const Location& where_;
    bool held_ = false;
};

#define VX_LOCK(name, mutex)                                                                                           \
    ::trace::Lock name {                                                                                               \
        (mutex), #mutex, VX_HERE                                                                                       \
    }

// Lock lines of a queue's mutex, which is named by the queue's address.
enum class LockEvent { going_to_lock, locked, unlocked };
void lock_line(LockEvent event, const Location& where, const char* expression);
bool lock_lines_wanted();

} // namespace trace
