/*
 * Checked system calls: failures are logged. The allocators try three times and then end the process.
 */
#ifndef VXPADCOM_INTERNALS_WRAPUNIX_H
#define VXPADCOM_INTERNALS_WRAPUNIX_H

#include "vxpadcom/export.h"

#include <stddef.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API void* Malloc(size_t size);
VXPADCOM_API void* Calloc(size_t count, size_t size);
VXPADCOM_API void* Realloc(void* block, size_t size);
VXPADCOM_API int Open(const char* path, int flags, mode_t mode);
VXPADCOM_API int Close(int fd);
VXPADCOM_API ssize_t Read(int fd, void* buffer, size_t count);
VXPADCOM_API ssize_t Write(int fd, const void* buffer, size_t count);
VXPADCOM_API unsigned char* load_file(const char* name, unsigned int* image_size);    /* freed by the caller */
VXPADCOM_API long save_file(const char* name, const void* buffer, unsigned int size); /* bytes written, or -1 */

#ifdef __cplusplus
}
#endif

#endif
