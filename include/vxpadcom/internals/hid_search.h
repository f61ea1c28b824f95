/*
 * Finding HID pads.
 */
#ifndef VXPADCOM_INTERNALS_HID_SEARCH_H
#define VXPADCOM_INTERNALS_HID_SEARCH_H

#include "vxpadcom/internals/registry.h"

#ifdef __cplusplus
extern "C" {
#endif

/* HID transport. Handles are hidapi's. Failing calls are repeated for up to 1000 ms with growing pauses. */
VXPADCOM_API int search_hid_devices(vx_registry* registry); /* pads known after the last new one, or -1 */

#ifdef __cplusplus
}
#endif

#endif
