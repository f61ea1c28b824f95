/*
 * Text conversion, unit by unit, by the single-byte conversions of the process's LC_CTYPE locale.
 */
#ifndef VXPADCOM_INTERNALS_WIDE_TEXT_H
#define VXPADCOM_INTERNALS_WIDE_TEXT_H

#include "vxpadcom/export.h"

#ifdef __cplusplus
extern "C" {
#else
#include <uchar.h>
#endif

VXPADCOM_API void wbzero(void* buffer, int units);
VXPADCOM_API int wstr_length(const char16_t* text);                   /* 256 units at most are looked at */
VXPADCOM_API int astr_to_wstr(char16_t* dst, const char* src, int n); /* n units; returns n */
VXPADCOM_API int wstr_to_astr(char* dst, const char16_t* src, int n); /* n bytes; returns n */

#ifdef __cplusplus
}
#endif

#endif
