#include "support/log_delivery.hpp"
#include "support/trace.hpp"
#include "vxpadcom/vxpadcom.h"

int RegisterLoggingCallBackProcedure(void* callback, void* user_specific) {
    trace::Entry scope{VX_HERE};
    log_delivery::set_callback(reinterpret_cast<vxpad_logging_callback>(callback), user_specific);
    VX_INFO("Pointer %p with user_specific %p was set like callback for logging", callback, user_specific);
    return scope.exit(0);
}
