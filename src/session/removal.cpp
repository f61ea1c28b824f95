#include "session/removal.hpp"

#include "pads/current_pad.hpp"
#include "session/interface_state.hpp"
#include "support/callback_pair.hpp"
#include "support/detached_thread.hpp"
#include "support/result.hpp"
#include "vxpadcom/internals/removal.h"

namespace {

CallbackPair<vxpad_device_callback> on_device_removed;

// Whether this thread is inside the callback: what the callback asks the lost pad is not told again, or it would never
// end.
thread_local bool is_telling = false;

void tell(unsigned int device) {
    if (!on_device_removed.is_set() || is_telling) {
        return;
    }
    const current_pad::Serve none{nullptr}; // the callback's requests are its own
    detached_thread::give_up();             // and it may search again
    // A tear-down that waited for this thread has forgotten the callback by now.
    const auto [callback, user_specific] = on_device_removed.get();
    if (callback == nullptr) {
        return;
    }
    is_telling = true;
    callback(user_specific, device);
    is_telling = false;
}

} // namespace

void removal::set_callback(vxpad_device_callback callback, void* user_specific) {
    on_device_removed.set(callback, user_specific);
}

void catch_removing_device(int code, unsigned int device, unsigned int interface_number) {
    trace::Scope scope{VX_HERE};
    if (code != result::removed) {
        return;
    }
    interface_state::ask_to_stop(device, interface_number);
    tell(device);
}
