/*
 * Text for log lines. The returned texts are static: the next call overwrites them.
 */
#ifndef VXPADCOM_INTERNALS_PRINT_HELPERS_H
#define VXPADCOM_INTERNALS_PRINT_HELPERS_H

#include "vxpadcom/export.h"

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API void print_current_time(void);
VXPADCOM_API char* print_bits(int value);                                       /* low 8 bits, "00000101" */
VXPADCOM_API char* print_bytes(const unsigned char* data, unsigned int length); /* "[ 01 AB ]", 340 bytes at most */
VXPADCOM_API bool is_it_zero_array(const unsigned char* data, size_t length);

#ifdef __cplusplus
}
#endif

#endif
