#include "support/lock.hpp"

#include "support/log_delivery.hpp"
#include "support/switches.hpp"
#include "vxpadcom/internals/wrappthread.h"
#include "vxpadcom/internals/wrapunix.h"

namespace trace {

bool lock_lines_wanted() {
    return switches::is_on(switches::Switch::locks);
}

void lock_line(LockEvent event, const Location& where, const char* expression) {
    static constexpr const char* texts[] = {
        ">>>>>>>>     going to pthread_mutex_lock() -> ",
        "########   was called pthread_mutex_lock() -> ",
        "<<<<<<<< was called pthread_mutex_unlock() -> ",
    };
    print_line("\033[33m", where, "%s(): %s%s", where.function, texts[static_cast<int>(event)], expression);
}

Lock::Lock(pthread_mutex_t* mutex, const char* expression, const Location& where, Taken taken)
    : mutex_{mutex}, expression_{expression}, where_{where} {
    if (taken == Taken::now) {
        lock();
    } else if (mutex_ != nullptr && pthread_mutex_trylock(mutex_) == 0) {
        held_ = true;
        log_delivery::lock_taken(Malloc);
        if (lock_lines_wanted()) {
            lock_line(LockEvent::going_to_lock, where_, expression_);
            lock_line(LockEvent::locked, where_, expression_);
        }
    }
}

void Lock::lock() {
    if (mutex_ == nullptr || held_) {
        return;
    }
    const bool wanted = lock_lines_wanted();
    if (wanted) {
        lock_line(LockEvent::going_to_lock, where_, expression_);
    }
    Pthread_mutex_lock(mutex_);
    held_ = true;
    log_delivery::lock_taken(Malloc);
    if (wanted) {
        lock_line(LockEvent::locked, where_, expression_);
    }
}

void Lock::unlock() {
    if (!held_) {
        return;
    }
    Pthread_mutex_unlock(mutex_);
    held_ = false;
    if (lock_lines_wanted()) {
        lock_line(LockEvent::unlocked, where_, expression_);
    }
    log_delivery::lock_released();
}

} // namespace trace
