/*
 * Pen data of one record on and off: 0, -1, -2, -4.
 */
#ifndef VXPADCOM_INTERNALS_BIODATA_H
#define VXPADCOM_INTERNALS_BIODATA_H

#include "vxpadcom/internals/record.h"

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API int ssp_biodata_sending(vx_device* device, int on); /* the low byte: 1 on, 0 off */
/* Looks at 2 bytes of the payload. */
VXPADCOM_API int ct_signpad_mode_ssp_biodata_sending_reply_check(const unsigned char* payload, int message_id);
VXPADCOM_API int core_ssp_biodata_sending(vx_device* device, int on); /* >= 0, or the last failure after 3000 ms */

#ifdef __cplusplus
}
#endif

#endif
