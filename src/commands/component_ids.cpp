// Which components a pad has: its list, asked for once and kept in the record, and the ids that follow from it.
#include "vxpadcom/internals/component_ids.h"
#include "commands/component_link.hpp"
#include "commands/list_reply.hpp"
#include "vxpadcom/internals/component_link.h"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/ssp_base_message.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <span>

namespace {

using component_link::Answer;

constexpr unsigned int probe_time_out_ms = 100;

constexpr list_reply::Kind component_list{
    .message_id = 0x10,
    .entry_size = 1,
    .wrong_id = "Wrong message ID",
    .wrong_result = "Wrong Component Protocol Result",
    .result_suffix = "",
    .wrong_count = "Incorrect Component Count",
    .failure = "Error, incorrect count of components",
};
constexpr int asked = 0; // the query names no component

// The request that needs no component id.
int ask_for_components(vx_device* device) {
    unsigned char message[] = {asked, 0, 0, component_list.message_id};
    return send_ssp_message(device, message, sizeof message);
}

} // namespace

int ssp_common_is_ssp_supported(vx_device* device) {
    trace::Scope scope{VX_HERE};
    if (!component_link::expect_device(VX_HERE, device)) {
        return scope.exit(-1);
    }
    if (const int result = ask_for_components(device); result != 0) {
        VX_ERROR("function __send_ssp_message() return %d", result);
        return scope.exit(0);
    }
    const Answer answer = component_link::receive(VX_HERE, device, probe_time_out_ms);
    if (!answer.reply || !component_link::is_base(*answer.reply)) {
        return scope.exit(0);
    }
    VX_NOTE("bm_length: %d ", ssp_base_message_get_data_length(answer.reply->message()));
    return scope.exit(answer.reply->payload().empty() ? 0 : 1);
}

int ssp_common_components_id_initialize_table(vx_device* device) {
    trace::Scope scope{VX_HERE};
    if (!component_link::expect_device(VX_HERE, device)) {
        return scope.exit(-1);
    }
    if (!list_reply::is_empty(device->components_id_table)) {
        return scope.exit(0);
    }
    if (const int result = ask_for_components(device); result != 0) {
        VX_ERROR("function __send_ssp_message() return %d", result);
        return scope.exit(-1);
    }
    const Answer answer = component_link::receive_from(VX_HERE, device, component_link::reply_time_out_ms, asked,
                                                       component_list.message_id);
    if (!answer.reply) {
        VX_ERROR("%s", component_link::no_data);
        return scope.exit(-1);
    }
    if (!component_link::expect_from(VX_HERE, *answer.reply, asked) ||
        !list_reply::expect_list(VX_HERE, *answer.reply, component_list)) {
        return scope.exit(-1);
    }
    const auto types = list_reply::entries(*answer.reply, component_list);
    std::copy_n(types.begin(), std::min(types.size(), std::size(device->components_id_table)),
                device->components_id_table);
    return scope.exit(0);
}

int ssp_common_component_id_get_id(vx_device* device, int component_type) {
    trace::Scope scope{VX_HERE};
    if (const int result = ssp_common_components_id_initialize_table(device); result != 0) {
        VX_ERROR("Can not initialize Components ID table, ssp_common_components_id_initialize_table() return: %d",
                 result);
        return scope.exit(result);
    }
    return scope.exit(
        list_reply::position_in(std::span<const std::uint8_t>{device->components_id_table}, component_type));
}
