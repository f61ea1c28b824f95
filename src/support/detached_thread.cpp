#include "support/detached_thread.hpp"

#include "support/log_delivery.hpp"
#include "support/thread_local.hpp"
#include "support/trace.hpp"
#include "support/waiting.hpp"
#include "vxpadcom/internals/wrappthread.h"

#include <atomic>

namespace detached_thread {
namespace {

constexpr std::size_t stack_size = 1024 * 1024;

std::atomic<int> inside{0};
std::atomic<bool> opened{false};
std::atomic<unsigned int> openings{0};

// Either who waits has seen that nobody is inside, or the last one to leave sees who waits, and wakes them.
std::atomic<int> waiting_for_all{0};

// Held by the last one to leave while it says so, and by who waits for that.
pthread_mutex_t leaving_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t all_left = PTHREAD_COND_INITIALIZER;

// What counts the calling thread.
struct Presence {
    bool is_own = false;
    unsigned int calls = 0;
    unsigned int round = 0; // one more after each give_up(), so that calls which began before end nothing
};
VX_THREAD_LOCAL constinit Presence presence;

void entered() {
    ++inside;
}

// The second look: either it sees close(), or who closed sees the thread and waits for it.
bool is_admitted() {
    if (!opened) {
        return false;
    }
    entered();
    if (!opened) {
        left();
        return false;
    }
    return true;
}

// Pthread_create() keeps the result to itself.
int create_thread(const pthread_attr_t* attributes, void* (*routine)(void*), void* argument) {
    const trace::Location& where = VX_HERE_AS("Pthread_create");
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

void began() {
    presence.is_own = true;
}

void left() {
    if (--inside == 0 && waiting_for_all != 0) {
        Pthread_mutex_lock(&leaving_lock);
        Pthread_cond_broadcast(&all_left);
        Pthread_mutex_unlock(&leaving_lock);
    }
}

void open() {
    ++openings;
    opened = true;
}
void close() {
    opened = false;
}
bool is_open() {
    return opened;
}

unsigned int times_opened() {
    return openings;
}

Counted::Counted() : round_{presence.round}, counts_{!presence.is_own && (presence.calls > 0 || is_admitted())} {
    if (counts_) {
        ++presence.calls;
    }
}

Counted::~Counted() {
    if (counts_ && round_ == presence.round && --presence.calls == 0) {
        left();
    }
}

bool is_counted() {
    return presence.is_own || presence.calls > 0;
}

void give_up() {
    if (presence.calls > 0 && !log_delivery::is_delivering()) {
        presence.calls = 0;
        ++presence.round;
        left();
    }
}

void wait_for_all() {
    Pthread_mutex_lock(&leaving_lock);
    ++waiting_for_all;
    waiting::wait_until(all_left, leaving_lock, [] { return inside == 0; });
    --waiting_for_all;
    Pthread_mutex_unlock(&leaving_lock);
}

} // namespace detached_thread
