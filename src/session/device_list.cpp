#include "session/device_list.hpp"

#include "pads/current_pad.hpp"
#include "support/detached_thread.hpp"

#include <algorithm>
#include <atomic>
#include <cstring>

pthread_mutex_t dev_list_short_lock = PTHREAD_MUTEX_INITIALIZER;

namespace device_list {
namespace {

Table dev_shared_short_storage;
Table* dev_shared_short = nullptr;

constexpr const char* not_initialized = "dev_shared_short is NULL.. Use Initialize() first.";

constexpr int most_pads = slots - 1;

// Whether a number names a pad that can be selected; says why not.
bool is_selectable(trace::Location where, unsigned int device) {
    if (!is_indexed(where, device)) {
        return false;
    }
    if (dev_shared_short->devices[device].pad_settings[0] == '\0') {
        trace::error(where, "Device %d has not pad settings data", device);
        return false;
    }
    return true;
}

// Indexes the core's current pad under a number. False ends the indexing.
bool index_current(trace::Location where, int number) {
    char settings[256] = {};
    const int length = core_get_pad_settings(settings);
    if (length < 1) {
        trace::error(where, "Error: core_get_pad_settings(buffer) return %d", length);
        return false;
    }
    Device& device = dev_shared_short->devices[number];
    std::memcpy(device.pad_settings, settings, static_cast<std::size_t>(std::min(length + 1, 255)));
    device.indexed = 1;
    ++dev_shared_short->count;
    VX_INFO_AT(where, "libvxpadcom: Indexed pad: %s", device.pad_settings);
    return true;
}

// False where the core has no further pad.
bool advance_core(trace::Location where) {
    const int result = core_set_device_to_current(nullptr);
    if (result == 0) {
        return true;
    }
    if (result == 1) {
        VX_INFO_AT(where, "No any devices for switching");
    } else if (result < 0) {
        trace::error(where, "Error: core_set_device_to_current(NULL) return %d", result);
    } else {
        trace::error(where, "core_set_device_to_current(NULL) return unsupported value %d", result);
    }
    return false;
}

// set_dev_to_current() with the list locked. A negative core result is left in core_failure for the caller, who looks
// for a removal once the lock is free again.
int switch_to(trace::Location where, unsigned int device, ListLock list_lock, int& core_failure) {
    // A call that the tear-down does not wait for finds no list.
    if (dev_shared_short == nullptr || (list_lock == ListLock::take && !detached_thread::is_counted())) {
        trace::error(where, "%s", not_initialized);
        return -1;
    }
    // 16 passes and is then found not to be indexed.
    if (device > slots) {
        trace::error(where, "Error: incorrect device value: %d", static_cast<int>(device));
        return -1;
    }
    if (!is_selectable(where, device)) {
        return -1;
    }
    if (list_lock == ListLock::take && dev_shared_short->current == device && !dev_shared_short->core_may_disagree) {
        return 0;
    }
    const char* settings = dev_shared_short->devices[device].pad_settings;
    const int result = core_set_device_to_current(settings);
    dev_shared_short->core_may_disagree = result != 0;
    if (result < 0) {
        core_failure = result;
        return -1;
    }
    if (result == 0) {
        dev_shared_short->current = static_cast<std::uint16_t>(device);
    } else if (result == 1) {
        VX_INFO_AT(where, "No device %s for switching", settings);
    } else {
        trace::error(where, "core_set_device_to_current() return unsupported value %d", result);
    }
    return result;
}

void report_failure(trace::Location where, int core_failure, unsigned int device, unsigned int interface_number) {
    catch_removing_device(core_failure, device, interface_number);
    trace::error(where, "Error: core_set_device_to_current() return %d", core_failure);
}

} // namespace

bool is_indexed(trace::Location where, unsigned int device) {
    if (device >= slots || dev_shared_short->devices[device].indexed == 0) {
        trace::error(where, "Device %d is not indexed", static_cast<int>(device));
        return false;
    }
    return true;
}

vx_device* find_record(unsigned int device) {
    return dev_shared_short != nullptr && device < slots
               ? current_pad::find(dev_shared_short->devices[device].pad_settings)
               : nullptr;
}

Table* table() {
    return std::atomic_ref{dev_shared_short}.load();
}

void create() {
    std::atomic_ref{dev_shared_short}.store(&dev_shared_short_storage);
}

void destroy() {
    if (dev_shared_short != nullptr) {
        *dev_shared_short = {};
        std::atomic_ref{dev_shared_short}.store(nullptr);
    }
}

int looking_for_device() {
    trace::Scope scope{VX_HERE};
    VX_INFO("sizeof(wchar_t): %d", static_cast<int>(sizeof(char16_t)));
    if (dev_shared_short == nullptr) {
        VX_ERROR("dev_shared_short is NULL... do Initialize() first");
        return scope.exit(-1);
    }
    *dev_shared_short = {};
    int found = core_looking_for_devices();
    if (found < 0) {
        VX_ERROR("Error, function core_looking_for_devices() return %d", found);
        return scope.exit(-1);
    }
    if (found == 0) {
        VX_INFO("Devices not found!");
        return scope.exit(0);
    }
    VX_INFO("Was found %d devices", found);
    if (found > most_pads) {
        VX_ERROR("%d devices were found, only the first %d can be used", found, most_pads);
        found = most_pads;
    }
    dev_shared_short->devices[0].indexed = 1;

    int processed = 0;
    while (processed < found && index_current(VX_HERE, processed + 1)) {
        ++processed;
        if (!advance_core(VX_HERE)) {
            break;
        }
    }
    if (processed != found) {
        VX_ERROR("Count of founded devices is %d, but was processed %d", found, processed);
        return scope.exit(-1);
    }
    if (const int result = set_dev_to_current(1, ListLock::already_held); result != 0) {
        VX_ERROR("Static function set_dev_to_current() was return %d", result);
        VX_ERROR("Error of switching device %d to current", 1);
        return scope.exit(-1);
    }
    VX_INFO("Was switched to device: %d", 1);
    return scope.exit(found);
}

int set_dev_to_current(unsigned int device, ListLock list_lock, vx_device** selected) {
    trace::Scope scope{VX_HERE};
    int core_failure = 0;
    int result;
    {
        trace::Lock lock{list_lock == ListLock::take ? &dev_list_short_lock : nullptr, "&dev_list_short_lock", VX_HERE};
        result = switch_to(scope.where(), device, list_lock, core_failure);
        if (result == 0 && selected != nullptr) {
            *selected = current_pad::get();
        }
    }
    if (core_failure < 0) {
        // Behind the lock: the application's callback may ask for the list.
        report_failure(scope.where(), core_failure, device, 0);
    }
    return scope.exit(result);
}

int set_served_dev_to_current(unsigned int device, unsigned int interface_number) {
    trace::Scope scope{trace::here(__FILE_NAME__, __LINE__, "set_dev_to_current")};
    int result = 0;
    core_catch_is_dev_was_removed(&result);
    if (result < 0) {
        report_failure(scope.where(), result, device, interface_number);
        result = -1;
    }
    return scope.exit(result);
}

int get_current_dev() {
    trace::Scope scope{VX_HERE};
    VX_LOCK(lock, &dev_list_short_lock);
    if (dev_shared_short == nullptr) {
        VX_ERROR("%s", not_initialized);
        return scope.exit(-1);
    }
    const unsigned int current = dev_shared_short->current;
    if (!is_selectable(scope.where(), current)) {
        return scope.exit(-1);
    }
    VX_INFO("Current device: %d, pad_settings: %s", current, dev_shared_short->devices[current].pad_settings);
    return scope.exit(static_cast<int>(current));
}

} // namespace device_list
