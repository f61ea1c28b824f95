// Start and stop of the core, the search for pads, and which pad is current.
#include "vxpadcom/internals/discovery.h"
#include "exchange/left_over.hpp"
#include "pads/current_pad.hpp"
#include "pads/hid_search.hpp"
#include "support/owners.hpp"
#include "transport/known_ids.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/hid_search.h"
#include "vxpadcom/internals/legacy_commands.h"
#include "vxpadcom/internals/open_close.h"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/registry.h"
#include "vxpadcom/internals/vcom_search.h"
#include "vxpadcom/internals/wrapunix.h"

#include <cstring>
#include <hidapi/hidapi.h>
#include <libusb-1.0/libusb.h>

namespace {

constexpr int core_true = 1;
constexpr int core_false = 0;

// A pad that has gone is not asked.
void clear_signature_rectangle(vx_device& pad) {
    if (registry::has_signature_rectangle(pad) && !record::was_removed(pad)) {
        core_create_signature_rectangle(&pad, 0, 0, 0, 0, 0);
    }
}

// For those who hold no lock while they choose a pad.
trace::Lock no_lock(const trace::Location& where) {
    return trace::Lock{nullptr, "", where};
}

enum class AfterClosing { keep, clear };
enum class NullRecord { reported, passed_over };
enum class KeptOpen { closed_too, left_open };

// With the record's lock held.
void close(vx_device& device, KeptOpen kept_open) {
    if (kept_open == KeptOpen::closed_too || !record::is_kept_open(device)) {
        __core_close_dev(&device);
    }
}

void close_further_interfaces(const trace::Location& where, vx_device& pad, AfterClosing then,
                              NullRecord null_record = NullRecord::reported,
                              KeptOpen kept_open = KeptOpen::closed_too) {
    const int count = registry::further_interfaces(pad);
    for (int k = 0; k < count; ++k) {
        vx_device* interface = pad.interfaces[k];
        if (interface == nullptr) {
            if (null_record == NullRecord::reported) {
                trace::error(where, "Error, interfaces[%d] is NULL", k);
            }
            continue;
        }
        if (interface->in_use != 0) {
            if (kept_open == KeptOpen::closed_too || !record::is_kept_open(*interface)) {
                trace::Lock lock{interface->device_lock, "device->device_lock", where};
                close(*interface, kept_open);
            }
            if (then == AfterClosing::clear) {
                registry::retire(*interface);
            }
        }
    }
}

void allocate_further_interfaces(vx_device& slot) {
    slot.interfaces = static_cast<vx_device**>(Calloc(VX_MAX_FURTHER_INTERFACES, sizeof(vx_device*)));
    for (vx_device*& interface : std::span{slot.interfaces, VX_MAX_FURTHER_INTERFACES}) {
        interface = static_cast<vx_device*>(Calloc(1, sizeof(vx_device)));
    }
}

void free_further_interfaces(vx_device& slot) {
    if (slot.interfaces == nullptr) {
        return;
    }
    for (vx_device* interface : std::span{slot.interfaces, VX_MAX_FURTHER_INTERFACES}) {
        std::free(interface);
    }
    std::free(slot.interfaces);
}

// A HID pad keeps an answer that nobody fetched for whoever asks next; a VCOM pad is looked at by the search.
void take_in_unread_answers(const trace::Location& where, vx_device& pad) {
    if (pad.replies_due == 0 && pad.left_over == 0) {
        return;
    }
    VX_LOCK(lock, pad.device_lock);
    if (pad.hid != nullptr && pad.vcom_handle == nullptr) {
        static_cast<void>(left_over::absorb(where, pad));
    }
}

// Whether reopening changes nothing: the pad is in use and open.
bool stays_open(vx_device& pad) {
    return record::is_kept_open(pad) && (record::load(pad.hid) != nullptr || record::load(pad.vcom_handle) != nullptr);
}

// core_reopen_devs(); the choice is that of current_pad::make_current().
int reopen(vx_registry* pads, trace::Lock& choice) {
    trace::Scope scope{VX_HERE_AS("core_reopen_devs")};
    vx_device* current = pads == nullptr ? nullptr : registry::acting_device(*pads);
    if (current == nullptr) {
        VX_INFO_AT(scope.where(), "dev_shared->current_device is NULL");
        scope.exit(false);
        return core_false;
    }
    // Held throughout, or another thread's transfer would find the pad closed.
    trace::Lock lock{current->device_lock, "current->device_lock", scope.where(), trace::Lock::Taken::if_free};
    choice.unlock();
    close_further_interfaces(scope.where(), *current, AfterClosing::keep, NullRecord::reported, KeptOpen::left_open);
    if (lock.is_held() || !stays_open(*current)) {
        lock.lock();
        close(*current, KeptOpen::left_open);
        if (!record::was_removed(*current) && __core_open_dev(current) != 0) {
            record::mark_removed(*current);
        }
    }
    scope.exit(true);
    return core_true;
}

// From here on to the end of the caller's Serve, this thread acts on the pad that it has chosen, also where another
// thread chooses another one meanwhile.
bool make_current(const trace::Location& where, vx_registry& pads, int index, trace::Lock& choice) {
    registry::set_current_device(pads, index);
    registry::serve(&pads.devices[index]);
    if (reopen(&pads, choice) != core_true) {
        trace::error(where, "Error of initialize of current device");
        return false;
    }
    return true;
}

int choose_next(const trace::Location& where, vx_registry& pads, trace::Lock& choice) {
    int result = 1;
    int index = pads.current_index;
    if (pads.count_of_devices == 1) {
        VX_INFO_AT(where, "no devices for switching");
    } else {
        VX_INFO_AT(where, "will switch from device[%d]: %s", index, pads.devices[index].szPadSettings);
        index = (index + 1) % pads.count_of_devices;
        VX_INFO_AT(where, "was switch to device[%d]: %s", index, pads.devices[index].szPadSettings);
        result = 0;
    }
    if (!make_current(where, pads, index, choice)) {
        return -1;
    }
    clear_signature_rectangle(pads.devices[index]);
    return result;
}

int choose_by_settings(const trace::Location& where, vx_registry& pads, const char* settings, trace::Lock& choice) {
    const int index = registry::find_settings(pads, settings);
    if (index < 0) {
        VX_INFO_AT(where, "device with Pad Settings: %s not found ", settings);
        return 1;
    }
    VX_INFO_AT(where, "device with Pad Settings: %s was found ", settings);
    return make_current(where, pads, index, choice) ? 0 : -1;
}

int choose(const trace::Location& where, vx_registry& pads, const vx_device& current, const char* settings,
           trace::Lock& choice) {
    if (settings != nullptr && registry::same_settings(current, settings)) {
        return 0;
    }
    if (pads.count_of_devices < 1) {
        return -1;
    }
    VX_INFO_AT(where, "print Pad Settings for all(%d) found devices:", pads.count_of_devices);
    for (int i = 0; i < pads.count_of_devices; ++i) {
        VX_INFO_AT(where, "devices[%d].szPadSettings: %s", i, pads.devices[i].szPadSettings);
    }
    return settings == nullptr ? choose_next(where, pads, choice) : choose_by_settings(where, pads, settings, choice);
}

} // namespace

int core_initialize() {
    trace::Scope scope{VX_HERE};
    if (registry::get() != nullptr) {
        core_uninitialize();
    }
    vx_registry& pads = registry::storage();
    pads = {};
    for (vx_device& slot : pads.devices) {
        allocate_further_interfaces(slot);
    }
    pads.size = sizeof pads;
    registry::set(&pads);
    if (libusb_init(nullptr) != 0) {
        VX_ERROR("error: Can't initialize libusb by libusb_init()\n");
    }
    known_ids::read_files(VX_HERE);
    scope.exit(true);
    return core_true;
}

void core_uninitialize() {
    trace::Scope scope{VX_HERE};
    hid_search::close_left_open();
    if (vx_registry* pads = registry::get()) {
        core_close_all_devs_clear_mem(pads);
        for (vx_device& slot : pads->devices) {
            free_further_interfaces(slot);
        }
        *pads = {};
        registry::set(nullptr);
    }
    if (const int result = hid_exit(); result < 0) {
        VX_ERROR("error: hid_exit() returns: %d", result);
    }
}

int core_close_all_devs_clear_mem(vx_registry* pads) {
    trace::Scope scope{VX_HERE};
    if (pads == nullptr) {
        return scope.exit(core_true);
    }
    for (vx_device& pad : pads->devices) {
        if (pad.in_use == 0) {
            continue;
        }
        clear_signature_rectangle(pad);
        close_further_interfaces(VX_HERE, pad, AfterClosing::clear);
        take_in_unread_answers(VX_HERE, pad);
        core_close_dev(&pad);
        --pads->count_of_devices;
        registry::retire(pad);
    }
    scope.exit(true);
    return core_true;
}

int core_search_devices(vx_registry* pads) {
    trace::Scope scope{VX_HERE};
    if (pads == nullptr) {
        VX_INFO("warning: you should initialize the shared memory");
        return scope.exit(0);
    }
    if (vx_device* current = registry::current_device(*pads)) {
        close_further_interfaces(VX_HERE, *current, AfterClosing::keep, NullRecord::passed_over);
        core_close_dev(current);
    }
    core_close_all_devs_clear_mem(pads);
    search_hid_devices(pads);
    search_vcom_devices(pads);
    registry::forget_answers_left_behind();
    return scope.exit(static_cast<int>(pads->count_of_devices));
}

int core_looking_for_devices() {
    trace::Scope scope{VX_HERE};
    vx_registry* pads = registry::get();
    if (pads == nullptr) {
        return scope.exit(-1);
    }
    const int found = core_search_devices(pads);
    VX_INFO("dev_shared->count_of_devices: %d", pads->count_of_devices);
    if (found >= 1) {
        const current_pad::Serve none{nullptr};
        trace::Lock no_choice = no_lock(VX_HERE);
        if (!make_current(VX_HERE, *pads, 0, no_choice)) {
            return scope.exit(-1);
        }
        clear_signature_rectangle(pads->devices[0]);
    }
    return scope.exit(found);
}

int core_reopen_devs(vx_registry* pads) {
    trace::Lock no_choice = no_lock(VX_HERE);
    return reopen(pads, no_choice);
}

int __core_reopen_devs() {
    trace::Scope scope{VX_HERE};
    const int result = core_reopen_devs(registry::get());
    scope.exit(result == core_true);
    return result;
}

int core_set_device_to_current(const char* settings) {
    trace::Lock no_choice = no_lock(VX_HERE);
    return current_pad::make_current(settings, no_choice);
}

int current_pad::make_current(const char* settings, trace::Lock& choice) {
    trace::Scope scope{VX_HERE_AS("core_set_device_to_current")};
    const Serve none{nullptr}; // the pad that becomes current is reopened and checked
    vx_registry* pads = registry::get();
    if (pads == nullptr) {
        VX_INFO_AT(scope.where(), "error: %s() dev_shared is NULL...", scope.where().function);
        return scope.exit(-1);
    }
    vx_device* current = registry::current_device(*pads);
    if (current == nullptr) {
        VX_INFO_AT(scope.where(), "error: %s() dev_shared->current_device is NULL...", scope.where().function);
        return scope.exit(-1);
    }
    int result = choose(scope.where(), *pads, *current, settings, choice);
    core_catch_is_dev_was_removed(&result);
    return scope.exit(result);
}
