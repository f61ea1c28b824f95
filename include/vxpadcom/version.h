/* The version of this header; vxpadcom_version() tells that of the library that a program has loaded. */
#ifndef VXPADCOM_VERSION_H
#define VXPADCOM_VERSION_H

#define VXPADCOM_VERSION_MAJOR 0
#define VXPADCOM_VERSION_MINOR 1
#define VXPADCOM_VERSION_PATCH 0

/* To compare: #if VXPADCOM_VERSION_NUMBER >= VXPADCOM_VERSION(0, 2, 0) */
#define VXPADCOM_VERSION(major, minor, patch) ((major)*1000000 + (minor)*1000 + (patch))
#define VXPADCOM_VERSION_NUMBER VXPADCOM_VERSION(VXPADCOM_VERSION_MAJOR, VXPADCOM_VERSION_MINOR, VXPADCOM_VERSION_PATCH)

#define VXPADCOM_VERSION_TEXT_OF(major, minor, patch) #major "." #minor "." #patch
#define VXPADCOM_VERSION_TEXT(major, minor, patch) VXPADCOM_VERSION_TEXT_OF(major, minor, patch)
#define VXPADCOM_VERSION_STRING                                                                                        \
    VXPADCOM_VERSION_TEXT(VXPADCOM_VERSION_MAJOR, VXPADCOM_VERSION_MINOR, VXPADCOM_VERSION_PATCH)

#endif
