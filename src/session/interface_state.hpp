// What the application's side keeps for each interface of each pad: its receive thread, its queue, its callback.
#pragma once

#include "session/device_list.hpp"
#include "support/callback_pair.hpp"
#include "support/one_shot.hpp"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/uni_queue.h"
#include "vxpadcom/vxpadcom.h"

#include <atomic>
#include <memory>

// A receive thread's record. It is freed when the thread has left and nobody waits for one of its signals any more.
struct ReceiveThread {
    ReceiveThread(vx_device& its_pad, uni_queue* its_queue, unsigned int its_device, unsigned int its_interface)
        : pad{its_pad}, queue{its_queue}, device{its_device}, interface_number{its_interface} {}

    vx_device& pad;
    uni_queue* queue;
    unsigned int device;
    unsigned int interface_number;
    std::atomic<std::uint32_t> running{1};
    OneShot started;                     // pen data has been switched on
    OneShot left_loop;                   // no further report is read
    OneShot ended;                       // pen data has been switched off
    std::shared_ptr<ReceiveThread> self; // until the thread takes it over
};

namespace interface_state {

constexpr unsigned int interfaces = 8;

// Bytes that a data callback is given, and that every queued report therefore has room for.
constexpr std::size_t data_size = 64;

// Order of the locks, outermost first: dev_list_short_lock, the callback's, info_lock.
struct Interface {
    // Guards the receive threads. No call is made while it is held.
    pthread_mutex_t info_lock = PTHREAD_MUTEX_INITIALIZER;
    std::shared_ptr<ReceiveThread> receiving; // stays when the thread ended by itself, until it is stopped
    std::shared_ptr<ReceiveThread> leaving;   // stopped before it, and perhaps not yet gone
    unsigned int starts = 0;                  // how many threads there were

    uni_queue* uqueue = nullptr; // from the first start to the tear-down

    // Guards the callback with what it is given, and which receive thread its absence stops.
    pthread_mutex_t processing_input_report_callback_lock = PTHREAD_MUTEX_INITIALIZER;
    CallbackPair<vxpad_data_callback>::Pair processing_input_report;
    unsigned int stopped_start = 0; // the value of `starts` when the callback was taken away
    bool pirc_routine_running = false;
};

// Names of the locks in trace lines.
constexpr const char* info_lock_name = "&(dev_shared_short->devices[device].interfaces[interface_number].info_lock)";
constexpr const char* callback_lock_name =
    "&(dev_shared_short->devices[device].interfaces[interface_number].processing_input_report_callback_lock)";

// Null where there is no such interface.
Interface* find(unsigned int device, unsigned int interface_number);

// Asks the interface's receive thread to end, from any thread, itself included, and does not wait.
void ask_to_stop(unsigned int device, unsigned int interface_number);

// Threads are started and calls that use a pad let in between open() and close() only, all with dev_list_short_lock
// held.
void open();
void close();
bool is_open();

// For the tear-down, with dev_list_short_lock held: callback threads end for want of a callback; when all threads have
// left, what they used is freed.
void forget_callbacks(const trace::Location& where);
void clear(const trace::Location& where);

// Runs use(device, interface_number, interface) on every one.
template <typename Use> void for_each(Use use) {
    for (unsigned int device = 0; device < device_list::slots; ++device) {
        for (unsigned int interface_number = 0; interface_number < interfaces; ++interface_number) {
            use(device, interface_number, *find(device, interface_number));
        }
    }
}

} // namespace interface_state
