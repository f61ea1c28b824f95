#include "session/selection.hpp"

#include "pads/current_pad.hpp"
#include "session/removal.hpp"
#include "support/detached_thread.hpp"
#include "support/lock.hpp"
#include "vxpadcom/internals/process_state.h"
#include "vxpadcom/internals/registry.h"
#include "vxpadcom/internals/removal.h"

namespace selection {
namespace {

using device_list::Table;

constexpr const char* not_initialized = "dev_shared_short is NULL.. Use Initialize() first.";

// Whether a number names a pad that can be selected; says why not.
bool expect_selectable(const trace::Location& where, const Table& table, unsigned int device) {
    if (!device_list::expect_indexed(where, device)) {
        return false;
    }
    if (table.devices[device].pad_settings[0] == '\0') {
        trace::error(where, "Device %d has not pad settings data", device);
        return false;
    }
    return true;
}

// The core's answer. The list's lock, where this call has taken it, is released while the pad is reopened.
int ask_core(Table& table, unsigned int device, trace::Lock& list_lock) {
    const std::uint16_t former = table.current;
    table.current = static_cast<std::uint16_t>(device);
    table.core_may_disagree = false;
    const int result = current_pad::make_current(table.devices[device].pad_settings, list_lock);
    if (result != 0) {
        list_lock.lock();
        if (table.current == device) { // else another thread has selected meanwhile
            table.current = former;
            table.core_may_disagree = true;
        }
    }
    return result;
}

// set_dev_to_current() with the list locked. A negative core result is left in core_failure for the caller, who looks
// for a removal once the lock is free again.
int select_locked(const trace::Location& where, unsigned int device, ListLock list_locking, trace::Lock& list_lock,
                  vx_device** selected, int& core_failure) {
    Table* table = device_list::table();
    // A call that the tear-down does not wait for finds no list.
    if (table == nullptr || (list_locking == ListLock::take && !detached_thread::is_counted())) {
        trace::error(where, "%s", not_initialized);
        return -1;
    }
    // 16 passes and is then found not to be indexed.
    if (device > device_list::slots) {
        trace::error(where, "Error: incorrect device value: %d", static_cast<int>(device));
        return -1;
    }
    if (!expect_selectable(where, *table, device)) {
        return -1;
    }
    vx_device* pad = nullptr;
    if (list_locking == ListLock::already_held || table->current != device || table->core_may_disagree) {
        pad = device_list::find_record(device);
        const int result = ask_core(*table, device, list_lock);
        if (result < 0) {
            core_failure = result;
            return -1;
        }
        if (result == 1) {
            VX_INFO_AT(where, "No device %s for switching", table->devices[device].pad_settings);
            return result;
        }
        if (result != 0) {
            trace::error(where, "core_set_device_to_current() return unsupported value %d", result);
            return result;
        }
    } else {
        pad = current_pad::get();
    }
    if (selected != nullptr) {
        *selected = pad;
    }
    return 0;
}

void tell_failure(const trace::Location& where, int core_failure) {
    trace::error(where, "Error: core_set_device_to_current() return %d", core_failure);
}

} // namespace

int set_dev_to_current(unsigned int device, ListLock list_locking, vx_device** selected) {
    trace::Scope scope{VX_HERE};
    int core_failure = 0;
    int result;
    {
        trace::Lock lock{list_locking == ListLock::take ? &dev_list_short_lock : nullptr, "&dev_list_short_lock",
                         VX_HERE};
        result = select_locked(scope.where(), device, list_locking, lock, selected, core_failure);
    }
    if (core_failure < 0) {
        if (list_locking == ListLock::take) {
            // Behind the lock: the application's callback may ask for the list.
            catch_removing_device(core_failure, device, 0);
        }
        tell_failure(scope.where(), core_failure);
    }
    return scope.exit(result);
}

int set_served_dev_to_current(unsigned int device, unsigned int interface_number) {
    trace::Scope scope{VX_HERE_AS("set_dev_to_current")};
    int result = 0;
    core_catch_is_dev_was_removed(&result);
    if (result < 0) {
        catch_removing_device(result, device, interface_number);
        tell_failure(scope.where(), result);
        result = -1;
    }
    return scope.exit(result);
}

int get_current_dev() {
    trace::Scope scope{VX_HERE};
    VX_LOCK(lock, &dev_list_short_lock);
    const Table* table = device_list::table();
    if (table == nullptr) {
        VX_ERROR("%s", not_initialized);
        return scope.exit(-1);
    }
    const unsigned int current = table->current;
    if (!expect_selectable(scope.where(), *table, current)) {
        return scope.exit(-1);
    }
    VX_INFO("Current device: %d, pad_settings: %s", current, table->devices[current].pad_settings);
    return scope.exit(static_cast<int>(current));
}

} // namespace selection
