/*
 * Which pads there are, and which one requests act on.
 */
#ifndef VXPADCOM_INTERNALS_REGISTRY_H
#define VXPADCOM_INTERNALS_REGISTRY_H

#include "vxpadcom/internals/record.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The pads found by a search. */
typedef struct vx_registry {
    vx_device devices[VX_MAX_DEVICES];
    int32_t count_of_devices;
    uint32_t size;
    vx_device* current_device; /* the pad on which the core operations act */
    uint16_t current_index;
} vx_registry;
VXPADCOM_API void core_catch_is_dev_was_removed(int* result); /* *result = -20 when the current pad was removed */

#ifdef __cplusplus
}
#endif

#endif
