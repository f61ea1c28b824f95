// Messages to and from one interface of the current pad, under its lock.
#include "pads/current_pad.hpp"
#include "support/arguments.hpp"
#include "transport/open_close.hpp"

namespace {

// The recovery here is one more: the engine has closed and reopened the interface already.
template <typename Exchange> int exchange_locked(trace::Location where, vx_device& device, Exchange exchange) {
    trace::Lock lock{device.device_lock, "current_device->device_lock", where};
    return exchange() == 0 ? 0 : open_close::recover(device);
}

// The two requests differ in the prefix of their error texts and in the exchange.
template <typename Exchange>
int request(trace::Location where, const char* prefix, unsigned int interface_number, const void* data, int data_size,
            Exchange exchange) {
    return current_pad::request(
        where,
        [&](vx_device& pad) {
            if (data == nullptr) {
                trace::error(where, "%sdata of VXPAD_vx_ioctl() is NULL", prefix);
                return -1;
            }
            if (data_size < 1) {
                trace::error(where, "%sdata_size of VXPAD_vx_ioctl() <= 0", prefix);
                return -1;
            }
            if (interface_number == 0) {
                // Receiving names the sending function too: log filters know it so.
                VX_INFO_AT(where, "Going to call lock_dev_and_send_ssp_message(data_size: %d)", data_size);
            }
            const current_pad::KeepOpen keep_open{pad, interface_number};
            vx_device* device = current_pad::find_interface(
                where, pad, prefix, interface_number, [](trace::Location at, unsigned int index) {
                    trace::error(at, "Error of open interface with number: %d", index);
                });
            return device == nullptr ? -1 : exchange(device);
        },
        registry::Missing::reported);
}

} // namespace

int lock_dev_and_send_ssp_message(vx_device* device, void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    if (arguments::refused(VX_HERE, {"unsigned int len", length}, data, {"device *current_device", device})) {
        return scope.exit(-1);
    }
    return scope.exit(
        exchange_locked(scope.where(), *device, [&] { return __send_ssp_message(device, data, length); }));
}

int lock_dev_and_receive_ssp_message(vx_device* device, void* data, unsigned int* length, unsigned int time_out,
                                     unsigned char legacy) {
    trace::Scope scope{VX_HERE};
    if (arguments::refused(VX_HERE, {"*(unsigned int *len)", length == nullptr ? 0 : *length}, data,
                           {"device *current_device", device})) {
        return scope.exit(-1);
    }
    constexpr int command_queue = 2;
    return scope.exit(exchange_locked(scope.where(), *device, [&] {
        return __receive_ssp_message(device, data, length, time_out, legacy, command_queue);
    }));
}

int core_send_ssp_message(unsigned int interface_number, void* data, int data_size) {
    trace::Scope scope{VX_HERE};
    return scope.exit(request(
        scope.where(), "send_ssp_message_to_interface->", interface_number, data, data_size, [&](vx_device* device) {
            return lock_dev_and_send_ssp_message(device, data, static_cast<unsigned int>(data_size));
        }));
}

int core_receive_ssp_message(unsigned int interface_number, void* data, unsigned int* data_size,
                             unsigned int time_out) {
    trace::Scope scope{VX_HERE};
    const int size = data_size == nullptr ? 0 : static_cast<int>(*data_size);
    return scope.exit(request(
        scope.where(), "receive_ssp_message_from_interface->", interface_number, data, size,
        [&](vx_device* device) { return lock_dev_and_receive_ssp_message(device, data, data_size, time_out, 0); }));
}

void core_clear_ssp_input_queue() {
    trace::Scope scope{VX_HERE};
    const vx_device* pad = registry::find_current(VX_HERE, registry::Missing::reported);
    if (pad == nullptr) {
        return;
    }
    VX_LOCK(lock, pad->device_lock); // another thread may be reading from the queue
    if (pad->ssp_input_read != nullptr) {
        clear_uni_queue(pad->ssp_input_read);
    }
}
