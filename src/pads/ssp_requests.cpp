// Messages to and from one interface of the current pad, under its lock.
#include "vxpadcom/internals/ssp_requests.h"
#include "pads/interface_request.hpp"
#include "support/arguments.hpp"
#include "transport/open_close.hpp"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/ssp_engine.h"
#include "vxpadcom/internals/uni_queue.h"

namespace {

// The recovery here is one more: the engine has closed and reopened the interface already.
int recover_after(int result, vx_device& device) {
    return result == 0 ? 0 : open_close::recover(device);
}

constexpr const char* lock_name = "current_device->device_lock";

void say_missing_record(const trace::Location& where, unsigned int index) {
    trace::error(where, "Error of open interface with number: %d", index);
}

constexpr InterfaceRequestTexts sending{"send_ssp_message_to_interface->", "send_ssp_message_to_interface->",
                                        registry::Missing::reported, say_missing_record};
constexpr InterfaceRequestTexts receiving{"receive_ssp_message_from_interface->",
                                          "receive_ssp_message_from_interface->", registry::Missing::reported,
                                          say_missing_record};

// The interface of a sound request, or null. Receiving names the sending function too: log filters know it so.
vx_device* open_interface(const trace::Location& where, InterfaceRequest& request, unsigned int interface_number) {
    if (request.is_sound() && interface_number == 0) {
        VX_INFO_AT(where, "Going to call lock_dev_and_send_ssp_message(data_size: %d)", request.data_size());
    }
    return request.interface(interface_number);
}

} // namespace

int lock_dev_and_send_ssp_message(vx_device* device, void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    if (!arguments::expect_all(VX_HERE, {"unsigned int len", length}, data, {"device *current_device", device})) {
        return scope.exit(-1);
    }
    const trace::Lock lock{device->device_lock, lock_name, scope.where()};
    return scope.exit(recover_after(__send_ssp_message(device, data, length), *device));
}

int lock_dev_and_receive_ssp_message(vx_device* device, void* data, unsigned int* length, unsigned int time_out,
                                     unsigned char legacy) {
    trace::Scope scope{VX_HERE};
    if (!arguments::expect_all(VX_HERE, {"*(unsigned int *len)", length == nullptr ? 0 : *length}, data,
                               {"device *current_device", device})) {
        return scope.exit(-1);
    }
    constexpr int command_queue = 2;
    const trace::Lock lock{device->device_lock, lock_name, scope.where()};
    return scope.exit(
        recover_after(__receive_ssp_message(device, data, length, time_out, legacy, command_queue), *device));
}

int core_send_ssp_message(unsigned int interface_number, void* data, int data_size) {
    trace::Scope scope{VX_HERE};
    InterfaceRequest request{scope.where(), sending, data, data_size};
    vx_device* interface = open_interface(scope.where(), request, interface_number);
    return scope.exit(request.checked(
        interface == nullptr ? -1 : lock_dev_and_send_ssp_message(interface, data, request.data_size())));
}

int core_receive_ssp_message(unsigned int interface_number, void* data, unsigned int* data_size,
                             unsigned int time_out) {
    trace::Scope scope{VX_HERE};
    InterfaceRequest request{scope.where(), receiving, data, data_size == nullptr ? 0 : static_cast<int>(*data_size)};
    vx_device* interface = open_interface(scope.where(), request, interface_number);
    return scope.exit(request.checked(
        interface == nullptr ? -1 : lock_dev_and_receive_ssp_message(interface, data, data_size, time_out, 0)));
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
