/*
 * What happens when a pad is found removed.
 */
#ifndef VXPADCOM_INTERNALS_REMOVAL_H
#define VXPADCOM_INTERNALS_REMOVAL_H

#include "vxpadcom/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Asks the interface's receive thread to end and calls the device-removed callback for a core result of -20 only. */
VXPADCOM_API void catch_removing_device(int code, unsigned int device, unsigned int interface_number);

#ifdef __cplusplus
}
#endif

#endif
