// Configuration variables of a pad and the buttons that they configure.
#include "vxpadcom/internals/ssp_configuration.h"
#include "commands/component_request.hpp"
#include "commands/signpad_modes.hpp"
#include "support/clock.hpp"
#include "support/pausing.hpp"
#include "support/result.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/record.h"
#include "wire/little_endian.hpp"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

using component_link::Answer;
using component_request::Request;

constexpr Request to_handler(unsigned char message_id) {
    return {component_request::ct_conf_handler, message_id, component_request::data_sender, component_link::no_data};
}
constexpr Request get_state = to_handler(0x10);
constexpr Request set_variable = to_handler(0x14);
constexpr Request persist_variable = to_handler(0x17);

enum State { idle = 0, CHS_WAITING = 1, CHS_RUNNING = 2, done = 3, failed = 4 };

enum Mode { signature = 0, doc_view = 5, doc_sign = 6 };

constexpr int wait_limit_ms = 10'000;
constexpr useconds_t first_pause_us = 200; // tripled before each sleep
constexpr useconds_t pause_cap_us = 500'000;

constexpr std::size_t key_size = 40;
constexpr std::size_t value_size = 20;
using VariableData = std::array<unsigned char, key_size + value_size>;

constexpr unsigned char rotate = 205;
constexpr unsigned char rotate_180 = 99;
constexpr std::uint32_t type_that_rotates_by_180 = 17;
constexpr unsigned char refresh = 0x10;

// Pads know the buttons by these keys. The table ends with code 0.
constexpr vx_conf_key conf_keys[] = {
    {rotate, doc_view, "vx.pad.mode.5.button.rotate.config"},
    {200, doc_view, "vx.pad.mode.5.button.zoom.in.config"},
    {201, doc_view, "vx.pad.mode.5.button.zoom.out.config"},
    {202, doc_view, "vx.pad.mode.5.button.next.config"},
    {203, doc_view, "vx.pad.mode.5.button.prev.config"},
    {204, doc_view, "vx.pad.mode.5.button.ssig.config"},
    {rotate_180, doc_view, "vx.pad.mode.5.button.rotate.180.config"},
    {209, doc_view, "vx.pad.mode.5.button.rotate.90.config"},
    {rotate, signature, "vx.pad.mode.0.button.rotate.config"},
    {202, signature, "vx.pad.mode.0.button.next.config"},
    {203, signature, "vx.pad.mode.0.button.prev.config"},
    {206, signature, "vx.pad.mode.0.button.ok.config"},
    {207, signature, "vx.pad.mode.0.button.repeat.config"},
    {208, signature, "vx.pad.mode.0.button.cancel.config"},
    {rotate_180, signature, "vx.pad.mode.0.button.rotate.180.config"},
    {209, signature, "vx.pad.mode.0.button.rotate.90.config"},
    {rotate, doc_sign, "vx.pad.mode.6.button.rotate.config"},
    {202, doc_sign, "vx.pad.mode.6.button.next.config"},
    {203, doc_sign, "vx.pad.mode.6.button.prev.config"},
    {206, doc_sign, "vx.pad.mode.6.button.ok.config"},
    {207, doc_sign, "vx.pad.mode.6.button.repeat.config"},
    {208, doc_sign, "vx.pad.mode.6.button.cancel.config"},
    {rotate_180, doc_sign, "vx.pad.mode.6.button.rotate.180.config"},
    {209, doc_sign, "vx.pad.mode.6.button.rotate.90.config"},
    {0, 0, ""},
};

// Sets or persists a variable between two waits for an idle handler.
int change(const trace::Location& where, vx_device* device, const Request& request, const char* key,
           const char* value) {
    if (!component_link::expect_device(where, device) || key == nullptr || value == nullptr) {
        return -1;
    }
    if (const int id = component_request::look_up(where, device, request.component); id < 0) {
        return id;
    }
    VariableData data{};
    std::copy_n(key, strnlen(key, key_size), data.begin());
    std::copy_n(value, strnlen(value, value_size), data.begin() + key_size);

    ssp_common_check_configuration_state(device);
    const Answer answer = component_request::perform(where, device, request, data);
    if (!answer.reply) {
        return -1;
    }
    if (const int result = cmduni_reply_check_cc(answer.reply->data(), request.message_id); result != 0) {
        trace::error(where, "Error, cmduni_reply_check_cc() return %d", result);
        return -1;
    }
    const int state = ssp_common_check_configuration_state(device);
    if (state == failed || state < 0) {
        trace::error(where, "Error, ssp_common_get_configuration_state() return %d", state);
        return -1;
    }
    return 0;
}

int refresh_buttons(const trace::Location& where, vx_device* device, Mode mode) {
    if (!component_link::expect_device(where, device) || !signpad_modes::has_any(*device)) {
        return -1;
    }
    const Answer answer = signpad_modes::perform(where, device, mode, refresh);
    if (!answer.reply) {
        return answer.result;
    }
    return answer.reply->data()[signpad_modes::sub_reply] == refresh ? 0 : -1;
}

} // namespace

const char* get_conf_var_string_for_code(const vx_conf_key* table, unsigned int code, unsigned int mode) {
    trace::Scope scope{VX_HERE};
    const char* key = nullptr;
    for (const vx_conf_key* entry = table; entry != nullptr && entry->code != 0; ++entry) {
        if (entry->code == code && entry->mode == mode) {
            key = entry->key;
            break;
        }
    }
    return scope.exit(key);
}

char* get_hex_string_from_data_for_conf_var_set(char* string, int string_size, const void* data, int data_size) {
    trace::Scope scope{VX_HERE};
    char* const none = nullptr;
    if (data_size < 1) {
        VX_ERROR("Wrong data_size parameter, it is: %d", data_size);
        return scope.exit(none);
    }
    if (string_size <= 0) {
        VX_ERROR("Wrong string_size parameter, it is: %d", string_size);
        return scope.exit(none);
    }
    if (data_size > string_size / 2) {
        VX_ERROR("Wrong string_size parameter, it is: %d, but data_size: %d", string_size, data_size);
        return scope.exit(none);
    }
    if (string == nullptr || data == nullptr) {
        return scope.exit(none);
    }
    std::fill_n(string, string_size, '\0');
    std::size_t used = 0;
    for (const unsigned char byte :
         std::span{static_cast<const unsigned char*>(data), static_cast<std::size_t>(data_size)}) {
        // A string of exactly twice the data's size is filled without a terminator.
        constexpr char digits[] = "0123456789ABCDEF";
        string[used++] = digits[byte >> 4];
        string[used++] = digits[byte & 0xF];
    }
    return scope.exit(string);
}

int cmduni_reply_check_cc(const unsigned char* payload, int message_id) {
    trace::Scope scope{VX_HERE};
    return scope.exit(component_link::has_header(payload, message_id) ? 0 : -1);
}

int ct_conf_handler_cmd_conf_state_get(const unsigned char* payload, int message_id) {
    trace::Scope scope{VX_HERE};
    return scope.exit(cmduni_reply_check_cc(payload, message_id) == 0 ? static_cast<int>(payload[2]) : -1);
}

int ssp_common_get_conf_state(vx_device* device) {
    trace::Scope scope{VX_HERE};
    const Answer answer = component_request::perform(VX_HERE, device, get_state, {});
    if (!answer.reply) {
        return scope.exit(answer.result);
    }
    constexpr std::size_t reply_size = 3;
    if (answer.reply->payload().size() < reply_size) {
        return scope.exit(-1);
    }
    return scope.exit(ct_conf_handler_cmd_conf_state_get(answer.reply->data(), get_state.message_id));
}

int ssp_common_check_configuration_state(vx_device* device) {
    trace::Scope scope{VX_HERE};
    if (!component_link::expect_device(VX_HERE, device)) {
        return scope.exit(-1);
    }
    if (!signpad_modes::has_any(*device)) {
        return scope.exit(0);
    }
    int state = -1; // the last that a query told
    useconds_t pause = first_pause_us;
    Stopwatch stopwatch;
    for (int elapsed_time = 0; elapsed_time < wait_limit_ms; elapsed_time = stopwatch.elapsed_ms()) {
        int answer = ssp_common_get_conf_state(device);
        if (answer < 0 && record::was_removed(*device)) {
            answer = result::transport_lost; // no query can end otherwise, nor does it take time
        }
        if (answer >= 0 || answer == result::transport_lost) {
            state = answer;
        }
        if (state == result::transport_lost || state == idle || state == done || state == failed) {
            break;
        }
        const bool busy = answer == CHS_WAITING || answer == CHS_RUNNING;
        if (busy || answer < 0) {
            // The cap is looked at before the pause is tripled, so one pause goes beyond it.
            pause = pause < pause_cap_us ? pause * 3 : pause_cap_us;
            if (busy) {
                VX_INFO("state == CHS_WAITING || state == CHS_RUNNING, going to try again after usleep(%u)", pause);
            } else {
                VX_INFO("query of the state failed with %d, going to try again after usleep(%u)", answer, pause);
            }
            pausing::take(pause);
        }
    }
    return scope.exit(state);
}

int ssp_common_set_configuration_variable(vx_device* device, const char* key, const char* value) {
    trace::Scope scope{VX_HERE};
    return scope.exit(change(VX_HERE, device, set_variable, key, value));
}

int ssp_common_persist_configuration_variable(vx_device* device, const char* key) {
    trace::Scope scope{VX_HERE};
    return scope.exit(change(VX_HERE, device, persist_variable, key, ""));
}

int ssp_common_set_button_state(vx_device* device, unsigned char code, unsigned int first_value,
                                unsigned int second_value, unsigned int mode) {
    trace::Scope scope{VX_HERE};
    if (!component_link::expect_device(VX_HERE, device) || !signpad_modes::has_any(*device)) {
        return scope.exit(-1);
    }
    const bool rotates_by_180 = device->pad_type == type_that_rotates_by_180 && code == rotate;
    const char* key = get_conf_var_string_for_code(conf_keys, rotates_by_180 ? rotate_180 : code, mode);
    if (key == nullptr) {
        return scope.exit(-1);
    }
    unsigned char state[8];
    little_endian::put<std::uint32_t>(state, first_value);
    little_endian::put<std::uint32_t>(state + 4, second_value);
    char value[256];
    get_hex_string_from_data_for_conf_var_set(value, sizeof value, state, sizeof state);
    const int result = ssp_common_set_configuration_variable(device, key, value);
    if (result != 0) {
        VX_ERROR("Error of , ssp_common_set_configuration_variable() it returns %d", result);
    }
    return scope.exit(result);
}

int ssp_common_doc_view_buttons_refresh(vx_device* device) {
    trace::Scope scope{VX_HERE};
    return scope.exit(refresh_buttons(VX_HERE, device, doc_view));
}

int ssp_common_signature_buttons_refresh(vx_device* device) {
    trace::Scope scope{VX_HERE};
    return scope.exit(refresh_buttons(VX_HERE, device, signature));
}

int ssp_common_doc_sign_buttons_refresh(vx_device* device) {
    trace::Scope scope{VX_HERE};
    return scope.exit(refresh_buttons(VX_HERE, device, doc_sign));
}
