// Why something failed, as far as its caller may want to know.
#pragma once

namespace result {

enum Code : int {
    failed = -1,
    no_such = -2,        // the pad has no such component or mode
    transport_lost = -4, // LIBUSB_ERROR_NO_DEVICE, by whichever transport
    timed_out = -7,      // LIBUSB_ERROR_TIMEOUT, likewise
    removed = -20,       // the pad has been pulled out
};

} // namespace result
