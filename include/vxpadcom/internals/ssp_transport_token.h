/*
 * Transport tokens: AA 55 02 starts a frame, AA 55 00 stands for the data bytes AA 55.
 * Framing gives the framed size and *out, which the caller frees, or -1. Parsing changes the received bytes in place,
 * adds each frame to the queue and gives the queue's size, or -1 where no frame starts.
 */
#ifndef VXPADCOM_INTERNALS_SSP_TRANSPORT_TOKEN_H
#define VXPADCOM_INTERNALS_SSP_TRANSPORT_TOKEN_H

#include "vxpadcom/internals/uni_queue.h"

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API int ssp_base_message_to_transport_token_data(const void* data, unsigned int len, unsigned char** out);
VXPADCOM_API int ssp_transport_token_to_base_message_data(void* tt_data, size_t tt_data_size, uni_queue* queue);

#ifdef __cplusplus
}
#endif

#endif
