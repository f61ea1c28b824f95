// Opening a record, and its recovery after a failed exchange.
#pragma once

#include "transport/record.hpp"
#include "vxpadcom/internals/record.h"

namespace open_close {

// core_open_dev() that tells whether the record is open on each transport that it belongs to.
bool opens(vx_device& device);

// Closes the record and opens it again, with its lock held. -1 where the pad is still there, though the exchange is
// lost; result::removed and the record marked where it is gone.
int recover(vx_device& device);

} // namespace open_close
