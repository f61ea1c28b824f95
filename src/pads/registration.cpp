#include "pads/registration.hpp"

#include "support/id_lines.hpp"
#include "transport/known_ids.hpp"
#include "transport/record.hpp"
#include "transport/usb_id_tables.hpp"
#include "vxpadcom/internals/registration.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <optional>
#include <span>

namespace registration {
namespace {

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

Added add_to_pad(const trace::Location& where, vx_device& pad, vx_device& found, Transport transport) {
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
                record::clear(found);
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

bool derive_pad_type(const trace::Location& where, vx_device& device, const id_lines::Id* found_by) {
    const id_lines::Id* told = known_ids::find_added(device.vendor_id, device.product_id);
    const id_lines::Id* line = told != nullptr ? told : found_by;
    const auto [type, unknown] = line != nullptr ? usb_id_tables::PadType{line->pad_type, std::nullopt}
                                                 : usb_id_tables::pad_type(device.vendor_id, device.product_id);
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

SearchResult take_over(const trace::Location& where, vx_registry& pads, vx_device& found, Transport transport) {
    const char* name = transport == Transport::hid ? "HID" : "VCOM";
    VX_INFO_AT(where, "%s device was found -> %s", name, found.product);
    VX_INFO_AT(where, "%s device has SerialNumber -> %s", name, found.serial_number);
    core_pad_settings_population(found.szPadSettings, found.pad_type, found.manufacturer, found.product,
                                 found.vendor_id, found.product_id, found.serial_number, found.device_uid,
                                 static_cast<int>(transport));
    VX_INFO_AT(where, "%s device has szPadSettings -> %s", name, found.szPadSettings);
    if (transport == Transport::hid && registry::has_left_answer(found.szPadSettings)) {
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
        record::clear(found);
    }
    const bool counts = added == Added::pad || pads.count_of_devices == VX_MAX_DEVICES;
    return counts ? SearchResult::is_count_of_devices : SearchResult::unchanged;
}

} // namespace registration

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
    const auto& known_types = id_lines::pad_types;
    if (std::find(known_types.begin(), known_types.end(), pad_type) == known_types.end()) {
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
