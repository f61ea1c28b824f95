// Pen data as it comes: a receive thread and a callback thread for each interface that the application asks for.
#include "session/call.hpp"
#include "session/callback_thread.hpp"
#include "session/receive_thread.hpp"
#include "support/text.hpp"
#include "vxpadcom/internals/process_state.h"
#include "vxpadcom/internals/uni_queue.h"
#include "vxpadcom/vxpadcom.h"

namespace {

using interface_state::Interface;

// Whether the numbers name an interface record; dev_list_short_lock is held. 0 or a record's handle.
int require_interface(Call& call, unsigned int device, unsigned int interface_number) {
    if (!interface_state::is_open()) {
        return call.fail(VXPCEC_INVALID_PARAMETER, Call::not_initialized);
    }
    if (device >= device_list::slots) {
        return call.fail(VXPCEC_INVALID_HANDLE, "Incorrect input value device: ", static_cast<int>(device));
    }
    if (interface_number >= interface_state::interfaces) {
        return call.fail(VXPCEC_INVALID_HANDLE,
                         "Incorrect input value interface_number: ", static_cast<int>(interface_number));
    }
    return 0;
}

void set_callback(const trace::Location& where, Interface& interface, vxpad_data_callback callback,
                  void* user_specific) {
    interface.processing_input_report = {callback, user_specific};
    if (callback == nullptr) {
        trace::Lock lock{&interface.info_lock, interface_state::info_lock_name, where};
        interface.stopped_start = interface.starts;
    }
    VX_INFO_AT(where, "Pointer %p with user_specific %p was set like callback for receive input reports",
               reinterpret_cast<void*>(callback), user_specific);
}

int set_handler(Call& call, unsigned int device, unsigned int interface_number, vxpad_data_callback callback,
                void* user_specific) {
    trace::Lock list_lock{&dev_list_short_lock, "&dev_list_short_lock", call.where()};
    if (const int failed = require_interface(call, device, interface_number)) {
        return failed;
    }
    Interface& interface = *interface_state::find(device, interface_number);
    trace::Lock callback_lock{&interface.processing_input_report_callback_lock, interface_state::callback_lock_name,
                              call.where()};
    set_callback(call.where(), interface, callback, user_specific);
    if (interface.pirc_routine_running) {
        VX_INFO_AT(call.where(), "receive input report thread already started ");
        return 0;
    }
    interface.pirc_routine_running = true; // before the thread can say that it ends
    if (callback_thread::start(device, interface_number) != 0) {
        interface.pirc_routine_running = false;
        return call.fail(VXPCEC_INVALID_PARAMETER, " Error of starting thread of processing frames by callback call");
    }
    return 0;
}

int count_packets(Call& call, unsigned int device, unsigned int interface_number, unsigned int* result) {
    if (result == nullptr) {
        return call.fail(VXPCEC_INVALID_PARAMETER, "Error of input parameters, unsigned int *result is NULL");
    }
    trace::Lock list_lock{&dev_list_short_lock, "&dev_list_short_lock", call.where()};
    if (const int failed = require_interface(call, device, interface_number)) {
        return failed;
    }
    // Without a queue *result stays as it is: receiving was never enabled.
    if (uni_queue* queue = interface_state::find(device, interface_number)->uqueue) {
        quiet_lock_queue(queue);
        *result = static_cast<unsigned int>(get_uni_queue_size(queue));
        quiet_unlock_queue(queue);
        VX_INFO_AT(call.where(), "OUTPUT: *result: %d", *result);
    }
    return 0;
}

} // namespace

int SetOnDataReceivedHandler(unsigned int device, unsigned int interface_number, vxpad_data_callback callback,
                             void* user_specific) {
    Call call{VX_HERE};
    return call.exit(set_handler(call, device, interface_number, callback, user_specific));
}

int SetDataReceivingEnabled(unsigned int device, unsigned int interface_number, unsigned int enabled) {
    Call call{VX_HERE};
    VX_INFO("SetDataReceivingEnabled(%d, %d, %d)", device, interface_number, enabled);
    if (enabled == 0) {
        receive_thread::stop_thread(device, interface_number);
        return call.exit(0);
    }
    receive_thread::clear_pen_data(VX_HERE, device);
    if (receive_thread::start_thread(device, interface_number) != 0) {
        char message[256];
        text::print(message, "Error of starting thread of data receiving for device/end_point_id: %d/%d", device,
                    interface_number);
        call.fail(VXPCEC_UNKNOWN, message);
        return call.exit(-1); // not the record's handle: applications have come to expect it
    }
    return call.exit(0);
}

int GetDataPacketsAvailable(unsigned int device, unsigned int interface_number, unsigned int* result) {
    Call call{VX_HERE};
    return call.exit(count_packets(call, device, interface_number, result));
}

int FlushDataPackets(unsigned int device, unsigned int interface_number) {
    Call call{VX_HERE};
    {
        VX_LOCK(list_lock, &dev_list_short_lock);
        if (const int failed = require_interface(call, device, interface_number)) {
            return call.exit(failed);
        }
    }
    receive_thread::flush_data_packets(device, interface_number);
    return call.exit(0);
}
