/*
 * Fixed commands in 64-byte feature reports, tried three times each, under the record's device_lock.
 */
#ifndef VXPADCOM_INTERNALS_LEGACY_COMMANDS_H
#define VXPADCOM_INTERNALS_LEGACY_COMMANDS_H

#include "vxpadcom/internals/record.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Firmware version of a pad. */
typedef struct dev_fw_version {
    uint32_t major;
    uint32_t minor;
    uint32_t patch;
    uint32_t revision;
    char manufacturer[5]; /* four characters are written: zero the record before */
} dev_fw_version;
/* Status flags of a pad; byte 5 is its current mode. */
typedef struct flags_status {
    unsigned char flags[14];
} flags_status;
/* Fixed commands in 64-byte feature reports, tried three times each. */
VXPADCOM_API int core_read_version(vx_device* device, dev_fw_version* version); /* 0, -1 */
VXPADCOM_API int core_set_pad_mode(vx_device* device, int mode, int option);    /* >= 0, -1 */
VXPADCOM_API int __core_get_status(vx_device* device, flags_status* status);    /* 0, -1 */
VXPADCOM_API int __core_get_pad_mode(vx_device* device);                        /* the mode, -1 */
VXPADCOM_API int core_create_signature_rectangle(vx_device* device, unsigned short value_1, unsigned short value_2,
                                                 unsigned short value_3, unsigned short value_4,
                                                 unsigned int flag); /* 0, -1, -20 */

#ifdef __cplusplus
}
#endif

#endif
