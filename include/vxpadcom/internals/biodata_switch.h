/*
 * Pen data of the current pad on and off; a HID pad needs nothing. 0, -1, -20.
 */
#ifndef VXPADCOM_INTERNALS_BIODATA_SWITCH_H
#define VXPADCOM_INTERNALS_BIODATA_SWITCH_H

#include "vxpadcom/export.h"

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API int core_enable_ssp_biodata_sending(void);
VXPADCOM_API int core_disable_ssp_biodata_sending(void);

#ifdef __cplusplus
}
#endif

#endif
