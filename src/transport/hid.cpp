// HID reports on an open handle.
#include "vxpadcom/internals/hid.h"
#include "support/arguments.hpp"
#include "support/clock.hpp"
#include "support/owners.hpp"
#include "support/pausing.hpp"
#include "support/print_helpers.hpp"
#include "support/trace.hpp"
#include "vxpadcom/internals/dev_errors.h"
#include "vxpadcom/internals/print_helpers.h"

#include <algorithm>
#include <hidapi/hidapi.h>
#include <unistd.h>

namespace {

constexpr int retry_time_out_ms = 1000;
constexpr useconds_t first_sleep_us = 100; // doubled before each sleep
constexpr useconds_t settle_before_close_us = 50;

constexpr unsigned int ssp_report_size = 64;
constexpr unsigned int ssp_report_header = 2; // command, status
constexpr unsigned char VX_CMD_WRITE_FRAMEBUF_DATA = 249;
constexpr unsigned char VX_HID_DEV_RETVAL_SUCCESS = 0;

void report_library_error(const trace::Location& where, hid_device* hid) {
    trace::error(where, "%s", hidapi_str_error(hid));
}

enum class Attempt { complete, incomplete, failed };

// Repeats attempt() until it is complete or the time is over. After a failure it sleeps, twice as long each time; an
// incomplete transfer goes on at once. report_last() tells what the library last returned.
template <typename Try, typename ReportLast>
bool retry(const trace::Location& where, hid_device* hid, Try attempt, ReportLast report_last) {
    Stopwatch stopwatch;
    useconds_t sleep_time = first_sleep_us;
    for (;;) {
        const Attempt outcome = attempt();
        if (outcome == Attempt::complete) {
            return true;
        }
        if (outcome == Attempt::failed) {
            sleep_time *= 2;
            pausing::take(sleep_time);
        }
        const int elapsed_time = stopwatch.elapsed_ms();
        if (outcome == Attempt::failed) {
            VX_INFO_AT(where, "error: sleep_time: %d. elapsed_time: %d, time_out: %d", sleep_time, elapsed_time,
                       retry_time_out_ms);
        }
        if (elapsed_time >= retry_time_out_ms) {
            report_last();
            trace::error(where, "error: %s(), exit by timeout: %d ms", where.function, retry_time_out_ms);
            report_library_error(where, hid);
            return false;
        }
    }
}

// A report starts with the report id, which is always 0.
Buffer report_buffer(unsigned int length) {
    return Buffer{std::size_t{length} + 1};
}

int send_report(const trace::Location& where, const char* dump_format, hid_device* hid, const void* data,
                unsigned int length) {
    if (!arguments::expect_all(where, {"unsigned int len", length}, data, {"hid_device *hid", hid})) {
        return -1;
    }
    Buffer report = report_buffer(length);
    std::memcpy(report.data() + 1, data, length);
    if (const auto listeners = trace::info_listeners()) {
        trace::info(listeners, where, trace::Style::report_dump, "%s: %s", dump_format,
                    print_helpers::bytes_text(report.span()).data());
    }

    std::size_t sent = 0;
    int result = 0;
    const bool complete = retry(
        where, hid,
        [&] {
            result = hid_send_feature_report(hid, report.data() + sent, report.size() - sent);
            if (result < 0) {
                trace::error(where, "error: hid_send_feature_report(%p, %p. %zu), failed", static_cast<void*>(hid),
                             static_cast<void*>(report.data() + sent), report.size() - sent);
                report_library_error(where, hid);
                return Attempt::failed;
            }
            sent += std::min(static_cast<std::size_t>(result), report.size() - sent);
            return sent == report.size() ? Attempt::complete : Attempt::incomplete;
        },
        [&] { trace::error(where, "error: %s(), hid_send_feature_report() return %d", where.function, result); });
    return complete ? 0 : -1;
}

} // namespace

hid_device* hid_open_dev(const char* path) {
    trace::Scope scope{VX_HERE};
    if (path == nullptr) {
        VX_ERROR("input parameter *patch == NULL");
        return scope.exit(static_cast<hid_device*>(nullptr));
    }
    hid_device* hid = nullptr;
    const bool opened = retry(
        scope.where(), nullptr,
        [&] {
            VX_INFO_AT(scope.where(), "Going to open HID device %s", path);
            hid = hid_open_path(path);
            if (hid == nullptr) {
                trace::error(scope.where(), "error: hid_open_path(%p), failed", static_cast<const void*>(path));
                report_library_error(scope.where(), nullptr);
                return Attempt::failed;
            }
            return Attempt::complete;
        },
        [&] { trace::error(scope.where(), "error: %s(), hid_open_path() return NULL", scope.where().function); });
    if (!opened) {
        VX_ERROR("hid_open_path() failed and return NULL");
        report_library_error(VX_HERE, nullptr);
        return scope.exit(hid);
    }
    hid_set_nonblocking(hid, 0);
    return scope.exit(hid);
}

void hid_close_dev(hid_device* hid) {
    trace::Scope scope{VX_HERE};
    if (hid == nullptr) {
        return;
    }
    VX_INFO("Going to call hid_close(%p)", static_cast<void*>(hid));
    usleep(settle_before_close_us);
    hid_close(hid);
    VX_INFO("hid_close(%p) done successful", static_cast<void*>(hid));
}

int hid_feature_read(hid_device* hid, void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    const trace::Location& where = scope.where();
    if (!arguments::expect_all(where, {"unsigned int len", length}, data, {"hid_device *hid", hid})) {
        return scope.exit(-1);
    }
    Buffer report = report_buffer(length);
    int result = 0;
    const bool complete = retry(
        where, hid,
        [&] {
            result = hid_get_feature_report(hid, report.data(), report.size());
            if (result < 0) {
                trace::error(where, "error: hid_get_feature_report(%p, %p. %zu), failed", static_cast<void*>(hid),
                             static_cast<void*>(report.data()), report.size());
                report_library_error(where, hid);
                return Attempt::failed;
            }
            VX_DUMP_AT(where, "report size: %d, GET HID FEATURE REPORT: %s", result,
                       print_helpers::bytes_text(report.span()).data());
            std::memcpy(data, report.data() + 1, length);
            return static_cast<std::size_t>(result) == report.size() ? Attempt::complete : Attempt::incomplete;
        },
        [&] { trace::error(where, "error: %s(), hid_get_feature_report() return %d", where.function, result); });
    return scope.exit(complete ? 0 : -1);
}

int hid_feature_write(hid_device* hid, const void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    return scope.exit(send_report(scope.where(), "SEND HID FEATURE REPORT", hid, data, length));
}

int hid_output_write(hid_device* hid, const void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    // The pads take output data as a feature report, not through an interrupt OUT pipe.
    return scope.exit(send_report(scope.where(), "WRITE HID REPORT", hid, data, length));
}

int hid_input_read(hid_device* hid, void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    if (!arguments::expect_all(scope.where(), {"unsigned int len", length}, data, {"hid_device *hid", hid})) {
        return scope.exit(-1);
    }
    if (hid_set_nonblocking(hid, 1) != 0) { // to read would be to wait, maybe for ever
        VX_ERROR("hid_set_nonblocking() failed");
        report_library_error(VX_HERE, hid);
        return scope.exit(-1);
    }
    const int result = hid_read(hid, static_cast<unsigned char*>(data), length);
    hid_set_nonblocking(hid, 0);

    if (result > 0 && static_cast<unsigned int>(result) == length) {
        VX_DUMP_AT(scope.where(), "READ HID REPORT: %s",
                   print_helpers::bytes_text({static_cast<const unsigned char*>(data), length}).data());
    } else if (result != 0) {
        VX_ERROR("hid_read() failed with return code %d", result);
        report_library_error(VX_HERE, hid);
    }
    return scope.exit(result);
}

int hid_read_ssp_data(hid_device* hid, void* data, unsigned int data_size, unsigned int time_out,
                      unsigned char request) {
    trace::Scope scope{VX_HERE};
    if (hid == nullptr) {
        VX_ERROR("Error, input parameter: hid_device *hid is NULL");
        return scope.exit(-1);
    }
    if (data_size == 0) {
        VX_ERROR("Error, input parameter: unsigned int data_size is %d", data_size);
        return scope.exit(-1);
    }
    if (data == nullptr) {
        VX_ERROR("Error, input parameter: void *data is %p", data);
        return scope.exit(-1);
    }
    VX_NOTE("time_out: %d", time_out);

    Stopwatch stopwatch;
    // Measured on every pass: a pad that answers nonsense for ever must not hold the caller.
    for (unsigned int elapsed_time = 0; elapsed_time < time_out;
         elapsed_time = static_cast<unsigned int>(stopwatch.elapsed_ms())) {
        if (request != 0) {
            const unsigned char message[ssp_report_size] = {VX_CMD_WRITE_FRAMEBUF_DATA};
            if (const int result = hid_feature_write(hid, message, sizeof message); result != 0) {
                VX_ERROR("hid_feature_write() return: %d", result);
                return scope.exit(-1);
            }
        }
        unsigned char reply[ssp_report_size] = {};
        if (const int result = hid_feature_read(hid, reply, sizeof reply); result != 0) {
            VX_NOTE("elapsed_time: %d, time_out: %d", stopwatch.elapsed_ms(), time_out);
            VX_INFO("error: hid_feature_read() failed with return code %d, try again...", result);
        } else if (reply[0] == VX_CMD_WRITE_FRAMEBUF_DATA && reply[1] == VX_HID_DEV_RETVAL_SUCCESS) {
            const unsigned int count = std::min(data_size, ssp_report_size - ssp_report_header);
            std::memcpy(data, reply + ssp_report_header, count);
            return scope.exit(static_cast<int>(count));
        } else if (reply[0] == VX_CMD_WRITE_FRAMEBUF_DATA) {
            VX_NOTE("dev_error != VX_HID_DEV_RETVAL_SUCCESS, try again....");
        } else if (is_it_zero_array(reply, sizeof reply)) {
            VX_NOTE("hid_feature_read return zerro array, try again....");
        } else {
            VX_INFO("error: command in in_report_general not VX_CMD_WRITE_FRAMEBUF_DATA");
        }
    }
    return scope.exit(-1);
}
