#include "session/interface_state.hpp"

#include "support/detached_thread.hpp"

#include <cstddef>
#include <new>
#include <utility>

namespace interface_state {
namespace {

// Never destroyed: a process may end while threads are still receiving.
alignas(Interface) std::byte room[sizeof(Interface[device_list::slots][interfaces])];
Interface (*const states)[interfaces] = new (room) Interface[device_list::slots][interfaces];

} // namespace

Interface* find(unsigned int device, unsigned int interface_number) {
    return device < device_list::slots && interface_number < interfaces ? &states[device][interface_number] : nullptr;
}

void ask_to_stop(unsigned int device, unsigned int interface_number) {
    trace::Scope scope{VX_HERE_AS("__stop_thread")};
    if (device_list::table() == nullptr) {
        return;
    }
    if (device > device_list::slots) {
        trace::error(scope.where(), "Error: incorrect device value: %d", static_cast<int>(device));
        return;
    }
    if (Interface* interface = find(device, interface_number)) {
        trace::Lock lock{&interface->info_lock, info_lock_name, scope.where()};
        if (interface->receiving) {
            interface->receiving->running = 0;
        }
    }
}

void open() {
    detached_thread::open();
}
void close() {
    detached_thread::close();
}
bool is_open() {
    return detached_thread::is_open();
}

void forget_callbacks(const trace::Location& where) {
    for_each([&](unsigned int, unsigned int, Interface& interface) {
        if (interface.processing_input_report.callback != nullptr || interface.pirc_routine_running) {
            trace::Lock lock{&interface.processing_input_report_callback_lock, callback_lock_name, where};
            interface.processing_input_report = {};
        }
    });
}

void clear(const trace::Location& where) {
    for_each([&](unsigned int, unsigned int, Interface& interface) {
        if (interface.uqueue != nullptr) {
            destroy_uni_queue(std::exchange(interface.uqueue, nullptr));
        }
        interface.pirc_routine_running = false; // whatever was left over of a thread that has gone
        if (interface.starts != 0) {
            trace::Lock lock{&interface.info_lock, info_lock_name, where};
            interface.receiving.reset();
            interface.leaving.reset();
            interface.starts = 0;
        }
    });
}

} // namespace interface_state
