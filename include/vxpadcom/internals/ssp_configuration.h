/*
 * Configuration variables and buttons. A key counts with its first 40 characters, a value with its first 20.
 */
#ifndef VXPADCOM_INTERNALS_SSP_CONFIGURATION_H
#define VXPADCOM_INTERNALS_SSP_CONFIGURATION_H

#include "vxpadcom/internals/record.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vx_conf_key {
    uint32_t code; /* of the button; 0 ends a table */
    uint32_t mode; /* the signpad mode type: 0, 5 or 6 */
    char key[256];
} vx_conf_key;

/* The key in the caller's table, or NULL. */
VXPADCOM_API const char* get_conf_var_string_for_code(const vx_conf_key* table, unsigned int code, unsigned int mode);

/* Two upper-case digits for each byte, zeros behind them: the string, or NULL where a size is below 1, a pointer NULL
 * or the string too small. A string of exactly twice the data's size has no terminator. */
VXPADCOM_API char* get_hex_string_from_data_for_conf_var_set(char* string, int string_size, const void* data,
                                                             int data_size);
VXPADCOM_API int cmduni_reply_check_cc(const unsigned char* payload, int message_id); /* looks at 2 bytes: 0, -1 */
/* Looks at 3 bytes of the payload: the state, -1. */
VXPADCOM_API int ct_conf_handler_cmd_conf_state_get(const unsigned char* payload, int message_id);
/* State of the configuration handler: 0 idle, 1 waiting, 2 running, 3 done, 4 failed; or negative. */
VXPADCOM_API int ssp_common_get_conf_state(vx_device* device);
/* Waits up to 10 s until the handler is not busy: the last state seen, -4; 0 at once for other pad types than 15..17.
 */
VXPADCOM_API int ssp_common_check_configuration_state(vx_device* device);
/* 0, -1, or -2 without a configuration handler. Each waits for an idle handler before and behind the change. */
VXPADCOM_API int ssp_common_set_configuration_variable(vx_device* device, const char* key, const char* value);
VXPADCOM_API int ssp_common_persist_configuration_variable(vx_device* device, const char* key);
/* Pad types 15, 16 and 17 only, as the three refreshes. -1 also for a button that the mode does not have. */
VXPADCOM_API int ssp_common_set_button_state(vx_device* device, unsigned char code, unsigned int first_value,
                                             unsigned int second_value, unsigned int mode);
VXPADCOM_API int ssp_common_doc_view_buttons_refresh(vx_device* device);
VXPADCOM_API int ssp_common_signature_buttons_refresh(vx_device* device);
VXPADCOM_API int ssp_common_doc_sign_buttons_refresh(vx_device* device);

#ifdef __cplusplus
}
#endif

#endif
