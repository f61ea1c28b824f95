#include "session/receive_thread.hpp"

#include "pads/current_pad.hpp"
#include "session/call.hpp"
#include "session/selection.hpp"
#include "support/detached_thread.hpp"
#include "support/memory.hpp"
#include "support/owners.hpp"
#include "support/pausing.hpp"
#include "support/result.hpp"
#include "support/timer_slack.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/biodata_switch.h"
#include "vxpadcom/internals/control_requests.h"
#include "vxpadcom/internals/discovery.h"
#include "vxpadcom/internals/process_state.h"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/ssp_requests.h"
#include "vxpadcom/internals/uni_queue.h"
#include "vxpadcom/internals/wrapunix.h"
#include "vxpadcom/vxpadcom.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <unistd.h>

using interface_state::Interface;

namespace receive_thread {
namespace {

constexpr useconds_t read_pause_us = 500;
constexpr useconds_t error_pause_us = 900'000;

// Memory that the queue takes over.
struct Report {
    Owned<unsigned char> bytes;
    unsigned int length = 0;
};

// One report of the thread's own pad, without a report-id byte; length stays 0 where none was waiting.
int read_file(unsigned int device, unsigned int interface_number, Report& report) {
    Call call{VX_HERE};
    if (const int failed = call.select_served(device, interface_number)) {
        return call.exit(failed);
    }
    const int size = core_get_max_packet_size_of_input_report();
    if (size < 0) {
        return call.exit(call.core_failed(size, "core_get_max_packet_size_of_input_report()", Call::no_packet_size,
                                          device, interface_number));
    }
    if (!report.bytes) {
        report.bytes.reset(static_cast<unsigned char*>(
            Calloc(1, std::max(interface_state::data_size, static_cast<std::size_t>(size)))));
    }
    const int result = core_get_hid_input_report(interface_number, report.bytes.get(), size);
    if (result == size) {
        report.length = static_cast<unsigned int>(size);
    } else if (result != 0) {
        return call.exit(
            call.core_failed(result, "core_get_hid_input_report()", Call::no_input_report, device, interface_number));
    }
    return call.exit(0);
}

// Reads once, queues what came and pauses.
void poll(const trace::Location& where, const ReceiveThread& thread, Report& report, timer_slack::Rest& rest) {
    if (const int result = read_file(thread.device, thread.interface_number, report); result != 0) {
        trace::error(where, "ReadFile() return exception %d", result);
        pausing::take(error_pause_us);
        return;
    }
    rest.note(report.length > 0);
    if (report.length > 0) {
        if (add_uni_frame(thread.queue, report.bytes.get(), report.length) == 1) {
            static_cast<void>(report.bytes.release());
        } else {
            trace::error(where, "Error of add new frame to queue");
        }
        report = {};
    }
    const timer_slack::Wide slack{rest.has_begun()};
    usleep(read_pause_us);
}

struct PenDataSwitch {
    int (*core)();
    const char* core_name;
    const char* success;
};
constexpr PenDataSwitch pen_data_on{core_enable_ssp_biodata_sending, "core_enable_ssp_biodata_sending()",
                                    "Sending of SSP Biodata was enabled"};
constexpr PenDataSwitch pen_data_off{core_disable_ssp_biodata_sending, "core_disable_ssp_biodata_sending()",
                                     "Sending of SSP Biodata was disabled"};

enum class Removal { to_be_told, told };

Removal switch_pen_data(Call& call, const ReceiveThread& thread, const PenDataSwitch& to, Removal removal) {
    const int result = to.core();
    if (result >= 0) {
        VX_INFO_AT(call.where(), "%s", to.success);
        return removal;
    }
    constexpr const char* failure = "Error of send ssp message for device: ";
    if (removal == Removal::told) {
        trace::error(call.where(), "Error, function %s return %d", to.core_name, result);
        call.fail(VXPCEC_INVALID_HANDLE, failure, static_cast<int>(thread.device));
    } else {
        call.core_failed(result, to.core_name, failure, thread.device, thread.interface_number);
    }
    return result == result::removed ? Removal::told : removal;
}

unsigned long queued(uni_queue* queue) {
    quiet_lock_queue(queue);
    const int size = get_uni_queue_size(queue);
    quiet_unlock_queue(queue);
    return static_cast<unsigned long>(size);
}

void start_routine(ReceiveThread& thread) {
    Call call{VX_HERE};
    Removal removal = Removal::to_be_told;
    if (selection::set_dev_to_current(thread.device, selection::ListLock::take) != 0 &&
        record::was_removed(thread.pad)) {
        removal = Removal::told; // of the pad, and perhaps to another interface's thread only
        thread.running = 0;
    }
    const current_pad::Serve own{&thread.pad};
    core_clear_ssp_input_queue();
    __core_reopen_devs();
    VX_INFO("the queue size before starting thread is: %lu", queued(thread.queue));
    {
        const current_pad::KeepOpen keep_open{thread.pad, thread.interface_number};
        removal = switch_pen_data(call, thread, pen_data_on, removal);
        thread.started.give();
        timer_slack::Rest rest;
        for (Report report; thread.running.load() != 0;) {
            poll(VX_HERE, thread, report, rest);
        }
    }
    thread.left_loop.give();
    switch_pen_data(call, thread, pen_data_off, removal);
}

thread_local const ReceiveThread* own_thread = nullptr; // what the calling thread runs, where it is one of these

void run(ReceiveThread* argument) {
    const std::shared_ptr<ReceiveThread> thread = std::move(argument->self);
    own_thread = thread.get();
    start_routine(*thread);
    thread->ended.give();
}

std::shared_ptr<ReceiveThread> look(const trace::Location& where, Interface& interface,
                                    std::shared_ptr<ReceiveThread> Interface::*which) {
    trace::Lock lock{&interface.info_lock, interface_state::info_lock_name, where};
    return interface.*which;
}

enum class Started { yes, no, meanwhile_by_another };

// With dev_list_short_lock held. The thread is known before it runs: a removal that it finds as it starts stops it.
Started start(const trace::Location& where, unsigned int device, unsigned int interface_number,
              std::shared_ptr<ReceiveThread>& thread) {
    if (!interface_state::is_open()) {
        return Started::no;
    }
    // 16 passes and is then found not to be indexed.
    if (device > device_list::slots) {
        trace::error(where, "Error: incorrect device value: %d", static_cast<int>(device));
        return Started::no;
    }
    if (!device_list::expect_indexed(where, device)) {
        return Started::no;
    }
    Interface* interface = interface_state::find(device, interface_number);
    if (interface == nullptr) {
        trace::error(where, "Error: incorrect interface_number value: %d", static_cast<int>(interface_number));
        return Started::no;
    }
    vx_device* pad = device_list::find_record(device);
    if (pad == nullptr) {
        trace::error(where, "Device %d has not pad settings data", static_cast<int>(device));
        return Started::no;
    }
    if (interface->uqueue == nullptr) {
        interface->uqueue = init_uni_queue();
        if (interface->uqueue == nullptr) {
            return Started::no; // the reports would go nowhere
        }
    }
    {
        trace::Lock lock{&interface->info_lock, interface_state::info_lock_name, where};
        if (interface->receiving || (interface->leaving && !interface->leaving->ended.is_given())) {
            return Started::meanwhile_by_another;
        }
        interface->leaving.reset();
        thread = checked::make_shared<ReceiveThread>(*pad, interface->uqueue, device, interface_number);
        interface->receiving = thread;
        ++interface->starts;
    }
    thread->self = thread;
    if (detached_thread::start<run>(thread.get()) == 0) {
        return Started::yes;
    }
    trace::error(where, "error of pthread_create() or pthread_attr_destroy()");
    thread->self.reset();
    for (OneShot* signal : {&thread->started, &thread->left_loop, &thread->ended}) {
        signal->give(); // another thread may wait already
    }
    trace::Lock lock{&interface->info_lock, interface_state::info_lock_name, where};
    if (interface->receiving == thread) {
        interface->receiving.reset();
    }
    return Started::no;
}

// Whether a number may have a receive thread; says why not.
bool expect_stoppable(const trace::Location& where, unsigned int device) {
    trace::Lock lock{&dev_list_short_lock, "&dev_list_short_lock", where};
    if (device_list::table() == nullptr) {
        return false;
    }
    if (device > device_list::slots) {
        trace::error(where, "Error: incorrect device value: %d", static_cast<int>(device));
        return false;
    }
    return device < device_list::slots && device_list::table()->devices[device].indexed != 0;
}

// Takes the thread out of its interface and waits until it reads no more. Without the list's lock: the thread may be
// inside a callback that asks for the list. False where the thread was not to be stopped, or another caller stopped it.
bool reap(const trace::Location& where, Interface& interface, std::optional<unsigned int> last_start) {
    std::shared_ptr<ReceiveThread> thread;
    bool taken = false;
    {
        trace::Lock lock{&interface.info_lock, interface_state::info_lock_name, where};
        if (last_start && interface.starts != *last_start) {
            return false;
        }
        taken = interface.receiving != nullptr;
        if (taken) {
            interface.leaving = std::move(interface.receiving);
        }
        thread = interface.leaving;
    }
    if (!thread) {
        return true;
    }
    const bool by_another = !taken && !thread->left_loop.is_given();
    thread->running = 0;
    if (thread.get() == own_thread) {
        return true; // inside a callback that the thread runs: it leaves its loop behind that
    }
    thread->left_loop.wait();
    if (by_another) {
        VX_INFO_AT(where, "other therad was here, silent return from %s()...", where.function);
    }
    return !by_another;
}

} // namespace

int start_thread(unsigned int device, unsigned int interface_number) {
    trace::Scope scope{VX_HERE};
    if (own_thread != nullptr && own_thread->device == device && own_thread->interface_number == interface_number) {
        VX_ERROR("receiving cannot be started by a callback that its own thread runs");
        return scope.exit(-1);
    }
    for (;;) {
        stop_thread(device, interface_number);
        flush_data_packets(device, interface_number);
        // A predecessor that switches pen data off must not do so behind the start.
        if (Interface* interface = interface_state::find(device, interface_number)) {
            if (const auto predecessor = look(VX_HERE, *interface, &Interface::leaving)) {
                predecessor->ended.wait();
            }
        }
        std::shared_ptr<ReceiveThread> thread;
        Started started;
        {
            VX_LOCK(list_lock, &dev_list_short_lock);
            started = start(scope.where(), device, interface_number, thread);
        }
        if (started == Started::yes) {
            thread->started.wait();
            return scope.exit(0);
        }
        if (started == Started::no) {
            return scope.exit(-1);
        }
    }
}

void stop_thread(unsigned int device, unsigned int interface_number, std::optional<unsigned int> last_start) {
    trace::Scope scope{VX_HERE};
    if (!expect_stoppable(scope.where(), device)) {
        return;
    }
    Interface* interface = interface_state::find(device, interface_number);
    if (interface == nullptr) {
        VX_ERROR("Error: incorrect interface_number value: %d", static_cast<int>(interface_number));
        return;
    }
    if (reap(scope.where(), *interface, last_start)) {
        clear_pen_data(scope.where(), device);
    }
}

void stop_all(const trace::Location& where) {
    struct Number {
        unsigned int device;
        unsigned int interface_number;
    };
    std::array<Number, std::size_t{device_list::slots} * interface_state::interfaces> numbers;
    std::size_t count = 0;
    {
        trace::Lock list_lock{&dev_list_short_lock, "&dev_list_short_lock", where};
        interface_state::for_each([&](unsigned int device, unsigned int interface_number, const Interface& interface) {
            if (interface.uqueue != nullptr) {
                numbers[count++] = {device, interface_number};
            }
        });
    }
    const std::span used{numbers.data(), count};
    for (const auto [device, interface_number] : used) {
        interface_state::ask_to_stop(device, interface_number); // so that their pauses pass together
    }
    for (const auto [device, interface_number] : used) {
        stop_thread(device, interface_number);
        flush_data_packets(device, interface_number);
    }
}

int flush_data_packets(unsigned int device, unsigned int interface_number) {
    trace::Scope scope{VX_HERE};
    {
        VX_LOCK(list_lock, &dev_list_short_lock);
        const Interface* interface = interface_state::find(device, interface_number);
        if (device_list::table() != nullptr && interface != nullptr && interface->uqueue != nullptr) {
            quiet_lock_queue(interface->uqueue);
            VX_INFO("Going to clear queue for device: %d, interface: %d", device, interface_number);
            clear_uni_queue(interface->uqueue);
            quiet_unlock_queue(interface->uqueue);
        }
    }
    clear_pen_data(VX_HERE, device);
    return scope.exit(0);
}

void clear_pen_data(const trace::Location& where, unsigned int device) {
    vx_device* pad = nullptr;
    std::optional<detached_thread::Counted> counted;
    {
        trace::Lock list_lock{&dev_list_short_lock, "&dev_list_short_lock", where};
        pad = interface_state::is_open() ? device_list::find_record(device) : nullptr;
        if (pad == nullptr) {
            return;
        }
        counted.emplace();
    }
    const current_pad::Serve own{pad};
    core_clear_ssp_input_queue();
}

} // namespace receive_thread
