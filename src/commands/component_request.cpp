#include "commands/component_request.hpp"

#include "exchange/left_over.hpp"
#include "support/result.hpp"
#include "vxpadcom/internals/component_ids.h"
#include "vxpadcom/internals/component_link.h"

namespace component_request {
namespace {

using component_link::Answer;

int send_to(const trace::Location& where, vx_device* device, int id, const Request& request,
            std::span<const unsigned char> data) {
    const int result = make_and_send_ssp_data_sequence(device, id, request.message_id, data.data(),
                                                       static_cast<unsigned int>(data.size()));
    if (result != 0) {
        trace::error(where, "Error of %s, it returns %d", request.sender, result);
    }
    return result;
}

// What a request gives for the exchange's result. A pad whose interface could not be opened again is as gone as one
// that the transport misses.
int failure_of(int result) {
    return result == result::transport_lost || result == result::removed ? result::transport_lost : result::failed;
}

} // namespace

Answer perform(const trace::Location& where, vx_device* device, const Request& request,
               std::span<const unsigned char> data) {
    if (!component_link::expect_device(where, device)) {
        return {result::failed, std::nullopt};
    }
    const int id = look_up(where, device, request.component);
    if (id < 0) {
        return {id, std::nullopt};
    }
    if (const int result = send_to(where, device, id, request, data); result != 0) {
        return {failure_of(result), std::nullopt};
    }
    Answer answer =
        component_link::receive_from(where, device, component_link::reply_time_out_ms, id, request.message_id);
    if (!answer.reply) {
        trace::error(where, "%s", request.no_reply);
        return {failure_of(answer.result), std::nullopt};
    }
    if (!component_link::expect_from(where, *answer.reply, id)) {
        return {result::failed, std::nullopt};
    }
    return answer;
}

int send(const trace::Location& where, vx_device* device, const Request& request, std::span<const unsigned char> data) {
    if (!component_link::expect_device(where, device)) {
        return result::failed;
    }
    const int id = look_up(where, device, request.component);
    if (id < 0) {
        return id;
    }
    const int result = send_to(where, device, id, request, data);
    if (result == 0) {
        left_over::expect_left_over(*device);
    }
    return result;
}

int look_up(const trace::Location& where, vx_device* device, ComponentType component) {
    const int id = ssp_common_component_id_get_id(device, component);
    if (id < 0) {
        trace::error(where, "Error of getting Component ID, ssp_common_component_id_get_id() return %d", id);
    }
    return id;
}

} // namespace component_request
