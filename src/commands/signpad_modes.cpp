#include "commands/signpad_modes.hpp"

#include "commands/component_request.hpp"
#include "commands/list_reply.hpp"
#include "vxpadcom/internals/signpad_modes.h"
#include "wire/little_endian.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <span>

namespace {

using component_link::Answer;
using component_request::Request;

constexpr int user_input_mode_type = 13;

// A sub-command to a signpad mode that is answered by a button.
struct Question {
    unsigned char sub_command;
    const char* no_button; // said with what came instead; nothing of the user's input, which is logged whatever it is
};
constexpr Question user_input{0x10, nullptr};
constexpr Question button_last_event{0x12, "Error, incorrect button value"};

constexpr list_reply::Kind mode_list{
    .message_id = 0x12,
    .entry_size = sizeof(std::uint32_t),
    .wrong_id = "Wrong message_id",
    .wrong_result = "Wrong Protocol Result",
    .result_suffix = ", must be 1",
    .wrong_count = "Incorrect Count modes",
    .failure = "Error, incorrect count of modes in component ct_signpad",
};
constexpr Request list_modes{component_request::ct_signpad, mode_list.message_id, component_request::component_sender,
                             component_link::no_data};
constexpr Request send_to_mode{component_request::ct_signpad, 0x13, component_request::component_sender,
                               component_link::no_data};

// What the pad listed. A table that was filled by somebody else has no count and is looked at as a whole.
std::span<const std::uint32_t> listed_modes(const vx_device& device) {
    const std::span<const std::uint32_t> table{device.modes_id_table};
    const std::size_t count = device.count_of_modes;
    return count == 0 || count > table.size() ? table : table.first(count);
}

// The button, or a negative result.
int ask_mode_for_button(const trace::Location& where, vx_device* device, int mode_type, const Question& question) {
    if (!component_link::expect_device(where, device)) {
        return -1;
    }
    if (!signpad_modes::has_any(*device)) {
        return -1;
    }
    const Answer answer = signpad_modes::perform(where, device, mode_type, question.sub_command);
    if (!answer.reply) {
        return answer.result;
    }
    int button = ct_signpad_mode_send_mt_uni_cmd_button_last_event_get(answer.reply->data() + signpad_modes::sub_reply,
                                                                       question.sub_command);
    if (answer.reply->payload().size() < signpad_modes::sub_reply + 2) {
        button = -1;
    }
    if (button < 0 && question.no_button != nullptr) {
        trace::error(where, "%s %d", question.no_button, button);
        return button;
    }
    VX_INFO_STYLED_AT(where, trace::Style::kind_after, "button: %d", button);
    return button;
}

} // namespace

bool signpad_modes::has_any(const vx_device& device) {
    return device.pad_type >= 15 && device.pad_type <= 17;
}

Answer signpad_modes::perform(const trace::Location& where, vx_device* device, int mode_type,
                              unsigned char sub_command) {
    // The component first: without it there is no list of modes to ask for.
    if (const int id = component_request::look_up(where, device, component_request::ct_signpad); id < 0) {
        return {id, std::nullopt};
    }
    const int mode_id = ssp_common_ct_signpad_get_mode_id(device, mode_type);
    if (mode_id < 0) {
        trace::error(where, "Error of getting ct_signpad Mode ID, ssp_common_ct_signpad_get_mode_id() return %d",
                     mode_id);
        return {mode_id, std::nullopt};
    }
    const unsigned char parameters[] = {static_cast<unsigned char>(mode_id), sub_command};
    Answer answer = component_request::perform(where, device, send_to_mode, parameters);
    if (answer.reply && ct_signpad_mode_send_reply_check(answer.reply->data(), send_to_mode.message_id, mode_id) != 0) {
        trace::error(where,
                     "Error, check data by ct_signpad_mode_send_reply_check(data: %p, ct_cmd: %d, cts_mode_id: %d)",
                     static_cast<const void*>(answer.reply->data()), send_to_mode.message_id, mode_id);
        return {-1, std::nullopt};
    }
    return answer;
}

int ssp_common_ct_signpad_initialize_modes_id_table(vx_device* device) {
    trace::Scope scope{VX_HERE};
    if (!component_link::expect_device(VX_HERE, device)) {
        return scope.exit(-1);
    }
    if (!list_reply::is_empty(device->modes_id_table)) {
        return scope.exit(0);
    }
    constexpr unsigned char parameters[] = {0, 0};
    const Answer answer = component_request::perform(VX_HERE, device, list_modes, parameters);
    if (!answer.reply || !list_reply::expect_list(VX_HERE, *answer.reply, mode_list)) {
        return scope.exit(-1);
    }
    const auto entries = list_reply::entries(*answer.reply, mode_list);
    const std::size_t count = std::min(entries.size() / mode_list.entry_size, std::size(device->modes_id_table));
    for (std::size_t i = 0; i < count; ++i) {
        device->modes_id_table[i] = little_endian::get_u32(entries.data() + i * mode_list.entry_size);
    }
    device->count_of_modes = static_cast<std::uint8_t>(count);
    return scope.exit(0);
}

int ssp_common_ct_signpad_get_mode_id(vx_device* device, int mode_type) {
    trace::Scope scope{VX_HERE};
    if (!component_link::expect_device(VX_HERE, device)) {
        return scope.exit(-1);
    }
    if (!signpad_modes::has_any(*device)) {
        VX_ERROR("Getting SSP ct_signpad Mode ID is not supported for current Device");
        return scope.exit(-1);
    }
    if (const int result = ssp_common_ct_signpad_initialize_modes_id_table(device); result != 0) {
        VX_ERROR("Can not initialize ct_signpad Mode ID table, ssp_initialize_ct_signpad_modes_id_table() return: %d",
                 result);
        return scope.exit(result);
    }
    return scope.exit(list_reply::position_in(listed_modes(*device), mode_type));
}

int ct_signpad_mode_send_reply_check(const unsigned char* payload, int ct_cmd, int cts_mode_id) {
    trace::Scope scope{VX_HERE};
    if (!component_link::has_header(payload, ct_cmd) || payload[2] != cts_mode_id) {
        VX_ERROR("incorrect reply for CT_SIGNPAD cmd mode_send");
        return scope.exit(-1);
    }
    return scope.exit(0);
}

int ct_signpad_mode_send_mt_uni_cmd_button_last_event_get(const unsigned char* sub_reply, int sub_command) {
    trace::Scope scope{VX_HERE};
    if (sub_reply == nullptr || sub_reply[0] != sub_command) {
        VX_ERROR("Wrong reply message with last event buttons state");
        return scope.exit(-1);
    }
    return scope.exit(static_cast<int>(sub_reply[1]));
}

int ssp_common_get_user_input(vx_device* device) {
    trace::Scope scope{VX_HERE};
    return scope.exit(ask_mode_for_button(VX_HERE, device, user_input_mode_type, user_input));
}

int ssp_common_get_button_event(vx_device* device, int mode_type) {
    trace::Scope scope{VX_HERE};
    if (mode_type != 0 && mode_type != 5 && mode_type != 6) {
        return scope.exit(-1);
    }
    return scope.exit(ask_mode_for_button(VX_HERE, device, mode_type, button_last_event));
}
