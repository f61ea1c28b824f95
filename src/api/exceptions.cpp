// The exported functions that read exception records.
#include "session/call.hpp"
#include "session/exception_ring.hpp"
#include "vxpadcom/vxpadcom.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

using exception_ring::Record;

constexpr int longest_answer = 254; // characters of a record that a query converts

constexpr const char* wrong_handle = "Error of input parameters, incorrect unsigned int exception_handle";

// Handle 64 passes here and then names no record.
int require_handle(Call& call, unsigned int handle) {
    return call.require(handle <= exception_ring::slots, VXPCEC_UNKNOWN, wrong_handle);
}

// The text queries differ in the field that they read and in whether they count its terminator.
int query_text(Call& call, unsigned int handle, char16_t* res_text, int res_text_size, unsigned int* reply,
               const char (Record::*field)[exception_ring::text_size], int counted_terminator) {
    if (const int failed = require_handle(call, handle)) {
        return failed;
    }
    if (const int failed = call.require_text_output(VXPCEC_UNKNOWN, res_text, res_text_size, reply)) {
        return failed;
    }
    const auto record = exception_ring::find(call.where(), handle);
    if (!record) {
        return call.fail(VXPCEC_UNKNOWN, wrong_handle);
    }
    const char* text = *record.*field;
    const int length = std::min(static_cast<int>(std::strlen(text)) + counted_terminator, longest_answer);
    *reply = call.write_text(res_text, res_text_size, text, length);
    return 0;
}

int query_code(Call& call, unsigned int handle, unsigned int* reply) {
    if (const int failed = require_handle(call, handle)) {
        return failed;
    }
    if (const int failed = call.require_reply(VXPCEC_UNKNOWN, reply)) {
        return failed;
    }
    const auto record = exception_ring::find(call.where(), handle);
    if (!record) {
        return call.fail(VXPCEC_UNKNOWN, wrong_handle);
    }
    *reply = static_cast<unsigned int>(record->code);
    return 0;
}

struct ResultCodeName {
    int code;
    const char* name;
};

constexpr const char* unknown_code = "VXPCEC_UNKNOWN";
constexpr ResultCodeName result_code_names[] = {
    {VXPCEC_SUCCESS, "VXPCEC_SUCCESS"},
    {VXPCEC_DLL_NOT_LOADED, "VXPCEC_DLL_NOT_LOADED"},
    {VXPCEC_EXCEPTION_CAUGHT, "VXPCEC_EXCEPTION_CAUGHT"},
    {VXPCEC_INVALID_HANDLE, "VXPCEC_INVALID_HANDLE"},
    {VXPCEC_INVALID_PARAMETER, "VXPCEC_INVALID_PARAMETER"},
    {VXPCEC_TIMEOUT, "VXPCEC_TIMEOUT"},
    {VXPCEC_NO_MORE_ELEMENTS, "VXPCEC_NO_MORE_ELEMENTS"},
};

const char* name_of(int code) {
    const auto found = std::find_if(std::begin(result_code_names), std::end(result_code_names),
                                    [=](const ResultCodeName& entry) { return entry.code == code; });
    return found == std::end(result_code_names) ? unknown_code : found->name;
}

} // namespace

int GetExceptionType(unsigned int exception_handle, char16_t* res_text, int res_text_size, unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(query_text(call, exception_handle, res_text, res_text_size, reply, &Record::type, 0));
}

int GetExceptionName(unsigned int exception_handle, char16_t* res_text, int res_text_size, unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(query_text(call, exception_handle, res_text, res_text_size, reply, &Record::name, 1));
}

int GetExceptionMessage(unsigned int exception_handle, char16_t* res_text, int res_text_size, unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(query_text(call, exception_handle, res_text, res_text_size, reply, &Record::message, 1));
}

int GetExceptionCode(unsigned int exception_handle, unsigned int* reply) {
    Call call{VX_HERE};
    const int result = query_code(call, exception_handle, reply);
    if (reply != nullptr) {
        VX_INFO("OUTPUT: *reply: %d", *reply);
    }
    return call.exit(result);
}

int TranslateErrorCode(unsigned int error_code, char16_t* res_text, int res_text_size, unsigned int* reply) {
    Call call{VX_HERE};
    if (const int failed = call.require_text_output(VXPCEC_UNKNOWN, res_text, res_text_size, reply)) {
        return call.exit(failed);
    }
    const char* name = name_of(static_cast<int>(error_code));
    *reply = call.write_text(res_text, res_text_size, name, static_cast<int>(std::strlen(name)) + 1);
    return call.exit(0);
}
