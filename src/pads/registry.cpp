#include "pads/registry.hpp"

#include "support/result.hpp"
#include "support/thread_local.hpp"
#include "transport/record.hpp"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>
#include <span>
#include <utility>

namespace registry {
namespace {

vx_registry dev_shared_storage;
std::atomic<vx_registry*> dev_shared{nullptr};
VX_THREAD_LOCAL constinit vx_device* served = nullptr;

constexpr std::uint32_t signature_rectangle_types[] = {9, 11, 12, 15, 16, 17};

// Identity texts of HID pads that have left an answer behind; used by one search or tear-down at a time.
char left_behind[VX_MAX_DEVICES][sizeof vx_device::szPadSettings];

} // namespace

vx_registry* get() {
    return dev_shared.load();
}
void set(vx_registry* instance) {
    dev_shared.store(instance);
}
vx_registry& storage() {
    return dev_shared_storage;
}

vx_device* current_device(vx_registry& pads) {
    return record::load(pads.current_device);
}

void set_current_device(vx_registry& pads, int index) {
    pads.current_index = static_cast<std::uint16_t>(index);
    record::store(pads.current_device, &pads.devices[index]);
}

vx_device* serve(vx_device* pad) {
    return std::exchange(served, pad);
}

vx_device* acting_device(vx_registry& pads) {
    return served != nullptr ? served : current_device(pads);
}

vx_device* find_current(const trace::Location& where, Missing missing) {
    const auto tell = [&](const char* text) {
        if (missing == Missing::reported) {
            trace::error(where, "%s", text);
        } else {
            VX_INFO_AT(where, "%s", text);
        }
    };
    vx_registry* pads = get();
    if (pads == nullptr) {
        tell("error: dev_shared is NULL...");
        return nullptr;
    }
    vx_device* device = acting_device(*pads);
    if (device == nullptr) {
        tell("error: dev_shared->current_device is NULL...");
    }
    return device;
}

bool same_settings(const vx_device& pad, const char* settings) {
    return std::strncmp(pad.szPadSettings, settings, sizeof pad.szPadSettings) == 0;
}

int find_settings(const vx_registry& pads, const char* settings) {
    for (int i = 0; i < pads.count_of_devices; ++i) {
        if (pads.devices[i].szPadSettings[0] != '\0' && same_settings(pads.devices[i], settings)) {
            return i;
        }
    }
    return -1;
}

int further_interfaces(const vx_device& pad) {
    return std::clamp(pad.count_of_interfaces - 1, 0, static_cast<int>(VX_MAX_FURTHER_INTERFACES));
}

bool has_signature_rectangle(const vx_device& device) {
    return std::find(std::begin(signature_rectangle_types), std::end(signature_rectangle_types), device.pad_type) !=
           std::end(signature_rectangle_types);
}

void retire(vx_device& device) {
    const bool leaves_answer = device.hid_path[0] != '\0' && (device.replies_due > 0 || device.left_over != 0);
    if (leaves_answer && !has_left_answer(device.szPadSettings)) {
        const auto free = std::find_if(std::begin(left_behind), std::end(left_behind),
                                       [](const char* settings) { return settings[0] == '\0'; });
        if (free != std::end(left_behind)) {
            std::memcpy(*free, device.szPadSettings, sizeof *free);
        }
    }
    record::clear(device);
}

bool has_left_answer(const char* settings) {
    return settings[0] != '\0' && std::any_of(std::begin(left_behind), std::end(left_behind), [=](const char* one) {
               return std::strncmp(one, settings, sizeof left_behind[0]) == 0;
           });
}

void forget_answers_left_behind() {
    std::memset(left_behind, 0, sizeof left_behind);
}

} // namespace registry

void core_catch_is_dev_was_removed(int* result) {
    trace::Scope scope{VX_HERE};
    vx_device* device = registry::find_current(VX_HERE);
    if (device != nullptr && record::was_removed(*device)) {
        *result = result::removed;
    }
}
