// The application's handlers of device events.
#include "session/removal.hpp"
#include "support/trace.hpp"
#include "vxpadcom/vxpadcom.h"

int SetOnDeviceRemovedHandler(vxpad_device_callback callback, void* user_specific) {
    trace::Entry scope{VX_HERE};
    removal::set_callback(callback, user_specific);
    VX_INFO("Pointer %p with user_specific %p was set like callback for catch of removing device",
            reinterpret_cast<void*>(callback), user_specific);
    return scope.exit(0);
}
