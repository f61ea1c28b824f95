/*
 * Checked thread calls: a failure is logged and otherwise ignored.
 */
#ifndef VXPADCOM_INTERNALS_WRAPPTHREAD_H
#define VXPADCOM_INTERNALS_WRAPPTHREAD_H

#include "vxpadcom/export.h"

#include <pthread.h>
#include <signal.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API void Pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                                 void* argument);
VXPADCOM_API void Pthread_join(pthread_t thread, void** result);
VXPADCOM_API void Pthread_detach(pthread_t thread);
VXPADCOM_API void Pthread_kill(pthread_t thread, int signal_number);
VXPADCOM_API void Pthread_mutexattr_init(pthread_mutexattr_t* attributes);
VXPADCOM_API void Pthread_mutexattr_setpshared(pthread_mutexattr_t* attributes, int shared);
VXPADCOM_API void Pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
VXPADCOM_API void Pthread_mutex_lock(pthread_mutex_t* mutex);
VXPADCOM_API void Pthread_mutex_unlock(pthread_mutex_t* mutex);
VXPADCOM_API void Pthread_cond_broadcast(pthread_cond_t* condition);
VXPADCOM_API void Pthread_cond_signal(pthread_cond_t* condition);
VXPADCOM_API void Pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
VXPADCOM_API void Pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                         const struct timespec* deadline);
VXPADCOM_API void Pthread_once(pthread_once_t* once, void (*routine)(void));
VXPADCOM_API void Pthread_key_create(pthread_key_t* key, void (*destructor)(void*));
VXPADCOM_API void Pthread_setspecific(pthread_key_t key, const void* value);

#ifdef __cplusplus
}
#endif

#endif
