/*
 * Opening and closing one record. The __ variants expect device_lock held.
 */
#ifndef VXPADCOM_INTERNALS_OPEN_CLOSE_H
#define VXPADCOM_INTERNALS_OPEN_CLOSE_H

#include "vxpadcom/internals/record.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Opening, closing and reports of one record. The __ variants and the feature transfers expect device_lock held. */
VXPADCOM_API int __core_open_dev(vx_device* device);
VXPADCOM_API int core_open_dev(vx_device* device); /* 0 for any record: a failed open shows at the first transfer */
VXPADCOM_API void __core_close_dev(vx_device* device);
VXPADCOM_API void core_close_dev(vx_device* device);

#ifdef __cplusplus
}
#endif

#endif
