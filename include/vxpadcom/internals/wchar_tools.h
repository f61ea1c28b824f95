/*
 * Wide text for log lines.
 */
#ifndef VXPADCOM_INTERNALS_WCHAR_TOOLS_H
#define VXPADCOM_INTERNALS_WCHAR_TOOLS_H

#include "vxpadcom/export.h"

#ifdef __cplusplus
extern "C" {
#else
#include <uchar.h>
#endif

VXPADCOM_API const char* print_wchar_to_asci(const char16_t* text); /* sets LC_CTYPE from the environment */

#ifdef __cplusplus
}
#endif

#endif
