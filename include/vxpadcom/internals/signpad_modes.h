/*
 * Modes of a pad's signpad, and what the signpad tells of its buttons.
 */
#ifndef VXPADCOM_INTERNALS_SIGNPAD_MODES_H
#define VXPADCOM_INTERNALS_SIGNPAD_MODES_H

#include "vxpadcom/internals/record.h"

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API int ssp_common_ct_signpad_initialize_modes_id_table(vx_device* device);  /* 0, -1 */
VXPADCOM_API int ssp_common_ct_signpad_get_mode_id(vx_device* device, int mode_type); /* pad types 15, 16, 17 only */
/* Looks at 3 bytes of the payload: 0, -1. */
VXPADCOM_API int ct_signpad_mode_send_reply_check(const unsigned char* payload, int ct_cmd, int cts_mode_id);
/* Looks at 2 bytes: the button, -1. */
VXPADCOM_API int ct_signpad_mode_send_mt_uni_cmd_button_last_event_get(const unsigned char* sub_reply, int sub_command);
/* The button (0..255), or negative. Pad types 15, 16 and 17 only: others give -1 at once. */
VXPADCOM_API int ssp_common_get_user_input(vx_device* device);
VXPADCOM_API int ssp_common_get_button_event(vx_device* device, int mode_type); /* mode type 0, 5 or 6 */

#ifdef __cplusplus
}
#endif

#endif
