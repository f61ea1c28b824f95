/*
 * Finding VCOM pads.
 */
#ifndef VXPADCOM_INTERNALS_VCOM_SEARCH_H
#define VXPADCOM_INTERNALS_VCOM_SEARCH_H

#include "vxpadcom/internals/registry.h"

#ifdef __cplusplus
extern "C" {
#endif

/* VCOM transport. Handles and devices are libusb's; failures are libusb's error codes. */
VXPADCOM_API int search_vcom_devices(vx_registry* registry); /* pads known after the last new one, 0, or -1 */

#ifdef __cplusplus
}
#endif

#endif
