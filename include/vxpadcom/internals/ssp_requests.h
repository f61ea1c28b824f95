/*
 * Whole messages to and from one interface, under its lock: 0, -1, -20 where the pad is gone.
 */
#ifndef VXPADCOM_INTERNALS_SSP_REQUESTS_H
#define VXPADCOM_INTERNALS_SSP_REQUESTS_H

#include "vxpadcom/internals/record.h"

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API int lock_dev_and_send_ssp_message(vx_device* device, void* data, unsigned int length);
VXPADCOM_API int lock_dev_and_receive_ssp_message(vx_device* device, void* data, unsigned int* length,
                                                  unsigned int time_out, unsigned char legacy);
VXPADCOM_API int core_send_ssp_message(unsigned int interface_number, void* data, int data_size);
VXPADCOM_API int core_receive_ssp_message(unsigned int interface_number, void* data, unsigned int* data_size,
                                          unsigned int time_out);
VXPADCOM_API void core_clear_ssp_input_queue(void); /* drops the current pad's pen data */

#ifdef __cplusplus
}
#endif

#endif
