/*
 * Reports as legacy messages, 64 bytes at most.
 */
#ifndef VXPADCOM_INTERNALS_VCOM_REPORTS_H
#define VXPADCOM_INTERNALS_VCOM_REPORTS_H

#include "vxpadcom/internals/record.h"

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API int vcom_feature_read(vx_device* device, void* data, unsigned int length);        /* 0, negative */
VXPADCOM_API int vcom_feature_write(vx_device* device, const void* data, unsigned int length); /* 0, negative */
VXPADCOM_API int vcom_output_write(vx_device* device, const void* data, unsigned int length);  /* 0, -1 */
VXPADCOM_API int vcom_input_read(vx_device* device, void* data, unsigned int length);          /* bytes, 0, -4 */

#ifdef __cplusplus
}
#endif

#endif
