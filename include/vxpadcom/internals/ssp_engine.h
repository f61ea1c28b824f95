/*
 * Whole messages. The __ variants expect device_lock held. *length: capacity, then bytes delivered; a message that is
 * longer is cut. time_out in ms. selector 1 without legacy serves pen data, anything else the replies.
 */
#ifndef VXPADCOM_INTERNALS_SSP_ENGINE_H
#define VXPADCOM_INTERNALS_SSP_ENGINE_H

#include "vxpadcom/internals/record.h"

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API int __send_ssp_message(vx_device* device, void* data, unsigned int length);
VXPADCOM_API int __receive_ssp_message(vx_device* device, void* data, unsigned int* length, unsigned int time_out,
                                       unsigned char legacy, int selector);

#ifdef __cplusplus
}
#endif

#endif
