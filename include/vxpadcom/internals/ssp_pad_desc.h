/*
 * What a pad says of itself, and its connection type: 0 or what is asked, -1, -2, -4.
 */
#ifndef VXPADCOM_INTERNALS_SSP_PAD_DESC_H
#define VXPADCOM_INTERNALS_SSP_PAD_DESC_H

#include "vxpadcom/internals/record.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Fills vendor_id, product_id and serial_number (at most 255 characters) of the record. */
VXPADCOM_API int ssp_common_get_pad_description(vx_device* device);
/* The payload holds at least 31 bytes and as many more as byte 30 says. */
VXPADCOM_API int ct_signpad_get_pad_description_reply_check(const unsigned char* payload, int message_id);
/* Looks at 3 bytes of the payload: the type (0..127), -1. */
VXPADCOM_API int ct_communication_get_current_connection_type_from_reply_message(const unsigned char* payload);
VXPADCOM_API int ssp_common_ct_communication_get_current_connection(vx_device* device); /* the type, or negative */
/* What the types mean is the pad's. Returns as soon as the request is written; no reply is waited for. */
VXPADCOM_API int ssp_common_ct_communication_set_current_connection(vx_device* device, int type);

#ifdef __cplusplus
}
#endif

#endif
