// Functions that are declared for completeness: they say so and succeed.
#include "support/trace.hpp"
#include "vxpadcom/vxpadcom.h"

static constexpr char not_implemented[] = "Function %s() not implemented yet.";

int AddComDevice(void* /*argument_1*/, unsigned int /*argument_2*/, void* /*argument_3*/) {
    trace::Entry scope{VX_HERE};
    VX_INFO(not_implemented, __func__);
    return scope.exit(0);
}

int ReadFileBuffer(unsigned int /*device*/, unsigned int /*end_point_id_mask*/, void* /*dst*/,
                   unsigned int /*dst_length*/, unsigned int* /*reply*/) {
    trace::Entry scope{VX_HERE};
    VX_INFO(not_implemented, __func__);
    return scope.exit(0);
}

int SetOnDeviceArrivedHandler(vxpad_device_callback /*callback*/, void* /*user_specific*/) {
    trace::Entry scope{VX_HERE};
    VX_INFO(not_implemented, __func__);
    return scope.exit(0);
}

int TriggerOnDeviceArrivedEvents() {
    trace::Entry scope{VX_HERE};
    VX_INFO(not_implemented, __func__);
    return scope.exit(0);
}

int LogDeviceStatistics(unsigned int /*device*/) {
    trace::Entry scope{VX_HERE};
    VX_ERROR(not_implemented, __func__);
    return scope.exit(0);
}
