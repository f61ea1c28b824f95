// The frame queue: an unbounded first-in-first-out list that owns its frames' buffers.
#include "vxpadcom/internals/uni_queue.h"
#include "support/lock.hpp"
#include "support/owners.hpp"
#include "support/uni_queues.hpp"
#include "vxpadcom/internals/wrapunix.h"

#include <cstdio>

namespace {

constexpr const char* uninitialized = "error: uninitialized queue!";

bool is_empty(const uni_queue* queue) {
    return queue == nullptr || queue->first == nullptr || queue->last == nullptr ||
           static_cast<std::int32_t>(queue->size) < 1;
}

void lock_line_of(const uni_queue* queue, trace::LockEvent event, const trace::Location& where) {
    char name[64];
    std::snprintf(name, sizeof name, "queue[%p]->mutex", static_cast<const void*>(queue));
    trace::lock_line(event, where, name);
}

// 1, or 0 where the lock could not be taken: the data stay the caller's.
int add(uni_queue* queue, void* data, unsigned int length, int (*lock)(uni_queue*)) {
    Owned<uni_frame> frame{static_cast<uni_frame*>(Calloc(1, sizeof(uni_frame)))};
    if (lock(queue) != 0) {
        return 0;
    }
    frame->length = length;
    frame->data = static_cast<unsigned char*>(data);
    if (is_empty(queue)) {
        queue->first = frame.get();
    } else {
        queue->last->next = frame.get();
    }
    queue->last = frame.release();
    ++queue->size;
    quiet_unlock_queue(queue);
    return 1;
}

} // namespace

uni_queue* init_uni_queue() {
    trace::Scope scope{VX_HERE};
    Owned<uni_queue> queue{static_cast<uni_queue*>(Calloc(1, sizeof(uni_queue)))};
    if (pthread_mutex_init(&queue->mutex, nullptr) != 0) {
        VX_ERROR("error: pthread_mutex_init()");
        return scope.exit(static_cast<uni_queue*>(nullptr));
    }
    return scope.exit(queue.release());
}

void destroy_uni_queue(uni_queue* queue) {
    trace::Scope scope{VX_HERE};
    if (queue == nullptr || __lock_uni_queue(queue) != 0) {
        return;
    }
    clear_uni_queue(queue);
    quiet_unlock_queue(queue);
    if (pthread_mutex_destroy(&queue->mutex) != 0) {
        // The text names init, not destroy: log filters of old know it so.
        VX_ERROR("error: pthread_mutex_init, %s:%d", __FILE_NAME__, __LINE__);
    }
    std::free(queue);
}

int add_uni_frame(uni_queue* queue, void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    return scope.exit(add(queue, data, length, __lock_uni_queue));
}

int uni_queues::add_quietly(uni_queue* queue, void* data, unsigned int length) {
    return add(queue, data, length, quiet_lock_queue);
}
void* get_uni_frame(uni_queue* queue, unsigned int* length) {
    trace::Scope scope{VX_HERE};
    if (queue == nullptr) {
        VX_ERROR("queue pointer is NULL");
        return scope.exit(static_cast<void*>(nullptr));
    }
    if (is_empty(queue)) {
        VX_ERROR("queue is empty");
        return scope.exit(static_cast<void*>(nullptr));
    }
    const Owned<uni_frame> frame{queue->first};
    *length = frame->length;
    queue->first = frame->next;
    if (--queue->size == 0) {
        queue->first = nullptr;
        queue->last = nullptr;
    }
    return scope.exit(static_cast<void*>(frame->data));
}

int get_uni_queue_size(uni_queue* queue) {
    trace::Scope scope{VX_HERE};
    if (queue == nullptr) {
        VX_ERROR("%s", uninitialized);
        return scope.exit(0);
    }
    return scope.exit(static_cast<int>(queue->size));
}

void clear_uni_queue(uni_queue* queue) {
    trace::Scope scope{VX_HERE};
    if (queue == nullptr) {
        VX_ERROR("%s", uninitialized);
        return;
    }
    while (!is_empty(queue)) {
        unsigned int length = 0;
        std::free(get_uni_frame(queue, &length));
    }
}

int __lock_uni_queue(uni_queue* queue) {
    trace::Scope scope{VX_HERE};
    if (queue == nullptr) {
        VX_ERROR("%s", uninitialized);
        return scope.exit(-1);
    }
    const bool wanted = trace::lock_lines_wanted();
    if (wanted) {
        lock_line_of(queue, trace::LockEvent::going_to_lock, VX_HERE);
    }
    const int result = pthread_mutex_lock(&queue->mutex);
    if (wanted) {
        lock_line_of(queue, trace::LockEvent::locked, VX_HERE);
    }
    return scope.exit(result);
}

int quiet_lock_queue(uni_queue* queue) {
    return queue == nullptr ? -1 : pthread_mutex_lock(&queue->mutex);
}

int quiet_unlock_queue(uni_queue* queue) {
    if (queue == nullptr) {
        VX_ERROR("%s", uninitialized);
        return -1;
    }
    const int result = pthread_mutex_unlock(&queue->mutex);
    if (result != 0) {
        VX_ERROR("pthread_mutex_lock() return error!");
    }
    return result;
}
