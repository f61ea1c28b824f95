#include "session/search.hpp"

#include "pads/current_pad.hpp"
#include "session/selection.hpp"
#include "support/result.hpp"
#include "vxpadcom/internals/control_requests.h"
#include "vxpadcom/internals/discovery.h"

#include <algorithm>
#include <cstring>

namespace search {
namespace {

constexpr int most_pads = device_list::slots - 1;

// The core's answer about its current pad. One that was pulled since it was found is listed too: its first use tells,
// and the pads behind it are there.
int settings_of_current(char* settings) {
    const int length = core_get_pad_settings(settings);
    if (length != result::removed) {
        return length;
    }
    const std::size_t known = strnlen(current_pad::get()->szPadSettings, 255);
    std::memcpy(settings, current_pad::get()->szPadSettings, known);
    return static_cast<int>(known);
}

// Indexes the core's current pad under a number. False ends the indexing.
bool index_current(const trace::Location& where, int number) {
    char settings[256] = {};
    const int length = settings_of_current(settings);
    if (length < 1) {
        trace::error(where, "Error: core_get_pad_settings(buffer) return %d", length);
        return false;
    }
    device_list::Table& table = *device_list::table();
    device_list::Device& device = table.devices[number];
    std::memcpy(device.pad_settings, settings, static_cast<std::size_t>(std::min(length + 1, 255)));
    device.indexed = 1;
    ++table.count;
    VX_INFO_AT(where, "libvxpadcom: Indexed pad: %s", device.pad_settings);
    return true;
}

// False where the core has no further pad.
bool advance_core(const trace::Location& where) {
    const int result = core_set_device_to_current(nullptr);
    if (result == 0 || result == result::removed) {
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

} // namespace

int looking_for_device() {
    trace::Scope scope{VX_HERE};
    VX_INFO("sizeof(wchar_t): %d", static_cast<int>(sizeof(char16_t)));
    device_list::Table* table = device_list::table();
    if (table == nullptr) {
        VX_ERROR("dev_shared_short is NULL... do Initialize() first");
        return scope.exit(-1);
    }
    *table = {};
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
    table->devices[0].indexed = 1;

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
    if (const int result = selection::set_dev_to_current(1, selection::ListLock::already_held); result != 0) {
        VX_ERROR("Static function set_dev_to_current() was return %d", result);
        VX_ERROR("Error of switching device %d to current", 1);
        return scope.exit(-1);
    }
    VX_INFO("Was switched to device: %d", 1);
    return scope.exit(found);
}

} // namespace search
