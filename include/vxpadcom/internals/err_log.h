/*
 * Error lines: errno's text is appended by err_ret, err_sys and err_dump; err_sys and err_quit exit(1), err_dump
 * abort().
 */
#ifndef VXPADCOM_INTERNALS_ERR_LOG_H
#define VXPADCOM_INTERNALS_ERR_LOG_H

#include "vxpadcom/export.h"

#ifdef __cplusplus
extern "C" {
#endif

VXPADCOM_API void err_msg(const char* format, ...) __attribute__((format(printf, 1, 2)));
VXPADCOM_API void err_ret(const char* format, ...) __attribute__((format(printf, 1, 2)));
VXPADCOM_API void err_sys(const char* format, ...) __attribute__((format(printf, 1, 2), noreturn));
VXPADCOM_API void err_dump(const char* format, ...) __attribute__((format(printf, 1, 2), noreturn));
VXPADCOM_API void err_quit(const char* format, ...) __attribute__((format(printf, 1, 2), noreturn));

#ifdef __cplusplus
}
#endif

#endif
