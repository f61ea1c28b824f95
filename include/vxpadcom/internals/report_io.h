/*
 * Reports of one record, whatever its transport: 0 or the bytes read, -1, -20. The feature transfers expect device_lock
 * held, the other two take it.
 */
#ifndef VXPADCOM_INTERNALS_REPORT_IO_H
#define VXPADCOM_INTERNALS_REPORT_IO_H

#include "vxpadcom/internals/record.h"

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API int core_feature_read(vx_device* device, void* data, unsigned int length);        /* 0, -1, -20 */
VXPADCOM_API int core_feature_write(vx_device* device, const void* data, unsigned int length); /* 0, -1, -20 */
VXPADCOM_API int core_output_write(vx_device* device, const void* data, unsigned int length);  /* 0, -1, -20 */
VXPADCOM_API int core_input_read(vx_device* device, void* data, unsigned int length);          /* bytes, -1, -20 */
VXPADCOM_API int hid_get_max_packet_size_of_out_endpoint(vx_device* device);                   /* bytes, or -1 */
VXPADCOM_API int hid_get_max_packet_size_of_input_report(vx_device* device);                   /* bytes, or -1 */

#ifdef __cplusplus
}
#endif

#endif
