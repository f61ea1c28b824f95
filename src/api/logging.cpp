#include "support/trace.hpp"

int RegisterLoggingCallBackProcedure(void* callback, void* user_specific) {
    trace::Scope scope{VX_HERE};
    trace::set_callback(callback, user_specific);
    VX_INFO("Pointer %p with user_specific %p was set like callback for logging", callback, user_specific);
    return scope.exit(0);
}
