/*
 * USB ids to search for.
 */
#ifndef VXPADCOM_INTERNALS_USB_ID_TABLES_H
#define VXPADCOM_INTERNALS_USB_ID_TABLES_H

#include "vxpadcom/export.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* USB ids to search for; a list ends with a pair whose vendor_id is 0. Ids of files (docs/ids.md) are searched for
 * before them and do not show here. */
typedef struct vx_usb_id {
    uint32_t vendor_id;
    uint32_t product_id;
} vx_usb_id;
VXPADCOM_API extern vx_usb_id hid_device_list[55];
VXPADCOM_API extern vx_usb_id vcom_device_list[10];

#ifdef __cplusplus
}
#endif

#endif
