/*
 * Reports on an open handle of hidapi. Failing calls are repeated for up to 1000 ms with growing pauses.
 */
#ifndef VXPADCOM_INTERNALS_HID_H
#define VXPADCOM_INTERNALS_HID_H

#include "vxpadcom/export.h"

#ifdef __cplusplus
extern "C" {
#endif

struct hid_device_;
VXPADCOM_API struct hid_device_* hid_open_dev(const char* path);
VXPADCOM_API void hid_close_dev(struct hid_device_* hid);
VXPADCOM_API int hid_feature_read(struct hid_device_* hid, void* data, unsigned int length);        /* 0, -1 */
VXPADCOM_API int hid_feature_write(struct hid_device_* hid, const void* data, unsigned int length); /* 0, -1 */
VXPADCOM_API int hid_output_write(struct hid_device_* hid, const void* data, unsigned int length);  /* 0, -1 */
VXPADCOM_API int hid_input_read(struct hid_device_* hid, void* data, unsigned int length);          /* bytes, -1 */
/* Message bytes that the pad hands out in feature reports; time_out in ms. At most 62 bytes, or -1. */
VXPADCOM_API int hid_read_ssp_data(struct hid_device_* hid, void* data, unsigned int data_size, unsigned int time_out,
                                   unsigned char request);

#ifdef __cplusplus
}
#endif

#endif
