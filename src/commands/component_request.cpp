#include "commands/component_request.hpp"

#include "exchange/ssp_engine.hpp"
#include "support/print_helpers.hpp"
#include "wire/ssp_base_message.hpp"

#include <algorithm>

namespace component_request {
namespace {

constexpr unsigned int reply_time_out_ms = 1000;

// The asked component's id, or a negative result.
int look_up(trace::Location where, vx_device* device, ComponentType component) {
    const int id = ssp_common_component_id_get_id(device, component);
    if (id < 0) {
        trace::error(where, "Error of getting Component ID, ssp_common_component_id_get_id() return %d", id);
    }
    return id;
}

int send_to(trace::Location where, vx_device* device, const Request& request, int id) {
    const int result = make_and_send_ssp_data_sequence(device, id, request.message_id, request.data.data(),
                                                       static_cast<unsigned int>(request.data.size()));
    if (result != 0) {
        trace::error(where, "Error of %s, it returns %d", request.sender, result);
    }
    return result;
}

bool is_base(const Reply& reply) {
    return ssp_base_message_is_it_old_message(reply.message()) == 0;
}

bool answers(const Reply& reply, int id, unsigned char message_id) {
    return is_base(reply) && reply.message()[0] == id && !reply.payload().empty() && reply.data()[0] == message_id;
}

// A pad whose interface could not be opened again is as gone as one that the transport misses.
bool is_lost(int result) {
    constexpr int removed = -20;
    return result == device_lost || result == removed;
}

} // namespace

std::span<const unsigned char> Reply::payload() const {
    constexpr std::size_t header = ssp_base_message::base_header_size;
    const auto announced = static_cast<std::size_t>(message()[1] | message()[2] << 8) + 1;
    return {message() + header, std::min(announced, size_ - std::min(size_, header))};
}

Answer receive(trace::Location where, vx_device* device, unsigned int time_out) {
    Owned<unsigned char> buffer{static_cast<unsigned char*>(Calloc(Reply::capacity, 1))};
    unsigned int size = Reply::capacity;
    const int result = receive_ssp_message(device, buffer.get(), &size, time_out, 0, 0);
    if (result != 0) {
        trace::error(where, "Error, function __receive_ssp_message() return %d", result);
        return {result, std::nullopt};
    }
    return {0, Reply{std::move(buffer), std::min(size, Reply::capacity)}};
}

Answer receive_from(trace::Location where, vx_device* device, unsigned int time_out, int id, unsigned char message_id) {
    for (;;) {
        Answer answer = receive(where, device, time_out);
        if (!answer.reply) {
            return answer;
        }
        if (answers(*answer.reply, id, message_id)) {
            return answer; // what is due besides may come late, or never
        }
        if (!is_base(*answer.reply) || device->replies_due == 0) {
            ssp_engine::expect_left_over(*device);
            device->sends_unasked = ssp_engine::on_guard;
            return answer;
        }
        VX_INFO_AT(where, "an answer to an earlier question is dropped");
    }
}

Answer perform(trace::Location where, vx_device* device, const Request& request) {
    if (is_missing(where, device)) {
        return {-1, std::nullopt};
    }
    const int id = look_up(where, device, request.component);
    if (id < 0) {
        return {id, std::nullopt};
    }
    if (const int result = send_to(where, device, request, id); result != 0) {
        return {is_lost(result) ? device_lost : result, std::nullopt};
    }
    Answer answer = receive_from(where, device, reply_time_out_ms, id, request.message_id);
    if (!answer.reply) {
        trace::error(where, "%s", request.no_reply);
        return {is_lost(answer.result) ? device_lost : -1, std::nullopt};
    }
    if (!is_from(where, *answer.reply, id)) {
        return {-1, std::nullopt};
    }
    return answer;
}

int send(trace::Location where, vx_device* device, const Request& request) {
    if (is_missing(where, device)) {
        return -1;
    }
    const int id = look_up(where, device, request.component);
    if (id < 0) {
        return id;
    }
    const int result = send_to(where, device, request, id);
    if (result == 0) {
        ssp_engine::expect_left_over(*device);
    }
    return result;
}

bool has_signpad_modes(const vx_device& device) {
    return device.pad_type >= 15 && device.pad_type <= 17;
}

bool is_missing(trace::Location where, const vx_device* device) {
    if (device == nullptr) {
        trace::error(where, "Wrong device pointers, current_device is NULL...");
    }
    return device == nullptr;
}

bool is_from(trace::Location where, const Reply& reply, int id) {
    if (ssp_base_message_is_it_old_message(reply.message()) != 0) {
        constexpr std::size_t dumped = 20;
        VX_DUMP_AT(where, "%s", print_helpers::bytes_text({reply.message(), dumped}).data());
        trace::error(where, "Error, current message is not a Base Message");
        return false;
    }
    if (ssp_base_message_check_component_id(reply.message(), id) != 0) {
        trace::error(where, "Error,  of ssp_base_message_check_component_id() for Base Message");
        return false;
    }
    if (reply.payload().empty()) {
        trace::error(where, "Error, ssp_base_message_get_data_length() return %d", 0);
        return false;
    }
    return true;
}

bool has_header(const unsigned char* payload, int message_id) {
    return payload != nullptr && payload[0] == message_id && payload[1] == protocol_success;
}

} // namespace component_request
