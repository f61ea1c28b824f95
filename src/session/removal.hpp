// The application's device-removed callback.
#pragma once

#include "vxpadcom/vxpadcom.h"

namespace removal {

void set_callback(vxpad_device_callback callback, void* user_specific);

} // namespace removal
