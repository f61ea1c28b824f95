#include "session/call.hpp"

#include "session/exception_ring.hpp"
#include "session/removal.hpp"
#include "session/selection.hpp"
#include "vxpadcom/internals/removal.h"
#include "vxpadcom/internals/wide_text.h"
#include "vxpadcom/vxpadcom.h"

#include <algorithm>
#include <cstdio>

int Call::fail(int code, const char* message) {
    trace::error(where(), "%s", message);
    return exception_ring::file(code, where().function, message);
}

int Call::fail(int code, const char* prefix, int number) {
    char message[256];
    std::snprintf(message, sizeof message, "%s%d", prefix, number);
    return fail(code, message);
}

int Call::require_reply(int code, const unsigned int* reply) {
    return require(reply != nullptr, code, "Error of input parameters, unsigned int *reply is NULL");
}

int Call::require_source(const void* src, unsigned int src_length) {
    constexpr int code = VXPCEC_INVALID_PARAMETER;
    if (const int failed = require(src != nullptr, code, "Error of input parameters, const void *src is NULL")) {
        return failed;
    }
    return require(src_length != 0, code, "Error of input parameters, const unsigned int src_length is 0");
}

int Call::require_text_output(int code, const char16_t* res_text, int res_text_size, const unsigned int* reply) {
    if (res_text == nullptr) {
        return fail(code, "Error of input parameters, char *res_text is NULL");
    }
    if (res_text_size < 1) {
        return fail(code, "Error of input parameters, int res_text_size is ", res_text_size);
    }
    return require_reply(code, reply);
}

int Call::select(unsigned int device) {
    counted_.emplace();
    const int result = selection::set_dev_to_current(device, selection::ListLock::take, &pad_);
    served_.emplace(pad_);
    return selected(result, device);
}

int Call::select_served(unsigned int device, unsigned int interface_number) {
    return selected(selection::set_served_dev_to_current(device, interface_number), device);
}

int Call::selected(int result, unsigned int device) {
    const int number = static_cast<int>(device);
    if (result == 0) {
        VX_INFO_AT(where(), "Was switched to device: %d", number);
        return 0;
    }
    trace::error(where(), "Static function set_dev_to_current() was return %d", result);
    if (result < 0) {
        return fail(VXPCEC_INVALID_HANDLE, "Error of switching to device: ", number);
    }
    if (result == 1) {
        return fail(VXPCEC_INVALID_HANDLE, "Can not switch to device: ", number);
    }
    return fail(VXPCEC_INVALID_HANDLE, "static function set_dev_to_current() return unexpected value: ", result);
}

int Call::core_failed(int result, const char* core_function, const char* prefix, unsigned int device,
                      unsigned int interface_number) {
    catch_removing_device(result, device, interface_number);
    trace::error(where(), "Error, function %s return %d", core_function, result);
    return fail(VXPCEC_INVALID_HANDLE, prefix, static_cast<int>(device));
}

unsigned int Call::write_text(char16_t* res_text, int res_text_size, const char* text, int length) const {
    char16_t wide[VXPAD_MAX_STRING_LENGTH] = {};
    astr_to_wstr(wide, text, std::min(length, VXPAD_MAX_STRING_LENGTH));
    wbzero(res_text, res_text_size);
    const int units = std::min({length, res_text_size, VXPAD_MAX_STRING_LENGTH});
    std::copy_n(wide, units, res_text);
    return static_cast<unsigned int>(units);
}
