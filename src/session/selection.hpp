// Which pad of the application's list is current in the core.
#pragma once

#include "session/device_list.hpp"
#include "vxpadcom/internals/record.h"

namespace selection {

enum class ListLock { take, already_held };

// 0 switched, 1 the core has no such pad, -1 failure, else the core's unexpected result. With the lock already held the
// core is always asked; otherwise a pad that is current already needs no question, and the lock is free again before
// the pad is reopened. The selected pad's record goes to selected.
int set_dev_to_current(unsigned int device, ListLock list_locking, vx_device** selected = nullptr);

// The same for a thread that serves the pad anyway: no lock, and the current pad stays what it is. A removal is
// reported for the thread's interface.
int set_served_dev_to_current(unsigned int device, unsigned int interface_number);

// Number of the current pad, or -1.
int get_current_dev();

} // namespace selection
