// The receive thread of an interface: it reads input reports and queues them.
//
// It makes its pad current as it starts and then serves it, whichever is current meanwhile. From then on it takes no
// lock of the list: a removal that it reports may make the application ask for the list.
#pragma once

#include "session/interface_state.hpp"

#include <optional>

namespace receive_thread {

// 0 once the thread runs, else non-zero. One that runs already is stopped, and its frames are dropped.
int start_thread(unsigned int device, unsigned int interface_number);

// Returns when the thread has left its loop; it may still be switching pen data off. A thread goes on that was started
// after the interface's start number `last_start`.
void stop_thread(unsigned int device, unsigned int interface_number,
                 std::optional<unsigned int> last_start = std::nullopt);

// Stops every one.
void stop_all(const trace::Location& where);

int flush_data_packets(unsigned int device, unsigned int interface_number);

// Drops the pen data that the core holds of this pad.
void clear_pen_data(const trace::Location& where, unsigned int device);

} // namespace receive_thread
