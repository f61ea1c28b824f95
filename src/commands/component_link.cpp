#include "commands/component_link.hpp"

#include "exchange/left_over.hpp"
#include "support/print_helpers.hpp"
#include "vxpadcom/internals/component_link.h"
#include "vxpadcom/internals/ssp_base_message.h"
#include "vxpadcom/internals/uni_queue.h"
#include "vxpadcom/internals/wrapunix.h"
#include "wire/ssp_base_message.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace component_link {
namespace {

bool has_base_header(const Reply& reply) {
    return !ssp_base_message::is_legacy(reply.message()[0]);
}

bool answers(const Reply& reply, int id, unsigned char message_id) {
    return has_base_header(reply) && reply.message()[0] == id && !reply.payload().empty() &&
           reply.data()[0] == message_id;
}

// What came with it in one transfer.
bool has_more(vx_device& device) {
    return device.ssp_command_messages != nullptr && get_uni_queue_size(device.ssp_command_messages) > 0;
}

void report_missing_function(const trace::Location& where, const char* name) {
    trace::error(where, "Wrong function pointer, current_device->%s is NULL...", name);
}

} // namespace

std::span<const unsigned char> Reply::payload() const {
    constexpr std::size_t header = ssp_base_message::base_header_size;
    const auto announced = static_cast<std::size_t>(message()[1] | message()[2] << 8) + 1;
    return {message() + header, std::min(announced, size_ - std::min(size_, header))};
}

Answer receive(const trace::Location& where, vx_device* device, unsigned int time_out) {
    Owned<unsigned char> buffer{static_cast<unsigned char*>(Calloc(Reply::capacity, 1))};
    unsigned int size = Reply::capacity;
    const int result = receive_ssp_message(device, buffer.get(), &size, time_out, 0, 0);
    if (result != 0) {
        trace::error(where, "Error, function __receive_ssp_message() return %d", result);
        return {result, std::nullopt};
    }
    return {0, Reply{std::move(buffer), std::min(size, Reply::capacity)}};
}

Answer receive_from(const trace::Location& where, vx_device* device, unsigned int time_out, int id,
                    unsigned char message_id) {
    for (;;) {
        Answer answer = receive(where, device, time_out);
        if (!answer.reply) {
            return answer;
        }
        if (answers(*answer.reply, id, message_id)) {
            return answer; // what is due besides may come late, or never
        }
        if (!has_base_header(*answer.reply) || (device->replies_due == 0 && !has_more(*device))) {
            left_over::expect_left_over(*device);
            device->sends_unasked = left_over::on_guard;
            return answer;
        }
        VX_INFO_AT(where, "an answer to an earlier question is dropped");
    }
}

bool is_base(const Reply& reply) {
    return ssp_base_message_is_it_old_message(reply.message()) == 0;
}

bool has_header(const unsigned char* payload, int message_id) {
    return payload != nullptr && payload[0] == message_id && payload[1] == protocol_success;
}

bool expect_device(const trace::Location& where, const vx_device* device) {
    if (device == nullptr) {
        trace::error(where, "Wrong device pointers, current_device is NULL...");
    }
    return device != nullptr;
}

bool expect_from(const trace::Location& where, const Reply& reply, int id) {
    if (!is_base(reply)) {
        constexpr std::size_t dumped = 20;
        VX_DUMP_AT(where, "%s", print_helpers::bytes_text({reply.message(), dumped}).data());
        trace::error(where, "Error, current message is not a Base Message");
        return false;
    }
    if (ssp_base_message_check_component_id(reply.message(), id) != 0) {
        trace::error(where, "Error,  of ssp_base_message_check_component_id() for Base Message");
        return false;
    }
    static_cast<void>(ssp_base_message_get_data_length(reply.message())); // logged; what counts is what came of it
    if (reply.payload().empty()) {
        trace::error(where, "Error, ssp_base_message_get_data_length() return %d", 0);
        return false;
    }
    return true;
}

} // namespace component_link

int send_ssp_message(vx_device* device, void* message, unsigned int size) {
    trace::Scope scope{VX_HERE};
    if (!component_link::expect_device(VX_HERE, device)) {
        return scope.exit(-1);
    }
    const auto send = device->send_ssp_message;
    if (send == nullptr) {
        component_link::report_missing_function(VX_HERE, "send_ssp_message");
        return scope.exit(-1);
    }
    return scope.exit(send(device, message, size));
}

int receive_ssp_message(vx_device* device, void* data, unsigned int* size, unsigned int time_out,
                        unsigned char /*legacy*/, int /*selector*/) {
    trace::Scope scope{VX_HERE};
    if (!component_link::expect_device(VX_HERE, device)) {
        return scope.exit(-1);
    }
    const auto receive = device->receive_ssp_message;
    if (receive == nullptr) {
        component_link::report_missing_function(VX_HERE, "receive_ssp_message");
        return scope.exit(-1);
    }
    // Replies are no legacy messages and come from the command queue.
    return scope.exit(receive(device, data, size, time_out, 0, 0));
}

int make_and_send_ssp_data_sequence(vx_device* device, int component_id, unsigned char message_id, const void* data,
                                    unsigned int data_size) {
    trace::Scope scope{VX_HERE};
    constexpr unsigned int longest = 0xFFFF; // the length field
    if (data_size > longest || (data == nullptr && data_size > 0)) {
        VX_ERROR("Wrong data_size parameter, it is: %u", data_size);
        return scope.exit(-1);
    }
    Buffer message{ssp_base_message::base_header_size + 1 + data_size};
    unsigned char* bytes = message.data();
    bytes[0] = static_cast<unsigned char>(component_id);
    bytes[1] = static_cast<unsigned char>(data_size);
    bytes[2] = static_cast<unsigned char>(data_size >> 8);
    bytes[3] = message_id;
    if (data_size > 0) {
        std::memcpy(bytes + 4, data, data_size);
    }
    return scope.exit(send_ssp_message(device, bytes, static_cast<unsigned int>(message.size())));
}

int make_and_send_ssp_component_data_sequence(vx_device* device, int component_id, unsigned char message_id,
                                              unsigned char parameter_1, unsigned char parameter_2, const void* data,
                                              unsigned int data_size) {
    trace::Scope scope{VX_HERE};
    constexpr unsigned int longest = 0xFFFF - 2;
    if (data_size > longest || (data == nullptr && data_size > 0)) {
        VX_ERROR("Wrong data_size parameter, it is: %u", data_size);
        return scope.exit(-1);
    }
    Buffer parameters{std::size_t{2} + data_size};
    parameters.data()[0] = parameter_1;
    parameters.data()[1] = parameter_2;
    if (data_size > 0) {
        std::memcpy(parameters.data() + 2, data, data_size);
    }
    return scope.exit(make_and_send_ssp_data_sequence(device, component_id, message_id, parameters.data(),
                                                      static_cast<unsigned int>(parameters.size())));
}

unsigned char* receive_ssp_message_and_get_data(vx_device* device) {
    trace::Scope scope{VX_HERE};
    component_link::Answer answer = component_link::receive(VX_HERE, device, component_link::reply_time_out_ms);
    return scope.exit(answer.reply ? answer.reply->release() : nullptr);
}
