#include "transport/record.hpp"

#include "support/memory.hpp"
#include "vxpadcom/internals/uni_queue.h"
#include "vxpadcom/internals/wrappthread.h"
#include "vxpadcom/internals/wrapunix.h"

#include <cstdlib>
#include <libusb-1.0/libusb.h>

namespace record {
namespace {

void destroy_lock(vx_device& device) {
    if (device.device_lock != nullptr) {
        pthread_mutex_destroy(device.device_lock);
        std::free(device.device_lock);
        device.device_lock = nullptr;
    }
}

} // namespace

bool was_removed(vx_device& device) {
    return std::atomic_ref{device.was_removed}.load() != 0;
}
void mark_removed(vx_device& device) {
    std::atomic_ref{device.was_removed}.store(1);
}

bool is_kept_open(vx_device& device) {
    return std::atomic_ref{device.keepers}.load() != 0;
}
void add_keepers(vx_device& device, int count) {
    std::atomic_ref{device.keepers}.fetch_add(count);
}

void create_lock(vx_device& device) {
    // Zeroed, which is a lock as well: a failed initialisation is reported and the library goes on with it.
    device.device_lock = static_cast<pthread_mutex_t*>(Calloc(1, sizeof(pthread_mutex_t)));
    Pthread_mutex_init(device.device_lock, nullptr);
}

void clear(vx_device& device) {
    for (uni_queue* queue : {device.ssp_input_read, device.ssp_command_messages, device.ssp_unfinished}) {
        if (queue != nullptr) {
            destroy_uni_queue(queue);
        }
    }
    destroy_lock(device);
    if (device.vcom_device != nullptr) {
        libusb_unref_device(device.vcom_device);
    }
    vx_device** interfaces = device.interfaces;
    device = {};
    device.interfaces = interfaces;
}

} // namespace record
