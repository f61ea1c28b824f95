/*
 * Which components a pad has. It is asked once, the answer stays in the record.
 */
#ifndef VXPADCOM_INTERNALS_COMPONENT_IDS_H
#define VXPADCOM_INTERNALS_COMPONENT_IDS_H

#include "vxpadcom/internals/record.h"

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API int ssp_common_is_ssp_supported(vx_device* device); /* 1, 0, -1 for NULL; waits 100 ms at most */
VXPADCOM_API int ssp_common_components_id_initialize_table(vx_device* device);
VXPADCOM_API int ssp_common_component_id_get_id(vx_device* device, int component_type);

#ifdef __cplusplus
}
#endif

#endif
