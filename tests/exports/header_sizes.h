/* What the public header declares, seen from C11, C++17 and C++20. */
#ifndef VXPAD_TESTS_HEADER_SIZES_H
#define VXPAD_TESTS_HEADER_SIZES_H

#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#ifdef __cplusplus
extern "C" {
#endif

struct header_sizes {
    size_t frame, queue, device, registry, version, status, text_unit;
};

#define HEADER_SIZES                                                                                                   \
    {                                                                                                                  \
        sizeof(uni_frame), sizeof(uni_queue), sizeof(vx_device), sizeof(vx_registry), sizeof(dev_fw_version),          \
            sizeof(flags_status), sizeof(char16_t)                                                                     \
    }

struct header_sizes header_sizes_in_c(void);
struct header_sizes header_sizes_in_cxx17(void);

#ifdef __cplusplus
}
#endif

#endif
