// Requests to the current pad: facts about it, and reports of one of its interfaces by number.
#include "vxpadcom/internals/control_requests.h"
#include "exchange/report_table.hpp"
#include "pads/interface_request.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/report_io.h"

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
int copy_named(const trace::Location& where, char* dst, const char* text, const char* empty, const char* success) {
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
int packet_size(const trace::Location& where, vx_device& pad,
                std::optional<int> (*report_table::Table::*size_of)(vx_device&)) {
    const auto size = record::look_at_handles(where, pad, [&] {
        const auto hid_size = (report_table::over_hid.*size_of)(pad);
        return hid_size ? hid_size : (report_table::over_vcom.*size_of)(pad);
    });
    return size.value_or(-1);
}

struct NumberQuery {
    std::int64_t (*number)(const vx_device& pad);
    const char* before; // in the information line
    const char* behind;
    bool is_hexadecimal;
};

constexpr NumberQuery product_id{[](const vx_device& pad) -> std::int64_t { return pad.product_id; },
                                 "Pad's product ID: ", "", false};
constexpr NumberQuery vendor_id{[](const vx_device& pad) -> std::int64_t { return pad.vendor_id; },
                                "Pad's vendor ID: ", "", false};
constexpr NumberQuery bcd_device{[](const vx_device& pad) -> std::int64_t { return pad.bcdDevice; },
                                 "Pad's bcdDevice: ", "", true};
constexpr NumberQuery count_of_interfaces{[](const vx_device& pad) -> std::int64_t { return pad.count_of_interfaces; },
                                          "Pad's have ", " interfaces", false};

int answer_number(const trace::Location& where, const NumberQuery& query) {
    return current_pad::answer(where, [&](vx_device& pad) {
        const int number = static_cast<int>(query.number(pad));
        if (query.is_hexadecimal) {
            VX_INFO_AT(where, "%s%x%s", query.before, static_cast<unsigned int>(number), query.behind);
        } else {
            VX_INFO_AT(where, "%s%d%s", query.before, number, query.behind);
        }
        return number;
    });
}

void say_missing_record(const trace::Location& where, unsigned int index) {
    trace::error(where, "Error, interfaces[%d] is NULL", index);
}

// The transfers differ in the prefix of their error texts, in who takes the record's lock and in the call.
constexpr InterfaceRequestTexts set_feature{"", "*", registry::Missing::traced, say_missing_record};
constexpr InterfaceRequestTexts get_feature{"get_hid_feature_from_interface->", "get_hid_feature_from_interface->",
                                            registry::Missing::traced, say_missing_record};
constexpr InterfaceRequestTexts set_output{"set_hid_output_to_interface->", "set_hid_output_to_interface->",
                                           registry::Missing::traced, say_missing_record};
constexpr InterfaceRequestTexts get_input{"get_hid_input_from_interface->", "get_hid_input_from_interface->",
                                          registry::Missing::traced, say_missing_record};

constexpr const char* lock_name = "dev_shared->current_device->device_lock";

} // namespace

int core_get_pad_settings(char* dst) {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::answer(scope.where(), [&](vx_device& pad) {
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
    return scope.exit(current_pad::answer(scope.where(), [&](vx_device& pad) {
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
    return scope.exit(current_pad::answer(scope.where(), [&](vx_device& pad) {
        return copy_named(scope.where(), dst, pad.product, "Error, Pad Name of current device not available",
                          "Pad Name of current dev");
    }));
}

int core_get_pad_manufacturer(char* dst) {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::answer(scope.where(), [&](vx_device& pad) {
        return copy_named(scope.where(), dst, pad.manufacturer,
                          "Error, Pad manufacturer of current device not available",
                          "Pad's manufacturer of current dev");
    }));
}

int core_get_pad_product_id() {
    trace::Scope scope{VX_HERE};
    return scope.exit(answer_number(scope.where(), product_id));
}

int core_get_vendor_id() {
    trace::Scope scope{VX_HERE};
    return scope.exit(answer_number(scope.where(), vendor_id));
}

int core_get_pad_bcd_device() {
    trace::Scope scope{VX_HERE};
    return scope.exit(answer_number(scope.where(), bcd_device));
}

int core_get_count_of_hid_interfaces() {
    trace::Scope scope{VX_HERE};
    return scope.exit(answer_number(scope.where(), count_of_interfaces));
}

int core_get_max_packet_size_of_out_endpoint() {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::answer(scope.where(), [&](vx_device& pad) {
        return packet_size(scope.where(), pad, &report_table::Table::output_packet_size);
    }));
}

int core_get_max_packet_size_of_input_report() {
    trace::Scope scope{VX_HERE};
    return scope.exit(current_pad::answer(scope.where(), [&](vx_device& pad) {
        return packet_size(scope.where(), pad, &report_table::Table::input_packet_size);
    }));
}

int core_set_hid_feature_report(unsigned int interface_number, const void* data, int data_size) {
    trace::Scope scope{VX_HERE};
    InterfaceRequest request{scope.where(), set_feature, data, data_size};
    int result = -1;
    if (vx_device* interface = request.interface(interface_number)) {
        const trace::Lock lock{interface->device_lock, lock_name, scope.where()};
        if (interface_number == 0) {
            VX_INFO("Going to call hid_feature_write(data_size: %d)", data_size);
        }
        result = core_feature_write(interface, data, request.data_size());
    }
    return scope.exit(request.checked(result));
}

int core_get_hid_feature_report(unsigned int interface_number, void* data, int data_size) {
    trace::Scope scope{VX_HERE};
    InterfaceRequest request{scope.where(), get_feature, data, data_size};
    int result = -1;
    if (vx_device* interface = request.interface(interface_number)) {
        const trace::Lock lock{interface->device_lock, lock_name, scope.where()};
        result = core_feature_read(interface, data, request.data_size());
    }
    return scope.exit(request.checked(result));
}

int core_set_unsync_hid_output_report(unsigned int interface_number, const void* data, int data_size) {
    trace::Scope scope{VX_HERE};
    InterfaceRequest request{scope.where(), set_output, data, data_size};
    vx_device* interface = request.interface(interface_number);
    return scope.exit(
        request.checked(interface == nullptr ? -1 : core_output_write(interface, data, request.data_size())));
}

int core_get_hid_input_report(unsigned int interface_number, void* data, int data_size) {
    trace::Scope scope{VX_HERE};
    InterfaceRequest request{scope.where(), get_input, data, data_size};
    vx_device* interface = request.interface(interface_number);
    return scope.exit(
        request.checked(interface == nullptr ? -1 : core_input_read(interface, data, request.data_size())));
}
