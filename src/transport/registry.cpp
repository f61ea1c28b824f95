#include "transport/registry.hpp"

#include "support/owners.hpp"
#include "transport/usb_id_tables.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <libusb-1.0/libusb.h>
#include <utility>

namespace registry {
namespace {

vx_registry dev_shared_storage;
std::atomic<vx_registry*> dev_shared{nullptr};
thread_local vx_device* served = nullptr;
// A record that was cleared left an answer unread on its HID pad, which keeps it for whoever asks next.
std::atomic<bool> answer_left_behind{false};

constexpr std::uint32_t signature_rectangle_types[] = {9, 11, 12, 15, 16, 17};
constexpr std::uint32_t known_types[] = {1, 8, 9, 10, 11, 12, 13, 15, 16, 17};

template <std::size_t size> bool contains(const std::uint32_t (&types)[size], std::uint32_t type) {
    return std::find(std::begin(types), std::end(types), type) != std::end(types);
}

void destroy_lock(vx_device& device) {
    if (device.device_lock != nullptr) {
        pthread_mutex_destroy(device.device_lock);
        std::free(device.device_lock);
        device.device_lock = nullptr;
    }
}

// All interfaces of one pad have the same text, since it holds no interface number.
vx_device* find_pad(vx_registry& pads, const char* settings) {
    for (vx_device& pad : std::span{pads.devices, static_cast<std::size_t>(pads.count_of_devices)}) {
        if (pad.in_use == 1 && std::strncmp(pad.szPadSettings, settings, std::strlen(settings)) == 0) {
            return &pad;
        }
    }
    return nullptr;
}

enum class Added { nothing, interface, pad };

Added add_to_pad(trace::Location where, vx_device& pad, vx_device& found, Transport transport) {
    for (int k = 0; k < VX_MAX_FURTHER_INTERFACES; ++k) {
        vx_device* interface = pad.interfaces[k];
        if (interface == nullptr) {
            trace::error(where, "Error, interfaces[%d] is NULL", k);
        } else if (interface->in_use == 0) {
            // A second VCOM interface has neither lock nor handle, on purpose.
            if (transport == Transport::hid) {
                *interface = found;
            } else {
                interface->pad_type = found.pad_type;
                clear_record(found);
            }
            interface->in_use = 1;
            ++pad.count_of_interfaces;
            return Added::interface;
        }
    }
    return Added::nothing;
}

Added add_pad(vx_registry& pads, const vx_device& found) {
    for (vx_device& slot : pads.devices) {
        if (slot.in_use == 0) {
            vx_device** interfaces = slot.interfaces;
            slot = found;
            slot.interfaces = interfaces;
            slot.in_use = 1;
            slot.count_of_interfaces = 1;
            ++pads.count_of_devices;
            return Added::pad;
        }
    }
    return Added::nothing;
}

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
    return load(pads.current_device);
}

void set_current_device(vx_registry& pads, int index) {
    pads.current_index = static_cast<std::uint16_t>(index);
    store(pads.current_device, &pads.devices[index]);
}

vx_device* serve(vx_device* pad) {
    return std::exchange(served, pad);
}

vx_device* acting_device(vx_registry& pads) {
    return served != nullptr ? served : current_device(pads);
}

vx_device* find_current(trace::Location where, Missing missing) {
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

bool was_removed(vx_device& device) {
    return std::atomic_ref{device.was_removed}.load() != 0;
}
void mark_removed(vx_device& device) {
    std::atomic_ref{device.was_removed}.store(1);
}

bool is_kept_open(vx_device& device) {
    return std::atomic_ref{device.keepers}.load() != 0;
}
void add_keepers(vx_device& device, int count) {
    std::atomic_ref{device.keepers}.fetch_add(count);
}

bool has_signature_rectangle(const vx_device& device) {
    return contains(signature_rectangle_types, device.pad_type);
}

bool derive_pad_type(trace::Location where, vx_device& device) {
    const auto [type, unknown] = usb_id_tables::pad_type(device.vendor_id, device.product_id);
    device.pad_type = type;
    const bool classic = type == 1 || type == 8;
    device.model_param_1 = classic ? 690 : 0;
    device.model_param_2 = classic ? 184 : 0;
    if (unknown) {
        trace::error(where, "unable to fetch type of device by %s value",
                     *unknown == usb_id_tables::Unknown::product ? "idProduct" : "idVendor");
    }
    return !unknown;
}

void create_lock(vx_device& device) {
    // Zeroed, which is a lock as well: a failed initialisation is reported and the library goes on with it.
    device.device_lock = static_cast<pthread_mutex_t*>(Calloc(1, sizeof(pthread_mutex_t)));
    Pthread_mutex_init(device.device_lock, nullptr);
}

void clear_record(vx_device& device) {
    if (device.hid_path[0] != '\0' && (device.replies_due > 0 || device.left_over != 0)) {
        answer_left_behind = true;
    }
    destroy_uni_queue(device.ssp_input_read);
    destroy_uni_queue(device.ssp_command_messages);
    destroy_uni_queue(device.ssp_unfinished);
    destroy_lock(device);
    if (device.vcom_device != nullptr) {
        libusb_unref_device(device.vcom_device);
    }
    vx_device** interfaces = device.interfaces;
    device = {};
    device.interfaces = interfaces;
}

void forget_answers_left_behind() {
    answer_left_behind = false;
}

bool take_over(trace::Location where, vx_registry& pads, vx_device& found, Transport transport) {
    const char* name = transport == Transport::hid ? "HID" : "VCOM";
    VX_INFO_AT(where, "%s device was found -> %s", name, found.product);
    VX_INFO_AT(where, "%s device has SerialNumber -> %s", name, found.serial_number);
    core_pad_settings_population(found.szPadSettings, found.pad_type, found.manufacturer, found.product,
                                 found.vendor_id, found.product_id, found.serial_number, found.device_uid,
                                 static_cast<int>(transport));
    VX_INFO_AT(where, "%s device has szPadSettings -> %s", name, found.szPadSettings);
    if (transport == Transport::hid && answer_left_behind) {
        found.left_over = 2;
        found.replies_due = 1;
    }
    Added added;
    if (vx_device* pad = find_pad(pads, found.szPadSettings)) {
        VX_INFO_AT(where, "Interface: %d of device: %s was found in device's list", found.interface_number,
                   found.szPadSettings);
        added = add_to_pad(where, *pad, found, transport);
    } else {
        added = add_pad(pads, found);
    }
    if (added == Added::nothing) {
        clear_record(found);
    }
    return added == Added::pad || pads.count_of_devices == VX_MAX_DEVICES;
}

} // namespace registry

void core_catch_is_dev_was_removed(int* result) {
    trace::Scope scope{VX_HERE};
    vx_device* device = registry::find_current(VX_HERE);
    if (device != nullptr && registry::was_removed(*device)) {
        *result = registry::removed_result;
    }
}

void core_pad_settings_population(char* dst, unsigned int pad_type, const char* manufacturer, const char* product,
                                  unsigned int vendor_id, unsigned int product_id, const char* serial_number,
                                  const char* /*device_uid*/, int transport) {
    trace::Scope scope{VX_HERE};
    constexpr std::size_t size = sizeof vx_device::szPadSettings;
    std::memset(dst, 0, size);
    const auto append = [dst](const char* text) {
        const std::size_t used = std::strlen(dst);
        std::strncat(dst, text, size - used - 1);
    };

    constexpr const char* prefix = "000000000000000001";
    if (!registry::contains(registry::known_types, pad_type)) {
        append(prefix);
        append("no pad");
        return;
    }
    char ids[256];
    if (const int length = std::snprintf(ids, sizeof ids, "(%x/%x/000D/%s)", vendor_id, product_id, serial_number);
        length < 0) {
        VX_ERROR("snprintf() failed with return code %d", length);
        return;
    }
    append(prefix);
    append(transport == 0 ? "HID: " : transport == 1 ? "VCOM: " : "");
    append(manufacturer);
    append(" ");
    append(product);
    append(ids);
}
