/*
 * Start and stop of the registry, the search, and switching. TRUE is 1.
 */
#ifndef VXPADCOM_INTERNALS_DISCOVERY_H
#define VXPADCOM_INTERNALS_DISCOVERY_H

#include "vxpadcom/internals/registry.h"

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API int core_initialize(void);                      /* empty registry, libusb initialised; TRUE */
VXPADCOM_API void core_uninitialize(void);                   /* closes and frees everything */
VXPADCOM_API int core_looking_for_devices(void);             /* searches and opens the first pad: pads found, or -1 */
VXPADCOM_API int core_search_devices(vx_registry* registry); /* clears and fills the registry: pads found */
VXPADCOM_API int core_close_all_devs_clear_mem(vx_registry* registry); /* closes and clears all records; TRUE */
/* A pad that does not open again is marked as removed, and the result is TRUE all the same. */
VXPADCOM_API int core_reopen_devs(vx_registry* registry); /* reopens the current pad; TRUE or FALSE */
VXPADCOM_API int __core_reopen_devs(void);                /* the same on the library's registry */
/* Makes the pad with these settings current, or with NULL the next one: 0, 1 none such, -1, -20. */
VXPADCOM_API int core_set_device_to_current(const char* settings);

#ifdef __cplusplus
}
#endif

#endif
