// Facts about one pad.
#include "session/call.hpp"
#include "session/device_list.hpp"
#include "vxpadcom/internals/control_requests.h"
#include "vxpadcom/internals/process_state.h"
#include "vxpadcom/vxpadcom.h"

namespace {

constexpr int code = VXPCEC_INVALID_PARAMETER;

struct TextQuery {
    int (*core)(char*);
    const char* core_name;
    const char* failure;
    const char* shown_as;
    int counted_terminator; // 1 for the product name only, as applications have come to expect
};

constexpr TextQuery serial_number{core_get_serial_number, "core_get_serial_number(char *)",
                                  "Error of getting serial number for device: ", "SERIAL_NUMBER", 0};
constexpr TextQuery product_name{core_get_pad_name, "core_get_pad_name(char *)",
                                 "Error of getting device's name for device: ", "PRODUCT_NAME", 1};
constexpr TextQuery vendor_name{core_get_pad_manufacturer, "core_get_pad_manufacturer(char *)",
                                "Error of getting device's manufacturer for device: ", "VENDOR_NAME", 0};

struct NumberQuery {
    int (*core)();
    const char* core_name;
    const char* failure;
    unsigned int added;
};

constexpr NumberQuery product_id{core_get_pad_product_id, "core_get_pad_product_id()",
                                 "Error of getting product ID for device: ", 0};
constexpr NumberQuery vendor_id{core_get_vendor_id, "core_get_vendor_id()",
                                "Error of getting vendor ID for device: ", 0};
constexpr NumberQuery usb_version{core_get_pad_bcd_device, "core_get_pad_bcd_device()",
                                  "Error of getting bcdDevice for device: ", 0};
constexpr NumberQuery end_point_count{core_get_count_of_hid_interfaces, "core_get_count_of_hid_interfaces()",
                                      "Error of getting count of hid interfaces for device: ", 0};
// One more for the report-id byte.
constexpr NumberQuery feature_report_size{core_get_max_packet_size_of_out_endpoint,
                                          "core_get_max_packet_size_of_out_endpoint()", Call::no_packet_size, 1};

int answer_text(Call& call, const TextQuery& query, unsigned int device, unsigned int interface_number,
                char16_t* res_text, int res_text_size, unsigned int* reply) {
    if (const int failed = call.require_text_output(code, res_text, res_text_size, reply)) {
        return failed;
    }
    if (const int failed = call.select(device)) {
        return failed;
    }
    char text[VXPAD_MAX_STRING_LENGTH] = {};
    const int length = query.core(text);
    if (length < 0) {
        return call.core_failed(length, query.core_name, query.failure, device, interface_number);
    }
    VX_INFO_AT(call.where(), "%s: %s", query.shown_as, text);
    *reply = call.write_text(res_text, res_text_size, text, length + query.counted_terminator);
    VX_INFO_AT(call.where(), "OUTPUT: *reply: %d", *reply);
    return 0;
}

int answer_number(Call& call, const NumberQuery& query, unsigned int device, unsigned int interface_number,
                  unsigned int* reply) {
    if (const int failed = call.require_reply(code, reply)) {
        return failed;
    }
    if (const int failed = call.select(device)) {
        return failed;
    }
    const int number = query.core();
    if (number < 0) {
        return call.core_failed(number, query.core_name, query.failure, device, interface_number);
    }
    *reply = static_cast<unsigned int>(number) + query.added;
    VX_INFO_AT(call.where(), "OUTPUT: *reply: %d", *reply);
    return 0;
}

// Runs use(flag) on the pad's protocol flag; the list may be gone since the pad was selected.
template <typename Use> void with_protocol_flag(const trace::Location& where, unsigned int device, Use use) {
    trace::Lock lock{&dev_list_short_lock, "&dev_list_short_lock", where};
    if (device_list::Table* table = device_list::table()) {
        use(table->devices[device].used_transport_protocol);
    }
}

} // namespace

int GetSerialNumber(unsigned int device, char16_t* res_text, int res_text_size, unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(answer_text(call, serial_number, device, 0, res_text, res_text_size, reply));
}

int GetProductName(unsigned int device, unsigned int interface_number, char16_t* res_text, int res_text_size,
                   unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(answer_text(call, product_name, device, interface_number, res_text, res_text_size, reply));
}

int GetVendorName(unsigned int device, char16_t* res_text, int res_text_size, unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(answer_text(call, vendor_name, device, 0, res_text, res_text_size, reply));
}

int GetProductId(unsigned int device, unsigned int interface_number, unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(answer_number(call, product_id, device, interface_number, reply));
}

int GetVendorId(unsigned int device, unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(answer_number(call, vendor_id, device, 0, reply));
}

int GetUsbVersion(unsigned int device, unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(answer_number(call, usb_version, device, 0, reply));
}

int GetEndPointCount(unsigned int device, unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(answer_number(call, end_point_count, device, 0, reply));
}

int GetFeatureReportSize(unsigned int device, unsigned int interface_number, unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(answer_number(call, feature_report_size, device, interface_number, reply));
}

int GetUsedTransportProtocol(unsigned int device, unsigned int* reply) {
    Call call{VX_HERE};
    if (const int failed = call.require_reply(code, reply)) {
        return call.exit(failed);
    }
    if (const int failed = call.select(device)) {
        return call.exit(failed);
    }
    with_protocol_flag(VX_HERE, device, [&](const std::uint8_t& flag) { *reply = flag; });
    VX_INFO("OUTPUT: *reply: %d", *reply);
    return call.exit(0);
}

int SetUsedTransportProtocol(unsigned int device, unsigned int value) {
    Call call{VX_HERE};
    if (const int failed = call.select(device)) {
        return call.exit(failed);
    }
    with_protocol_flag(VX_HERE, device, [&](std::uint8_t& flag) { flag = value != 0 ? 1 : 0; });
    return call.exit(0);
}

int GetBytesToSend(unsigned int device, unsigned int* reply) {
    Call call{VX_HERE};
    if (const int failed = call.require_reply(code, reply)) {
        return call.exit(failed);
    }
    if (const int failed = call.select(device)) {
        return call.exit(failed);
    }
    *reply = 0;
    VX_INFO("OUTPUT: *reply: %d", *reply);
    return call.exit(0);
}
