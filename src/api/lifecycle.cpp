// Start, stop, and the walk through the list of pads.
#include "pads/current_pad.hpp"
#include "session/call.hpp"
#include "session/device_list.hpp"
#include "session/exception_ring.hpp"
#include "session/receive_thread.hpp"
#include "session/removal.hpp"
#include "session/search.hpp"
#include "session/selection.hpp"
#include "support/detached_thread.hpp"
#include "support/log_delivery.hpp"
#include "support/wchar_tools.hpp"
#include "vxpadcom/internals/discovery.h"
#include "vxpadcom/internals/process_state.h"
#include "vxpadcom/internals/wide_text.h"
#include "vxpadcom/vxpadcom.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

pthread_mutex_t gen_thread_mutex_lock = PTHREAD_MUTEX_INITIALIZER;

namespace {

// Ends all threads of the library, the upload threads too, and waits for the calls that use a pad. Without the list's
// lock: they may be inside callbacks.
void stop_read_threads() {
    trace::Entry scope{VX_HERE};
    {
        VX_LOCK(lock, &dev_list_short_lock);
        interface_state::close();
    }
    std::atomic_ref{interface_routine_terminate}.store(1); // again, for an upload that was let in meanwhile
    receive_thread::stop_all(scope.where());
    {
        VX_LOCK(lock, &dev_list_short_lock);
        interface_state::forget_callbacks(scope.where());
    }
    detached_thread::wait_for_all();
}

int tear_down() {
    trace::Scope scope{VX_HERE_AS("__deinitialize")};
    std::atomic_ref{interface_routine_terminate}.store(1);
    stop_read_threads();
    {
        trace::Lock lock{&dev_list_short_lock, "&dev_list_short_lock", scope.where()};
        interface_state::clear(scope.where());
        device_list::destroy();
    }
    exception_ring::clear(scope.where());
    log_delivery::forget_callback();
    removal::set_callback(nullptr, nullptr);
    core_uninitialize();
    return scope.exit(0);
}

// A thread that the tear-down waits for would wait for itself. It is inside a callback that must not do so.
bool expect_no_own_call(const trace::Location& where) {
    const bool is_free = !detached_thread::is_counted();
    if (!is_free) {
        trace::error(where, "Error, %s() was called by a callback that must not call it: nothing is done",
                     where.function);
    }
    return is_free;
}

// Selects a pad for the enumeration: its number, or 0 with the reason in the log.
unsigned int enumerate(const trace::Location& where, unsigned int device) {
    const detached_thread::Counted counted;
    const int result = selection::set_dev_to_current(device, selection::ListLock::take);
    if (result == 0) {
        VX_INFO_AT(where, "Was switched to device: %d", device);
        return device;
    }
    if (result < 0) {
        trace::error(where, "set_dev_to_current() was return %d", result);
        trace::error(where, "Error of switching to device: %d", device);
        trace::error(where, "No device detected");
    } else if (result == 1) {
        trace::error(where, "Can not switch to device: %d", device);
    } else {
        trace::error(where, "static function set_dev_to_current() return unexpected value: %d", result);
    }
    return 0;
}

// 0 also where the library is not initialised.
unsigned int count_of_devices(const trace::Location& where) {
    trace::Lock lock{&dev_list_short_lock, "&dev_list_short_lock", where};
    const device_list::Table* table = device_list::table();
    return table == nullptr ? 0 : table->count;
}

// What the log shows of an answer, which need not have a terminator.
wchar_tools::Text shown(const char16_t* text, int units) {
    char16_t terminated[VXPAD_MAX_STRING_LENGTH] = {};
    std::copy_n(text, std::min(units, VXPAD_MAX_STRING_LENGTH - 1), terminated);
    return wchar_tools::narrow(terminated);
}

} // namespace

int Initialize() {
    trace::Entry scope{VX_HERE};
    if (!expect_no_own_call(VX_HERE)) {
        return scope.exit(0);
    }
    VX_LOCK(general_lock, &gen_thread_mutex_lock);
    const current_pad::Serve none{nullptr}; // a device-removed callback may search again
    tear_down();
    core_initialize();

    VX_LOCK(list_lock, &dev_list_short_lock);
    device_list::create();
    interface_state::open();
    if (const int found = search::looking_for_device(); found >= 0) {
        VX_INFO("Number of devices found: %d", found);
    }
    return scope.exit(0);
}

int Deinitialize() {
    trace::Entry scope{VX_HERE};
    if (!expect_no_own_call(VX_HERE)) {
        return scope.exit(0);
    }
    VX_LOCK(general_lock, &gen_thread_mutex_lock);
    tear_down();
    registry::forget_answers_left_behind();
    return scope.exit(0);
}

bool IsInitialized() {
    trace::Entry scope{VX_HERE};
    VX_LOCK(lock, &dev_list_short_lock);
    const bool initialized = device_list::table() != nullptr;
    if (initialized) {
        VX_INFO("Was initialized");
    } else {
        VX_INFO("Is not initialized, use Initialize() first");
    }
    return scope.exit(initialized);
}

int GetDeviceCount(unsigned int* reply) {
    Call call{VX_HERE};
    if (const int failed = call.require_reply(VXPCEC_INVALID_PARAMETER, reply)) {
        return call.exit(failed);
    }
    // The answer is the result: applications have come to rely on *reply staying as it was.
    return call.exit(static_cast<int>(count_of_devices(VX_HERE)));
}

int EnumerateDevicesStart(unsigned int* reply) {
    Call call{VX_HERE};
    if (const int failed = call.require_reply(VXPCEC_INVALID_PARAMETER, reply)) {
        return call.exit(failed);
    }
    if (count_of_devices(VX_HERE) == 0) {
        Deinitialize();
        Initialize();
    }
    *reply = enumerate(VX_HERE, 1);
    return call.exit(0);
}

int EnumerateDevicesNext(unsigned int* reply) {
    Call call{VX_HERE};
    if (const int failed = call.require_reply(VXPCEC_INVALID_PARAMETER, reply)) {
        return call.exit(failed);
    }
    *reply = 0;
    const int current = selection::get_current_dev();
    if (current <= 0) {
        VX_ERROR("Error of getting info about current device");
        return call.exit(0);
    }
    const auto number = static_cast<unsigned int>(current);
    if (count_of_devices(VX_HERE) > number) {
        *reply = enumerate(VX_HERE, number + 1);
    }
    return call.exit(0);
}

int SayHello(const char16_t* text, char16_t* res_text, int res_text_size, unsigned int* reply) {
    Call call{VX_HERE};
    if (const int failed =
            call.require(text != nullptr, VXPCEC_INVALID_PARAMETER, "Error of input parameters, char *text is NULL")) {
        return call.exit(failed);
    }
    if (const int failed = call.require_text_output(VXPCEC_INVALID_PARAMETER, res_text, res_text_size, reply)) {
        return call.exit(failed);
    }
    const int text_length = wstr_length(text);
    VX_INFO("wstr_length(text):  %d", text_length);
    char narrow[VXPAD_MAX_STRING_LENGTH] = {};
    wstr_to_astr(narrow, text, text_length + 1 < 255 ? text_length + 1 : 254);
    VX_INFO("wstr_to_astr() populate:  %s", narrow);

    char greeting[4097] = {};
    std::snprintf(greeting, 4096, "%s%s%s%s", "someText = ", "\"", narrow, "\"");
    const int string_size = static_cast<int>(std::strlen(greeting)) + 1;
    VX_INFO("result string: %s, string size: %d", greeting, string_size);
    const int buf_len = string_size > 254 ? 255 : string_size;
    VX_INFO("buf_len: %d", buf_len);
    VX_INFO("sizeof(pwc): %d", static_cast<int>(VXPAD_MAX_STRING_LENGTH * sizeof(char16_t)));
    VX_INFO("befor call conversion for string:: %s, string size: %d", greeting, string_size);
    VX_INFO("after astr_to_wstr() do wstr_length()  %d", std::min(string_size - 1, buf_len));
    *reply = call.write_text(res_text, res_text_size, greeting, buf_len);
    VX_INFO("wchar_t pwc[VXPAD_MAX_STRING_LENGTH]: %.*s", buf_len, greeting);
    VX_INFO("res_text:  %s, *reply: %d", shown(res_text, static_cast<int>(*reply)).text, *reply);
    return call.exit(0);
}
