#include "session/device_list.hpp"

#include "pads/current_pad.hpp"
#include "vxpadcom/internals/process_state.h"

#include <atomic>

pthread_mutex_t dev_list_short_lock = PTHREAD_MUTEX_INITIALIZER;

namespace device_list {
namespace {

Table dev_shared_short_storage;
Table* dev_shared_short = nullptr;

} // namespace

bool expect_indexed(const trace::Location& where, unsigned int device) {
    if (device >= slots || dev_shared_short->devices[device].indexed == 0) {
        trace::error(where, "Device %d is not indexed", static_cast<int>(device));
        return false;
    }
    return true;
}

vx_device* find_record(unsigned int device) {
    return dev_shared_short != nullptr && device < slots
               ? current_pad::find(dev_shared_short->devices[device].pad_settings)
               : nullptr;
}

Table* table() {
    return std::atomic_ref{dev_shared_short}.load();
}

void create() {
    std::atomic_ref{dev_shared_short}.store(&dev_shared_short_storage);
}

void destroy() {
    if (dev_shared_short != nullptr) {
        *dev_shared_short = {};
        std::atomic_ref{dev_shared_short}.store(nullptr);
    }
}

} // namespace device_list
