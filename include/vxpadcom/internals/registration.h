/*
 * How pads are told apart.
 */
#ifndef VXPADCOM_INTERNALS_REGISTRATION_H
#define VXPADCOM_INTERNALS_REGISTRATION_H

#include "vxpadcom/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Composes the identity text in dst (256 bytes); transport: 0 HID, 1 VCOM. device_uid is not used. */
VXPADCOM_API void core_pad_settings_population(char* dst, unsigned int pad_type, const char* manufacturer,
                                               const char* product, unsigned int vendor_id, unsigned int product_id,
                                               const char* serial_number, const char* device_uid, int transport);

#ifdef __cplusplus
}
#endif

#endif
