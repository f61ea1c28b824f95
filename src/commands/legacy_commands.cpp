// The fixed commands: a 64-byte feature report to the pad and one back, tried three times with growing pauses.
#include "vxpadcom/internals/legacy_commands.h"
#include "commands/growing_pause.hpp"
#include "exchange/left_over.hpp"
#include "exchange/stream_table.hpp"
#include "support/clock.hpp"
#include "support/lock.hpp"
#include "transport/known_ids.hpp"
#include "transport/open_close.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/dev_errors.h"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/report_io.h"
#include "wire/little_endian.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <unistd.h>

namespace {

// A command, and what is said of a reply that does not echo it.
struct Command {
    unsigned char code;
    const char* wrong_echo;
};
constexpr Command set_mode{0x01, "command in in_report_general not VX_CMD_SET_PAD_MODE"};
constexpr Command read_version{0x11, "command in in_report_version not VX_CMD_READ_VERSION"};
constexpr Command get_status{0x27, "value command in in_report_status not VX_CMD_GET_STATUS"};
constexpr Command create_rectangle{0x65, "command in in_report_general not VX_CMD_CREATE_SIGNATURE_RECTANGLE"};

constexpr std::size_t report_size = 64;
constexpr std::size_t short_report_size = 40; // set mode on type 1
using Report = std::array<unsigned char, report_size>;

constexpr int max_attempts = 3;
constexpr useconds_t pause_cap_us = 500'000;
constexpr useconds_t mode_poll_pause_us = 300'000;
constexpr unsigned int first_complaint = 32; // answers with another mode, after about ten seconds; then twice as many
constexpr useconds_t type_8_settle_us = 1'000'000;
constexpr int mode_time_out_ms = 3000;
constexpr std::size_t current_mode_byte = 5; // of flags_status

// Counts failed attempts and pauses after each.
class Attempts {
  public:
    explicit Attempts(const trace::Location& where, useconds_t cap_us = 0) : where_{where}, pause_{where, cap_us} {}

    bool left() const { return failed_ < max_attempts; }

    void pause_after_failure() {
        pause_.take();
        if (++failed_ == max_attempts) {
            trace::error(where_, "end of attempts, exit with error...");
        }
    }

  private:
    const trace::Location& where_;
    GrowingPause pause_;
    int failed_ = 0;
};

bool send(const trace::Location& where, vx_device& device, const Report& request, std::size_t size = report_size) {
    const int result = core_feature_write(&device, request.data(), static_cast<unsigned int>(size));
    if (result != 0) {
        VX_INFO_AT(where, "usb_feature_write() failed with return code %d", result);
    }
    return result == 0;
}

bool receive(const trace::Location& where, vx_device& device, Report& reply) {
    reply = {};
    const int result = core_feature_read(&device, reply.data(), report_size);
    if (result != 0) {
        VX_INFO_AT(where, "core_feature_read() failed with return code %d", result);
    }
    return result == 0;
}

bool expect_echo(const trace::Location& where, vx_device& device, const Report& reply, const Command& command) {
    if (reply[0] != command.code) {
        VX_INFO_AT(where, "%s", command.wrong_echo);
        if (stream_table::of(device).carries_reports) {
            left_over::expect_left_over(device);
        }
        return false;
    }
    return true;
}

bool expect_no_error(const trace::Location& where, const Report& reply) {
    if (reply[1] != 0) {
        VX_INFO_AT(where, "error: %s", vx_dev_strerror(reply[1]));
        return false;
    }
    return true;
}

// One attempt of a command whose reply echoes it: the request, the reply, its two header bytes.
bool exchange(const trace::Location& where, vx_device& device, const Command& command, const Report& request,
              Report& reply) {
    return send(where, device, request) && receive(where, device, reply) &&
           expect_echo(where, device, reply, command) && expect_no_error(where, reply);
}

Report request_for(const Command& command) {
    return {command.code};
}

bool expect_given(const trace::Location& where, const void* argument, const char* text) {
    if (argument == nullptr) {
        trace::error(where, "%s", text);
    }
    return argument != nullptr;
}

constexpr const char* device_is_null = "Error of parameter device *current_device is NULL";

bool confirms_mode(std::uint32_t pad_type) {
    constexpr std::uint32_t types[] = {8, 9, 10, 11, 12, 13, 15, 16, 17};
    return std::find(std::begin(types), std::end(types), pad_type) != std::end(types);
}

// Polls until the pad names the mode. False after too many failed queries, or one past the time-out.
bool wait_for_mode(const trace::Location& where, vx_device& device, unsigned char mode, Attempts& attempts) {
    Stopwatch stopwatch;
    unsigned int other_modes = 0;
    unsigned int next_complaint = first_complaint;
    while (attempts.left()) {
        const int current = __core_get_pad_mode(&device);
        VX_INFO_AT(where, "Device status mode: %d", current);
        if (current == mode) {
            return true;
        }
        if (current >= 0) {
            // Only failed queries are timed, on purpose: a pad that answers is given all the time that it takes.
            if (++other_modes == next_complaint) {
                trace::error(where, "the pad named mode %d, not %d, %u times; it is asked on", current, mode,
                             other_modes);
                next_complaint *= 2;
            }
            usleep(mode_poll_pause_us);
            continue;
        }
        const int elapsed_time = stopwatch.elapsed_ms();
        VX_INFO_AT(where, "elapsed_time: %d, time_out: %d", elapsed_time, mode_time_out_ms);
        VX_INFO_AT(where, "error: __core_get_pad_mode() return %d", current);
        attempts.pause_after_failure();
        if (elapsed_time >= mode_time_out_ms) {
            return false;
        }
    }
    return false;
}

} // namespace

int core_read_version(vx_device* device, dev_fw_version* version) {
    trace::Scope scope{VX_HERE};
    if (!expect_given(VX_HERE, device, device_is_null) ||
        !expect_given(VX_HERE, version, "Error of parameter dev_fw_version *dev_fw_v is NULL")) {
        return scope.exit(-1);
    }
    VX_LOCK(lock, device->device_lock);
    if (known_ids::has_fixed_version(device->vendor_id, device->product_id)) {
        version->major = 1;
        version->minor = 31;
        return scope.exit(0);
    }
    const Report request = request_for(read_version);
    Report reply;
    for (Attempts attempts{VX_HERE}; attempts.left(); attempts.pause_after_failure()) {
        if (exchange(VX_HERE, *device, read_version, request, reply)) {
            version->major = little_endian::get_u32(&reply[4]);
            version->minor = little_endian::get_u32(&reply[8]);
            version->patch = little_endian::get_u32(&reply[12]);
            version->revision = little_endian::get_u32(&reply[16]);
            std::memcpy(version->manufacturer, &reply[20], 4);
            return scope.exit(0);
        }
    }
    return scope.exit(-1);
}

int __core_get_status(vx_device* device, flags_status* status) {
    trace::Scope scope{VX_HERE};
    if (!expect_given(VX_HERE, device, device_is_null) ||
        !expect_given(VX_HERE, status, "Error of parameter flags_status *status is NULL")) {
        return scope.exit(-1);
    }
    if (device->pad_type == 1) {
        *status = {};
        return scope.exit(0);
    }
    const Report request = request_for(get_status);
    Report reply;
    for (Attempts attempts{VX_HERE, pause_cap_us}; attempts.left();) {
        if (exchange(VX_HERE, *device, get_status, request, reply)) {
            std::memcpy(status->flags, &reply[6], sizeof status->flags);
            return scope.exit(0);
        }
        attempts.pause_after_failure();
        if (record::was_removed(*device)) {
            break;
        }
    }
    return scope.exit(-1);
}

int __core_get_pad_mode(vx_device* device) {
    trace::Scope scope{VX_HERE};
    flags_status status{};
    if (const int result = __core_get_status(device, &status); result != 0) {
        VX_ERROR("__core_get_status() return %d", result);
        return scope.exit(-1);
    }
    return scope.exit(static_cast<int>(status.flags[current_mode_byte]));
}

int core_set_pad_mode(vx_device* device, int mode, int option) {
    trace::Scope scope{VX_HERE};
    if (!expect_given(VX_HERE, device, device_is_null)) {
        return scope.exit(-1);
    }
    VX_LOCK(lock, device->device_lock);
    VX_INFO("*** going to set pad mode %d", mode);

    Report request = request_for(set_mode);
    request[1] = static_cast<unsigned char>(mode);
    request[2] = static_cast<unsigned char>(option);
    const bool replies = device->pad_type != 1;
    if (!replies) {
        little_endian::put<std::uint16_t>(&request[38], 0xA5F0);
    }

    Attempts attempts{VX_HERE};
    while (attempts.left()) {
        if (device->pad_type == 8) {
            usleep(type_8_settle_us);
        }
        if (send(VX_HERE, *device, request, replies ? report_size : short_report_size)) {
            if (!replies) {
                return scope.exit(0);
            }
            Report reply;
            if (receive(VX_HERE, *device, reply) && expect_echo(VX_HERE, *device, reply, set_mode)) {
                if (!confirms_mode(device->pad_type)) {
                    return scope.exit(0);
                }
                if (expect_no_error(VX_HERE, reply)) {
                    if (wait_for_mode(VX_HERE, *device, request[1], attempts)) {
                        return scope.exit(static_cast<int>(request[1]));
                    }
                    continue; // the failed queries have been counted
                }
            }
        }
        attempts.pause_after_failure();
    }
    return scope.exit(-1);
}

int core_create_signature_rectangle(vx_device* device, unsigned short value_1, unsigned short value_2,
                                    unsigned short value_3, unsigned short value_4, unsigned int flag) {
    trace::Scope scope{VX_HERE};
    if (!expect_given(VX_HERE, device, device_is_null)) {
        return scope.exit(-1);
    }
    VX_LOCK(lock, device->device_lock);
    Report request = request_for(create_rectangle);
    little_endian::put(&request[1], value_1);
    little_endian::put(&request[3], value_2);
    little_endian::put(&request[5], value_3);
    little_endian::put(&request[7], value_4);
    little_endian::put(&request[9], flag);
    Report reply;
    for (Attempts attempts{VX_HERE}; attempts.left(); attempts.pause_after_failure()) {
        if (exchange(VX_HERE, *device, create_rectangle, request, reply)) {
            return scope.exit(0);
        }
    }
    return scope.exit(open_close::recover(*device));
}
