/*
 * Requests to the current pad. Texts go to buffers of at least 256 bytes; results are lengths, numbers, -1 or -20.
 */
#ifndef VXPADCOM_INTERNALS_CONTROL_REQUESTS_H
#define VXPADCOM_INTERNALS_CONTROL_REQUESTS_H

#include "vxpadcom/export.h"

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API int core_get_pad_settings(char* dst); /* at least 256 bytes; length of the text, -1, -20 */
VXPADCOM_API int core_get_serial_number(char* dst);
VXPADCOM_API int core_get_pad_name(char* dst);
VXPADCOM_API int core_get_pad_manufacturer(char* dst);
VXPADCOM_API int core_get_pad_product_id(void);
VXPADCOM_API int core_get_vendor_id(void);
VXPADCOM_API int core_get_pad_bcd_device(void);
VXPADCOM_API int core_get_count_of_hid_interfaces(void);
VXPADCOM_API int core_get_max_packet_size_of_out_endpoint(void);
VXPADCOM_API int core_get_max_packet_size_of_input_report(void);
/* interface_number: 0 is the pad's record, k its k-th further interface; data_size in bytes. */
VXPADCOM_API int core_set_hid_feature_report(unsigned int interface_number, const void* data, int data_size);
VXPADCOM_API int core_get_hid_feature_report(unsigned int interface_number, void* data, int data_size);
VXPADCOM_API int core_set_unsync_hid_output_report(unsigned int interface_number, const void* data, int data_size);
VXPADCOM_API int core_get_hid_input_report(unsigned int interface_number, void* data, int data_size);

#ifdef __cplusplus
}
#endif

#endif
