#include "session/exception_ring.hpp"

#include "support/lock.hpp"
#include "vxpadcom/internals/process_state.h"
#include "vxpadcom/vxpadcom.h"

#include <cstdio>

pthread_mutex_t exception_list_lock = PTHREAD_MUTEX_INITIALIZER;

static char library_name[] = "libvxpadcom";
char* lib_exception_type = library_name;

namespace exception_ring {
namespace {

struct Ring {
    Record records[slots];
    int index;
    bool initialized; // by the first record
};

Ring ring; // guarded by exception_list_lock

void copy(char (&target)[text_size], const char* text) {
    std::snprintf(target, text_size, "%s", text);
}

// The ring needs no set-up. What stays of one is what the log shows before each use of the ring.
void init_exceptions() {
    trace::Scope scope{VX_HERE};
    VX_LOCK(lock, &exception_list_lock);
}

} // namespace

int file(int code, const char* function, const char* message) {
    trace::Scope scope{VX_HERE_AS("exception")};
    init_exceptions();
    trace::Lock lock{&exception_list_lock, "&exception_list_lock", scope.where()};
    if (!ring.initialized) {
        ring.records[0].in_use = 1; // stays empty for ever
        ring.initialized = true;
    }
    ring.index = ring.index == slots - 1 ? 1 : ring.index + 1;
    Record& record = ring.records[ring.index];
    record = {};
    record.in_use = 1;
    record.code = code;
    copy(record.type, lib_exception_type);
    copy(record.name, function);
    copy(record.message, message);
    return scope.exit(ring.index);
}

std::optional<Record> find(const trace::Location& where, unsigned int handle) {
    init_exceptions();
    trace::Lock lock{&exception_list_lock, "&exception_list_lock", where};
    if (handle >= slots || ring.records[handle].in_use == 0) {
        return std::nullopt;
    }
    return ring.records[handle];
}

void clear(const trace::Location& where) {
    trace::Lock lock{&exception_list_lock, "&exception_list_lock", where};
    ring = {};
}

} // namespace exception_ring
