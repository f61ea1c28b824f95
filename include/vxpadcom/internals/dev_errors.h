/*
 * Texts of a pad's status bytes and of hidapi's errors.
 */
#ifndef VXPADCOM_INTERNALS_DEV_ERRORS_H
#define VXPADCOM_INTERNALS_DEV_ERRORS_H

#include "vxpadcom/export.h"

#ifdef __cplusplus
extern "C" {
#endif

struct hid_device_;
VXPADCOM_API const char* vx_dev_strerror(unsigned char status);     /* text of a pad's status byte */
VXPADCOM_API const char* hidapi_str_error(struct hid_device_* hid); /* "" for NULL */

#ifdef __cplusplus
}
#endif

#endif
