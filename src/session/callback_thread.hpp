// The callback thread of an interface: it hands queued frames to the application.
#pragma once

#include "session/interface_state.hpp"

namespace callback_thread {

// Starts one, with the interface's locks held, and waits until it runs: 0, or what failed.
int start(unsigned int device, unsigned int interface_number);

} // namespace callback_thread
