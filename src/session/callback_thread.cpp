#include "session/callback_thread.hpp"

#include "session/receive_thread.hpp"
#include "support/detached_thread.hpp"
#include "support/memory.hpp"
#include "support/one_shot.hpp"
#include "support/owners.hpp"
#include "vxpadcom/internals/process_state.h"
#include "vxpadcom/internals/uni_queue.h"
#include "vxpadcom/vxpadcom.h"

#include <algorithm>
#include <optional>
#include <unistd.h>

using interface_state::Interface;

namespace callback_thread {
namespace {

constexpr useconds_t no_queue_pause_us = 500'000;
constexpr useconds_t first_delay_us = 1'500; // while the queue is empty; as much longer each time
constexpr useconds_t longest_delay_us = 300'000;

struct CallbackThread {
    unsigned int device;
    unsigned int interface_number;
    OneShot started;
    std::shared_ptr<CallbackThread> self; // until the thread takes it over
};

// One frame for the application, and whom it was for when it was taken.
struct Delivery {
    CallbackPair<vxpad_data_callback>::Pair to;
    unsigned char block[interface_state::data_size] = {};
};

// What a pass of the loop found.
struct Pass {
    bool is_last = false;
    unsigned int stopped_start = 0; // by the last pass
    std::optional<Delivery> delivery;
    useconds_t pause_us = 0;
};

std::optional<Delivery> take_frame(const Interface& interface) {
    unsigned int length = 0;
    const Owned<unsigned char> frame{static_cast<unsigned char*>(get_uni_frame(interface.uqueue, &length))};
    if (!frame || length == 0) {
        return std::nullopt;
    }
    Delivery delivery{interface.processing_input_report};
    // A frame's buffer is never smaller than the block, and zero behind its report.
    std::copy_n(frame.get(), interface_state::data_size, delivery.block);
    return delivery;
}

Pass look_at(const trace::Location& where, Interface& interface, useconds_t& delay) {
    trace::begin_round();
    trace::Lock list_lock{&dev_list_short_lock, "&dev_list_short_lock", where};
    trace::Lock callback_lock{&interface.processing_input_report_callback_lock, interface_state::callback_lock_name,
                              where};
    Pass pass;
    if (interface.processing_input_report.callback == nullptr) {
        VX_INFO_AT(where, "processing_input_report_callback == NULL: %d", 1);
        pass.is_last = true;
        pass.stopped_start = interface.stopped_start;
        interface.pirc_routine_running = false;
        return pass;
    }
    if (interface.uqueue == nullptr) {
        pass.pause_us = no_queue_pause_us;
        return pass;
    }
    quiet_lock_queue(interface.uqueue);
    if (get_uni_queue_size(interface.uqueue) < 1) {
        pass.pause_us = delay;
        if (delay < longest_delay_us) {
            delay += first_delay_us;
        }
    } else if ((pass.delivery = take_frame(interface))) {
        delay = first_delay_us;
    } else {
        pass.pause_us = no_queue_pause_us;
    }
    quiet_unlock_queue(interface.uqueue);
    return pass;
}

// SetDataReceivingEnabled(device, interface_number, 0), but for a receive thread that was started meanwhile.
void stop_receiving(const CallbackThread& thread, unsigned int stopped_start) {
    trace::Scope scope{VX_HERE_AS("SetDataReceivingEnabled")};
    VX_INFO_AT(scope.where(), "SetDataReceivingEnabled(%d, %d, %d)", thread.device, thread.interface_number, 0);
    receive_thread::stop_thread(thread.device, thread.interface_number, stopped_start);
    scope.exit(0);
}

void pirc_routine(CallbackThread& thread) {
    trace::Scope scope{VX_HERE};
    thread.started.give();
    Interface& interface = *interface_state::find(thread.device, thread.interface_number);
    for (useconds_t delay = first_delay_us;;) {
        const Pass pass = look_at(VX_HERE, interface, delay);
        if (pass.is_last) {
            stop_receiving(thread, pass.stopped_start);
            return;
        }
        if (pass.delivery) {
            const auto [callback, user_specific] = pass.delivery->to;
            callback(user_specific, thread.device, thread.interface_number, pass.delivery->block,
                     interface_state::data_size);
        } else {
            usleep(pass.pause_us);
        }
    }
}

void run(CallbackThread* argument) {
    const std::shared_ptr<CallbackThread> thread = std::move(argument->self);
    pirc_routine(*thread);
}

} // namespace

int start(unsigned int device, unsigned int interface_number) {
    const auto thread = checked::make_shared<CallbackThread>();
    thread->device = device;
    thread->interface_number = interface_number;
    thread->self = thread;
    if (const int failed = detached_thread::start<run>(thread.get())) {
        thread->self.reset();
        return failed;
    }
    thread->started.wait();
    return 0;
}

} // namespace callback_thread
