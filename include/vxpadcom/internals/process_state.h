/*
 * Process-wide locks and upload state, exported so that other modules of a process can take part.
 */
#ifndef VXPADCOM_INTERNALS_PROCESS_STATE_H
#define VXPADCOM_INTERNALS_PROCESS_STATE_H

#include "vxpadcom/export.h"

#include <pthread.h>

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API extern pthread_mutex_t gen_thread_mutex_lock;        /* serialises Initialize() and Deinitialize() */
VXPADCOM_API extern pthread_mutex_t dev_list_short_lock;          /* guards the list of pads and the selection */
VXPADCOM_API extern pthread_mutex_t exception_list_lock;          /* guards the exception records */
VXPADCOM_API extern pthread_mutex_t print_wchar_to_asci_lock;     /* guards print_wchar_to_asci() */
VXPADCOM_API extern pthread_mutex_t interface_routine_count_lock; /* guards interface_routine_count */
VXPADCOM_API extern int interface_routine_count;                  /* upload threads not yet finished */
VXPADCOM_API extern unsigned char interface_routine_terminate;    /* 1 tells all upload threads to stop */

#ifdef __cplusplus
}
#endif

#endif
