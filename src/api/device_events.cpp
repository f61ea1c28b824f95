#include "api/device_events.hpp"

#include "pads/current_pad.hpp"
#include "session/receive_thread.hpp"
#include "support/detached_thread.hpp"

#include <atomic>

namespace {

constexpr int device_removed = -20;

std::atomic<vxpad_device_callback> on_device_removed{nullptr};
std::atomic<void*> on_device_removed_user_specific{nullptr};

} // namespace

void device_events::forget_callback() {
    on_device_removed = nullptr;
    on_device_removed_user_specific = nullptr;
}

void catch_removing_device(int code, unsigned int device, unsigned int interface_number) {
    trace::Scope scope{VX_HERE};
    if (code != device_removed) {
        return;
    }
    receive_thread::ask_to_stop(device, interface_number);
    if (const auto callback = on_device_removed.load()) {
        const current_pad::Serve none{nullptr}; // the callback's requests are its own
        detached_thread::give_up();             // and it may search again
        callback(on_device_removed_user_specific.load(), device);
    }
}

int SetOnDeviceRemovedHandler(vxpad_device_callback callback, void* user_specific) {
    trace::Scope scope{VX_HERE};
    on_device_removed = callback;
    on_device_removed_user_specific = user_specific;
    VX_INFO("Pointer %p with user_specific %p was set like callback for catch of removing device",
            reinterpret_cast<void*>(callback), user_specific);
    return scope.exit(0);
}
