#include "session/interface_state.hpp"

#include <cstddef>
#include <new>
#include <utility>

namespace interface_state {
namespace {

// Never destroyed: a process may end while threads are still receiving.
alignas(Interface) std::byte room[sizeof(Interface[device_list::slots][interfaces])];
Interface (*const states)[interfaces] = new (room) Interface[device_list::slots][interfaces];

bool opened = false; // guarded by dev_list_short_lock

} // namespace

Interface* find(unsigned int device, unsigned int interface_number) {
    return device < device_list::slots && interface_number < interfaces ? &states[device][interface_number] : nullptr;
}

void open() {
    opened = true;
}
void close() {
    opened = false;
}
bool is_open() {
    return opened;
}

void forget_callbacks(trace::Location where) {
    for_each([&](unsigned int, unsigned int, Interface& interface) {
        trace::Lock lock{&interface.processing_input_report_callback_lock, callback_lock_name, where};
        interface.processing_input_report_callback = nullptr;
    });
}

void clear(trace::Location where) {
    for_each([&](unsigned int, unsigned int, Interface& interface) {
        if (interface.uqueue != nullptr) {
            destroy_uni_queue(std::exchange(interface.uqueue, nullptr));
        }
        interface.user_specific = nullptr;
        trace::Lock lock{&interface.info_lock, info_lock_name, where};
        interface.info.reset();
        interface.leaving.reset();
    });
}

} // namespace interface_state
