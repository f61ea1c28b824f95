// The application's device-removed callback.
#pragma once

namespace device_events {

void forget_callback();

} // namespace device_events
