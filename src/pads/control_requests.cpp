// Requests to the current pad: facts about it, and reports of one of its interfaces by number.
#include "pads/current_pad.hpp"

#include <cstring>
#include <optional>

namespace {

constexpr std::size_t text_size = 256; // of every caller's text buffer, terminator included
constexpr const char* no_buffer = "*ptr of VXPAD_vx_ioctl() is NULL";

// Copies at most 255 characters and returns how many.
int copy_text(char* dst, const char* text) {
    const std::size_t length = strnlen(text, text_size - 1);
    std::memcpy(dst, text, length);
    dst[length] = '\0';
    return static_cast<int>(length);
}

// A text query that fails for an empty field.
int copy_named(trace::Location where, char* dst, const char* text, const char* empty, const char* success) {
    if (dst == nullptr) {
        trace::error(where, "%s", no_buffer);
        return -1;
    }
    if (text[0] == '\0') {
        trace::error(where, "%s", empty);
        return -1;
    }
    const int length = copy_text(dst, text);
    VX_INFO_AT(where, "%s: %s", success, dst);
    return length;
}

// Looks at the transport that is open: HID first, then VCOM.
int packet_size(trace::Location where, vx_device& pad, int (*of_hid)(vx_device*), std::uint32_t of_vcom) {
    const auto size = registry::look_at_handles(where, pad, [&]() -> std::optional<int> {
        const int hid_size = registry::load(pad.hid) != nullptr ? of_hid(&pad) : -1;
        if (hid_size >= 0) {
            return hid_size;
        }
        return registry::load(pad.vcom_handle) != nullptr ? std::optional{static_cast<int>(of_vcom)} : std::nullopt;
    });
    return size.value_or(-1);
}

enum class Locking { here, in_transfer };

// The four transfers differ in the prefix of their error texts, in who takes the record's lock and in the core call.
template <typename Move>
int transfer(trace::Location where, const char* prefix, Locking locking, unsigned int interface_number,
             const void* data, int data_size, Move move) {
    return current_pad::request(where, [&](vx_device& pad) {
        if (data == nullptr) {
            trace::error(where, "%sdata of VXPAD_vx_ioctl() is NULL", prefix[0] == '\0' ? "*" : prefix);
            return -1;
        }
        if (data_size < 1) {
            trace::error(where, "%sdata_size of VXPAD_vx_ioctl() <= 0", prefix);
            return -1;
        }
        const current_pad::KeepOpen keep_open{pad, interface_number};
        vx_device* device = current_pad::find_interface(
            where, pad, prefix, interface_number,
            [](trace::Location at, unsigned int index) { trace::error(at, "Error, interfaces[%d] is NULL", index); });
        if (device == nullptr) {
            return -1;
        }
        trace::Lock lock{locking == Locking::here ? device->device_lock : nullptr,
                         "dev_shared->current_device->device_lock", where};
        return move(device, static_cast<unsigned int>(data_size));
    });
}

} // namespace

int core_get_pad_settings(char* dst) {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::request(scope.where(), [&](vx_device& pad) {
        if (dst == nullptr || pad.szPadSettings[0] == '\0') {
            return -1;
        }
        const int length = copy_text(dst, pad.szPadSettings);
        VX_INFO_AT(scope.where(), "Pad Settings of current dev: %s", dst);
        return length;
    }));
}

int core_get_serial_number(char* dst) {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::request(scope.where(), [&](vx_device& pad) {
        if (dst == nullptr) {
            trace::error(scope.where(), "%s", no_buffer);
            return -1;
        }
        copy_text(dst, pad.serial_number);
        return static_cast<int>(strnlen(pad.serial_number, sizeof pad.serial_number));
    }));
}

int core_get_pad_name(char* dst) {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::request(scope.where(), [&](vx_device& pad) {
        return copy_named(scope.where(), dst, pad.product, "Error, Pad Name of current device not available",
                          "Pad Name of current dev");
    }));
}

int core_get_pad_manufacturer(char* dst) {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::request(scope.where(), [&](vx_device& pad) {
        return copy_named(scope.where(), dst, pad.manufacturer,
                          "Error, Pad manufacturer of current device not available",
                          "Pad's manufacturer of current dev");
    }));
}

int core_get_pad_product_id() {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::request(scope.where(), [&](vx_device& pad) {
        VX_INFO_AT(scope.where(), "Pad's product ID: %d", pad.product_id);
        return static_cast<int>(pad.product_id);
    }));
}

int core_get_vendor_id() {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::request(scope.where(), [&](vx_device& pad) {
        VX_INFO_AT(scope.where(), "Pad's vendor ID: %d", pad.vendor_id);
        return static_cast<int>(pad.vendor_id);
    }));
}

int core_get_pad_bcd_device() {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::request(scope.where(), [&](vx_device& pad) {
        VX_INFO_AT(scope.where(), "Pad's bcdDevice: %x", pad.bcdDevice);
        return static_cast<int>(pad.bcdDevice);
    }));
}

int core_get_count_of_hid_interfaces() {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::request(scope.where(), [&](vx_device& pad) {
        VX_INFO_AT(scope.where(), "Pad's have %d interfaces", pad.count_of_interfaces);
        return static_cast<int>(pad.count_of_interfaces);
    }));
}

int core_get_max_packet_size_of_out_endpoint() {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::request(scope.where(), [&](vx_device& pad) {
        return packet_size(scope.where(), pad, hid_get_max_packet_size_of_out_endpoint, pad.ep_out_max_packet_size);
    }));
}

int core_get_max_packet_size_of_input_report() {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::request(scope.where(), [&](vx_device& pad) {
        return packet_size(scope.where(), pad, hid_get_max_packet_size_of_input_report, pad.ep_in_max_packet_size);
    }));
}

int core_set_hid_feature_report(unsigned int interface_number, const void* data, int data_size) {
    trace::Scope scope{VX_HERE};
    return scope.exit(transfer(
        scope.where(), "", Locking::here, interface_number, data, data_size, [&](vx_device* device, unsigned int size) {
            if (interface_number == 0) {
                VX_INFO_AT(scope.where(), "Going to call hid_feature_write(data_size: %d)", size);
            }
            return core_feature_write(device, data, size);
        }));
}

int core_get_hid_feature_report(unsigned int interface_number, void* data, int data_size) {
    trace::Scope scope{VX_HERE};
    return scope.exit(
        transfer(scope.where(), "get_hid_feature_from_interface->", Locking::here, interface_number, data, data_size,
                 [&](vx_device* device, unsigned int size) { return core_feature_read(device, data, size); }));
}

int core_set_unsync_hid_output_report(unsigned int interface_number, const void* data, int data_size) {
    trace::Scope scope{VX_HERE};
    return scope.exit(transfer(
        scope.where(), "set_hid_output_to_interface->", Locking::in_transfer, interface_number, data, data_size,
        [&](vx_device* device, unsigned int size) { return core_output_write(device, data, size); }));
}

int core_get_hid_input_report(unsigned int interface_number, void* data, int data_size) {
    trace::Scope scope{VX_HERE};
    return scope.exit(
        transfer(scope.where(), "get_hid_input_from_interface->", Locking::in_transfer, interface_number, data,
                 data_size, [&](vx_device* device, unsigned int size) { return core_input_read(device, data, size); }));
}
