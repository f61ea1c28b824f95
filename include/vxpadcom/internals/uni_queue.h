/*
 * Frame queue: an unbounded first-in-first-out list of byte buffers with one mutex.
 * Readers lock, take, unlock; add and destroy lock by themselves.
 */
#ifndef VXPADCOM_INTERNALS_UNI_QUEUE_H
#define VXPADCOM_INTERNALS_UNI_QUEUE_H

#include "vxpadcom/export.h"

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct uni_frame {
    uint32_t length;        /* bytes at data */
    unsigned char* data;    /* owned by the queue, from malloc() */
    struct uni_frame* next; /* next newer frame */
} uni_frame;

typedef struct uni_queue {
    pthread_mutex_t mutex; /* first member: a pointer to the queue is also one to its mutex */
    int64_t size;          /* frames queued */
    uni_frame* first;      /* oldest frame, NULL when empty */
    uni_frame* last;       /* newest frame, NULL when empty */
} uni_queue;

/* Frame queue. Readers lock, take, unlock; add and destroy lock by themselves. */
VXPADCOM_API uni_queue* init_uni_queue(void);
VXPADCOM_API void destroy_uni_queue(uni_queue* queue);
VXPADCOM_API int add_uni_frame(uni_queue* queue, void* data,
                               unsigned int length);                      /* 1, or 0: data stays the caller's */
VXPADCOM_API void* get_uni_frame(uni_queue* queue, unsigned int* length); /* lock held; the caller frees the buffer */
VXPADCOM_API int get_uni_queue_size(uni_queue* queue);                    /* lock held for an exact answer */
VXPADCOM_API void clear_uni_queue(uni_queue* queue);                      /* lock held */
VXPADCOM_API int __lock_uni_queue(uni_queue* queue);
VXPADCOM_API int quiet_lock_queue(uni_queue* queue);
VXPADCOM_API int quiet_unlock_queue(uni_queue* queue);

#ifdef __cplusplus
}
#endif

#endif
