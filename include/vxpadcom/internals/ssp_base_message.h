/*
 * SSP messages. A base message is a component id (bit 7 clear), a 16-bit little-endian payload size minus one, and the
 * payload; a legacy message is a byte 0x80 | biodata flag 0x40 | payload size minus one, and 1 to 64 payload bytes.
 */
#ifndef VXPADCOM_INTERNALS_SSP_BASE_MESSAGE_H
#define VXPADCOM_INTERNALS_SSP_BASE_MESSAGE_H

#include "vxpadcom/export.h"

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API int ssp_base_message_check_component_id(const void* message, int component_id); /* 0, or -1 */
VXPADCOM_API int ssp_base_message_is_it_old_message(const void* message);                    /* 1, 0, -1 for NULL */
VXPADCOM_API int ssp_base_message_is_it_biodata(const void* message);                        /* 1, 0, -1 for NULL */
VXPADCOM_API int ssp_base_message_get_data_length(const void* message);             /* payload bytes; 3 are read */
VXPADCOM_API int ssp_base_message_old_message_get_data_length(const void* message); /* payload bytes; 1 is read */
/* Wraps 1 to 64 bytes in a legacy message, *out, which the caller frees. Its size, or -1. */
VXPADCOM_API int ssp_base_message_old_message_create(const void* data, unsigned int data_size, unsigned char** out);

#ifdef __cplusplus
}
#endif

#endif
