#include "support/lock.hpp"

#include "support/log_delivery.hpp"

namespace trace {

bool lock_lines_wanted() {
    return switched_on("LIBVXPADCOM_DEBUG_MUTEX");
}

void lock_line(LockEvent event, Location where, const char* expression) {
    static constexpr const char* texts[] = {
        ">>>>>>>>     going to pthread_mutex_lock() -> ",
        "########   was called pthread_mutex_lock() -> ",
        "<<<<<<<< was called pthread_mutex_unlock() -> ",
    };
    print_line("\033[33m", where, "%s(): %s%s", where.function, texts[static_cast<int>(event)], expression);
}

Lock::Lock(pthread_mutex_t* mutex, const char* expression, Location where)
    : mutex_{mutex}, expression_{expression}, where_{where} {
    if (mutex_ == nullptr) {
        return;
    }
    const bool wanted = lock_lines_wanted();
    if (wanted) {
        lock_line(LockEvent::going_to_lock, where_, expression_);
    }
    Pthread_mutex_lock(mutex_);
    log_delivery::lock_taken();
    if (wanted) {
        lock_line(LockEvent::locked, where_, expression_);
    }
}

void Lock::unlock() {
    if (mutex_ == nullptr) {
        return;
    }
    Pthread_mutex_unlock(mutex_);
    mutex_ = nullptr;
    if (lock_lines_wanted()) {
        lock_line(LockEvent::unlocked, where_, expression_);
    }
    log_delivery::lock_released();
}

} // namespace trace
