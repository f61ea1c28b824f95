// The components of a pad, the modes of its signpad, and what the signpad tells of its buttons.
#include "commands/signpad_mode.hpp"
#include "wire/little_endian.hpp"
#include "wire/ssp_base_message.hpp"

#include <algorithm>
#include <array>
#include <iterator>

namespace {

using component_request::Answer;
using component_request::Reply;

enum MessageId : unsigned char {
    list_components = 0x10,
    list_modes = 0x12,
    send_to_mode = 0x13,
};

constexpr unsigned int probe_time_out_ms = 100;
constexpr unsigned int list_time_out_ms = 1000;
constexpr int no_such = -2;
constexpr int user_input_mode_type = 13;
constexpr unsigned char user_input = 0x10;
constexpr unsigned char button_last_event = 0x12;

constexpr std::size_t list_header = 3; // message id, result, count

void report_missing_function(trace::Location where, const char* name) {
    trace::error(where, "Wrong function pointer, current_device->%s is NULL...", name);
}

// The request that needs no component id: which components are there?
int ask_for_components(vx_device* device) {
    unsigned char message[] = {0, 0, 0, list_components};
    return send_ssp_message(device, message, sizeof message);
}

// Whether a list's payload is in order; the texts differ between the two lists.
struct ListTexts {
    unsigned char message_id;
    const char* wrong_id;     // with the id found and the id wanted
    const char* wrong_result; // with the result found
    const char* result_suffix;
    const char* wrong_count; // with the count found
    const char* failure;     // with the count found
};

bool is_list(trace::Location where, const Reply& reply, const ListTexts& texts) {
    if (reply.data()[0] != texts.message_id) {
        trace::error(where, "%s, it is %d, but must be %d", texts.wrong_id, reply.data()[0], texts.message_id);
        return false;
    }
    if (reply.data()[1] != component_request::protocol_success) {
        trace::error(where, "%s %d%s", texts.wrong_result, reply.data()[1], texts.result_suffix);
        return false;
    }
    if (reply.payload().size() <= list_header || reply.data()[2] < 1) {
        trace::error(where, "%s %d", texts.wrong_count, reply.data()[2]);
        trace::error(where, "%s %d", texts.failure, reply.data()[2]);
        return false;
    }
    return true;
}

constexpr ListTexts component_list{list_components,
                                   "Wrong message ID",
                                   "Wrong Component Protocol Result",
                                   "",
                                   "Incorrect Component Count",
                                   "Error, incorrect count of components"};
constexpr ListTexts mode_list{
    list_modes,    "Wrong message_id",      "Wrong Protocol Result",
    ", must be 1", "Incorrect Count modes", "Error, incorrect count of modes in component ct_signpad"};

// What of a list really came.
std::span<const unsigned char> list_of(const Reply& reply, std::size_t entry_size) {
    const auto payload = reply.payload();
    const std::size_t count = std::min(std::size_t{reply.data()[2]}, (payload.size() - list_header) / entry_size);
    return payload.subspan(list_header, count * entry_size);
}

template <typename Entry, std::size_t size> bool is_empty(const Entry (&table)[size]) {
    return std::all_of(std::begin(table), std::end(table), [](Entry entry) { return entry == 0; });
}

template <typename Entry> int index_in(std::span<const Entry> table, int value) {
    const auto found =
        std::find_if(table.begin(), table.end(), [=](Entry entry) { return std::int64_t{entry} == value; });
    return found == table.end() ? no_such : static_cast<int>(found - table.begin());
}

// What the pad listed. A table that was filled by somebody else has no count and is looked at as a whole.
std::span<const std::uint32_t> listed_modes(const vx_device& device) {
    const std::span<const std::uint32_t> table{device.modes_id_table};
    const std::size_t count = device.count_of_modes;
    return count == 0 || count > table.size() ? table : table.first(count);
}

// A sub-command to a signpad mode: the button that it answers, or a negative result.
int ask_mode_for_button(trace::Location where, vx_device* device, int mode_type, unsigned char sub_command) {
    if (component_request::is_missing(where, device)) {
        return -1;
    }
    if (!component_request::has_signpad_modes(*device)) {
        return -1;
    }
    const Answer answer = signpad_mode::send(where, device, mode_type, sub_command);
    if (!answer.reply) {
        return answer.result;
    }
    int button = ct_signpad_mode_send_mt_uni_cmd_button_last_event_get(answer.reply->data() + signpad_mode::sub_reply,
                                                                       sub_command);
    if (answer.reply->payload().size() < signpad_mode::sub_reply + 2) {
        button = -1;
    }
    if (button < 0) {
        trace::error(where, "Error, incorrect button value %d", button);
        return button;
    }
    VX_INFO_STYLED_AT(where, trace::Style::kind_after, "button: %d", button);
    return button;
}

} // namespace

component_request::Answer signpad_mode::send(trace::Location where, vx_device* device, int mode_type,
                                             unsigned char sub_command) {
    // The component first: without it there is no list of modes to ask for.
    if (const int id = ssp_common_component_id_get_id(device, component_request::ct_signpad); id < 0) {
        trace::error(where, "Error of getting Component ID, ssp_common_component_id_get_id() return %d", id);
        return {id, std::nullopt};
    }
    const int mode_id = ssp_common_ct_signpad_get_mode_id(device, mode_type);
    if (mode_id < 0) {
        trace::error(where, "Error of getting ct_signpad Mode ID, ssp_common_ct_signpad_get_mode_id() return %d",
                     mode_id);
        return {mode_id, std::nullopt};
    }
    const unsigned char parameters[] = {static_cast<unsigned char>(mode_id), sub_command};
    Answer answer = component_request::perform(where, device,
                                               {component_request::ct_signpad, send_to_mode, parameters,
                                                component_request::component_sender, component_request::no_reply});
    if (answer.reply && ct_signpad_mode_send_reply_check(answer.reply->data(), send_to_mode, mode_id) != 0) {
        trace::error(where,
                     "Error, check data by ct_signpad_mode_send_reply_check(data: %p, ct_cmd: %d, cts_mode_id: %d)",
                     static_cast<const void*>(answer.reply->data()), send_to_mode, mode_id);
        return {-1, std::nullopt};
    }
    return answer;
}

int send_ssp_message(vx_device* device, void* message, unsigned int size) {
    trace::Scope scope{VX_HERE};
    if (component_request::is_missing(VX_HERE, device)) {
        return scope.exit(-1);
    }
    const auto send = device->send_ssp_message;
    if (send == nullptr) {
        report_missing_function(VX_HERE, "send_ssp_message");
        return scope.exit(-1);
    }
    return scope.exit(send(device, message, size));
}

int receive_ssp_message(vx_device* device, void* data, unsigned int* size, unsigned int time_out,
                        unsigned char /*legacy*/, int /*selector*/) {
    trace::Scope scope{VX_HERE};
    if (component_request::is_missing(VX_HERE, device)) {
        return scope.exit(-1);
    }
    const auto receive = device->receive_ssp_message;
    if (receive == nullptr) {
        report_missing_function(VX_HERE, "receive_ssp_message");
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
    Answer answer = component_request::receive(VX_HERE, device, list_time_out_ms);
    return scope.exit(answer.reply ? answer.reply->release() : nullptr);
}

int ssp_common_is_ssp_supported(vx_device* device) {
    trace::Scope scope{VX_HERE};
    if (component_request::is_missing(VX_HERE, device)) {
        return scope.exit(-1);
    }
    if (const int result = ask_for_components(device); result != 0) {
        VX_ERROR("function __send_ssp_message() return %d", result);
        return scope.exit(0);
    }
    const Answer answer = component_request::receive(VX_HERE, device, probe_time_out_ms);
    if (!answer.reply || ssp_base_message_is_it_old_message(answer.reply->message()) != 0) {
        return scope.exit(0);
    }
    const int length = static_cast<int>(answer.reply->payload().size());
    VX_NOTE("bm_length: %d ", length);
    return scope.exit(length > 0 ? 1 : 0);
}

int ssp_common_components_id_initialize_table(vx_device* device) {
    trace::Scope scope{VX_HERE};
    if (component_request::is_missing(VX_HERE, device)) {
        return scope.exit(-1);
    }
    if (!is_empty(device->components_id_table)) {
        return scope.exit(0);
    }
    if (const int result = ask_for_components(device); result != 0) {
        VX_ERROR("function __send_ssp_message() return %d", result);
        return scope.exit(-1);
    }
    constexpr int asked = 0; // the message names no component
    const Answer answer = component_request::receive_from(VX_HERE, device, list_time_out_ms, asked, list_components);
    if (!answer.reply) {
        return scope.exit(-1);
    }
    if (!component_request::is_from(VX_HERE, *answer.reply, asked) ||
        !is_list(VX_HERE, *answer.reply, component_list)) {
        return scope.exit(-1);
    }
    const auto types = list_of(*answer.reply, 1);
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
    return scope.exit(index_in(std::span<const std::uint8_t>{device->components_id_table}, component_type));
}

int ssp_common_ct_signpad_initialize_modes_id_table(vx_device* device) {
    trace::Scope scope{VX_HERE};
    if (component_request::is_missing(VX_HERE, device)) {
        return scope.exit(-1);
    }
    if (!is_empty(device->modes_id_table)) {
        return scope.exit(0);
    }
    constexpr unsigned char parameters[] = {0, 0};
    const Answer answer =
        component_request::perform(VX_HERE, device,
                                   {component_request::ct_signpad, list_modes, parameters,
                                    component_request::component_sender, component_request::no_reply});
    if (!answer.reply) {
        return scope.exit(answer.result);
    }
    if (!is_list(VX_HERE, *answer.reply, mode_list)) {
        return scope.exit(-1);
    }
    const auto entries = list_of(*answer.reply, sizeof(std::uint32_t));
    const std::size_t count = std::min(entries.size() / sizeof(std::uint32_t), std::size(device->modes_id_table));
    for (std::size_t i = 0; i < count; ++i) {
        device->modes_id_table[i] = little_endian::get_u32(entries.data() + i * sizeof(std::uint32_t));
    }
    device->count_of_modes = static_cast<std::uint8_t>(count);
    return scope.exit(0);
}

int ssp_common_ct_signpad_get_mode_id(vx_device* device, int mode_type) {
    trace::Scope scope{VX_HERE};
    if (component_request::is_missing(VX_HERE, device)) {
        return scope.exit(-1);
    }
    if (!component_request::has_signpad_modes(*device)) {
        VX_ERROR("Getting SSP ct_signpad Mode ID is not supported for current Device");
        return scope.exit(-1);
    }
    if (const int result = ssp_common_ct_signpad_initialize_modes_id_table(device); result != 0) {
        VX_ERROR("Can not initialize ct_signpad Mode ID table, ssp_initialize_ct_signpad_modes_id_table() return: %d",
                 result);
        return scope.exit(result);
    }
    return scope.exit(index_in(listed_modes(*device), mode_type));
}

int ct_signpad_mode_send_reply_check(const unsigned char* payload, int ct_cmd, int cts_mode_id) {
    trace::Scope scope{VX_HERE};
    if (!component_request::has_header(payload, ct_cmd) || payload[2] != cts_mode_id) {
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
