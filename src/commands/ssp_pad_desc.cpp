// What the pad says of itself, and its connection type.
#include "vxpadcom/internals/ssp_pad_desc.h"
#include "commands/component_request.hpp"
#include "vxpadcom/internals/record.h"
#include "wire/little_endian.hpp"

#include <algorithm>
#include <iterator>

namespace {

using component_link::Answer;
using component_request::Request;

constexpr Request request_to(component_request::ComponentType component, unsigned char message_id) {
    return {component, message_id, component_request::component_sender, component_link::nothing_received};
}
constexpr Request get_pad_description = request_to(component_request::ct_signpad, 0x10);
constexpr Request get_connection = request_to(component_request::ct_communication, 0x10);
constexpr Request set_connection = request_to(component_request::ct_communication, 0x11);
constexpr unsigned char no_parameters[] = {0, 0};

// Offsets in the payload of a pad description.
enum Description : std::size_t {
    vendor_id = 2,
    product_id = 6,
    version_major = 10,
    version_minor = 14,
    version_patch = 18,
    version_revision = 22,
    version_manufacturer_id = 26,
    serial_length = 30,
    serial_number = 31,
};

struct NumberField {
    const char* name;
    std::size_t offset;
};
constexpr NumberField number_fields[] = {
    {"vendor_id", vendor_id},
    {"product_id", product_id},
    {"version_major", version_major},
    {"version_minor", version_minor},
    {"version_patch", version_patch},
    {"version_revision", version_revision},
    {"version_manufacturer_id", version_manufacturer_id},
};

void trace_description(const trace::Location& where, const unsigned char* payload) {
    constexpr const char* name = "struct ct_signpad_get_pad_description_reply: header";
    VX_INFO_AT(where, "%s->message_id: 0x%x", name, payload[0]);
    VX_INFO_AT(where, "%s->protocol_result: 0x%x", name, payload[1]);
    for (const NumberField& field : number_fields) {
        VX_INFO_AT(where, "%s->%s: 0x%x", name, field.name, little_endian::get_u32(payload + field.offset));
    }
    VX_INFO_AT(where, "%s->serial_length: %d", name, payload[serial_length]);
    VX_INFO_AT(where, "%s->serial_number %.*s", name, static_cast<int>(payload[serial_length]),
               reinterpret_cast<const char*>(payload + serial_number));
}

} // namespace

int ct_signpad_get_pad_description_reply_check(const unsigned char* payload, int message_id) {
    trace::Scope scope{VX_HERE};
    if (payload != nullptr) {
        trace_description(VX_HERE, payload);
    }
    return scope.exit(component_link::has_header(payload, message_id) ? 0 : -1);
}

int ssp_common_get_pad_description(vx_device* device) {
    trace::Scope scope{VX_HERE};
    const Answer answer = component_request::perform(VX_HERE, device, get_pad_description, no_parameters);
    if (!answer.reply) {
        return scope.exit(answer.result);
    }
    const unsigned char* description = answer.reply->data();
    if (ct_signpad_get_pad_description_reply_check(description, get_pad_description.message_id) != 0) {
        VX_ERROR("Error, check data by ct_signpad_get_pad_description_reply_check(data: %p, ct_cmd: %d)",
                 static_cast<const void*>(description), get_pad_description.message_id);
        return scope.exit(-1);
    }
    if (answer.reply->payload().size() < serial_number) {
        return scope.exit(-1); // a pad that does not even say what it is
    }
    device->vendor_id = little_endian::get_u32(description + vendor_id);
    device->product_id = little_endian::get_u32(description + product_id);
    // The length byte bounds the copy; what did not come reads as zeros.
    std::fill(std::begin(device->serial_number), std::end(device->serial_number), '\0');
    std::copy_n(description + serial_number, description[serial_length], device->serial_number);
    return scope.exit(0);
}

int ct_communication_get_current_connection_type_from_reply_message(const unsigned char* payload) {
    trace::Scope scope{VX_HERE};
    if (payload == nullptr || payload[0] != get_connection.message_id) {
        VX_ERROR("Wrong message_id, it is %d, but must be %d", payload == nullptr ? -1 : payload[0],
                 get_connection.message_id);
        return scope.exit(-1);
    }
    if (payload[1] != component_link::protocol_success) {
        VX_ERROR("Wrong Protocol Result %d, must be %d", payload[1], component_link::protocol_success);
        return scope.exit(-1);
    }
    const int type = payload[2] < 0x80 ? payload[2] : payload[2] - 0x100;
    if (type < 0) {
        VX_ERROR("Incorrect type value %d", type);
        return scope.exit(-1);
    }
    return scope.exit(type);
}

int ssp_common_ct_communication_get_current_connection(vx_device* device) {
    trace::Scope scope{VX_HERE};
    const Answer answer = component_request::perform(VX_HERE, device, get_connection, no_parameters);
    if (!answer.reply) {
        return scope.exit(answer.result);
    }
    int type = ct_communication_get_current_connection_type_from_reply_message(answer.reply->data());
    constexpr std::size_t reply_size = 3;
    if (answer.reply->payload().size() < reply_size) {
        type = -1;
    }
    if (type < 0) {
        VX_ERROR("Error, incorrect type: %d from ct_communication_get_current_connection_type_from_reply_message()",
                 type);
    }
    return scope.exit(type);
}

int ssp_common_ct_communication_set_current_connection(vx_device* device, int type) {
    trace::Scope scope{VX_HERE};
    const unsigned char parameters[] = {static_cast<unsigned char>(type), 0};
    return scope.exit(component_request::send(VX_HERE, device, set_connection, parameters));
}
