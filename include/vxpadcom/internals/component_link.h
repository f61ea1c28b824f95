/*
 * Components of a pad. They are addressed by id, the position of their type in the list that the pad reports. A message
 * is an SSP message as docs/wire-formats.md shows it; sizes are in bytes. Results are 0 or what is asked, -1 in
 * general, -2 where the pad has no such component or mode, -4 where it is gone; a failed transfer may also give the
 * transport's own negative code. No lock is taken: the caller holds the record's device_lock. The pad is asked for its
 * components and modes once, the answers stay in the record.
 */
#ifndef VXPADCOM_INTERNALS_COMPONENT_LINK_H
#define VXPADCOM_INTERNALS_COMPONENT_LINK_H

#include "vxpadcom/internals/record.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Through the record's own two functions, with legacy and selector 0 whatever is passed. */
VXPADCOM_API int send_ssp_message(vx_device* device, void* message, unsigned int size);
VXPADCOM_API int receive_ssp_message(vx_device* device, void* data, unsigned int* size, unsigned int time_out,
                                     unsigned char legacy, int selector);
/* At most 65535 bytes of data. */
VXPADCOM_API int make_and_send_ssp_data_sequence(vx_device* device, int component_id, unsigned char message_id,
                                                 const void* data, unsigned int data_size);
/* Of the component id and the message id the low byte counts. At most 65533 bytes of data behind the parameters. */
VXPADCOM_API int make_and_send_ssp_component_data_sequence(vx_device* device, int component_id,
                                                           unsigned char message_id, unsigned char parameter_1,
                                                           unsigned char parameter_2, const void* data,
                                                           unsigned int data_size);
/* The reply, waited for 1000 ms: 1024 bytes, zeros behind it, freed by the caller; or NULL. */
VXPADCOM_API unsigned char* receive_ssp_message_and_get_data(vx_device* device);

#ifdef __cplusplus
}
#endif

#endif
