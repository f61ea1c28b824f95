// Recovery of a record after a failed exchange.
#pragma once

#include "transport/registry.hpp"

namespace open_close {

// Closes the record and opens it again, with its lock held. -1 where the pad is still there, though the exchange is
// lost; -20 and the record marked where it is gone.
int recover(vx_device& device);

} // namespace open_close
