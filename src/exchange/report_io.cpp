// Reports of one record, whatever its transport.
#include "vxpadcom/internals/report_io.h"
#include "exchange/report_table.hpp"
#include "transport/open_close.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/record.h"

namespace {

enum class RecordLock { is_held, is_taken };

bool not_zero(int result) {
    return result != 0;
}
bool negative(int result) {
    return result < 0;
}

// The four transfers. Data is what the caller's buffer holds: void where it is filled, const void where it is sent.
template <typename Data> struct Transfer {
    const char* name; // in its error line
    RecordLock lock;
    int (*report_table::Table::*function)(vx_device*, Data*, unsigned int);
    bool (*is_failure)(int result);
    bool tells_length = false;
};

constexpr Transfer<void> feature_read{.name = "read",
                                      .lock = RecordLock::is_held,
                                      .function = &report_table::Table::feature_read,
                                      .is_failure = not_zero,
                                      .tells_length = true};
constexpr Transfer<const void> feature_write{.name = "write",
                                             .lock = RecordLock::is_held,
                                             .function = &report_table::Table::feature_write,
                                             .is_failure = not_zero};
constexpr Transfer<const void> output_write{.name = "write",
                                            .lock = RecordLock::is_taken,
                                            .function = &report_table::Table::output_write,
                                            .is_failure = not_zero};
constexpr Transfer<void> input_read{
    .name = "read", .lock = RecordLock::is_taken, .function = &report_table::Table::input_read, .is_failure = negative};

bool expect_arguments(const trace::Location& where, const vx_device* device, const void* data, unsigned int length) {
    if (device == nullptr) {
        trace::error(where, "Error, input parameter: device *current_device is %p", static_cast<const void*>(device));
    } else if (length == 0) {
        trace::error(where, "Error, input parameter: unsigned int len is %d", length);
    } else if (data == nullptr) {
        trace::error(where, "Error, input parameter: void *data is %p", data);
    } else {
        return true;
    }
    return false;
}

bool expect_open(const trace::Location& where, vx_device& device, RecordLock lock) {
    const auto is_open = [&device] { return open_transport::is_any(device); };
    if (lock == RecordLock::is_taken ? record::look_at_handles(where, device, is_open) : is_open()) {
        return true;
    }
    trace::error(where, "Error, device pointers: *hid and *vcom_handle are NULL");
    return false;
}

template <typename Data>
int run(const trace::Location& where, const Transfer<Data>& transfer, vx_device* device, Data* data,
        unsigned int length) {
    if (!expect_arguments(where, device, data, length) || !expect_open(where, *device, transfer.lock)) {
        return -1;
    }
    const trace::Lock lock{transfer.lock == RecordLock::is_taken ? device->device_lock : nullptr,
                           "current_device->device_lock", where};
    const report_table::Table& transport = report_table::of(*device);
    if (transfer.tells_length) {
        VX_INFO_STYLED_AT(where, trace::Style::kind_after, "input parameter len:[%d]", length);
    }
    const int result = (transport.*transfer.function)(device, data, length);
    if (!transfer.is_failure(result)) {
        return result;
    }
    trace::error(where, "%s function failed with return code %d", transfer.name, result);
    return open_close::recover(*device);
}

} // namespace

int core_feature_read(vx_device* device, void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    return scope.exit(run(scope.where(), feature_read, device, data, length));
}

int core_feature_write(vx_device* device, const void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    return scope.exit(run(scope.where(), feature_write, device, data, length));
}

int core_output_write(vx_device* device, const void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    return scope.exit(run(scope.where(), output_write, device, data, length));
}

int core_input_read(vx_device* device, void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    return scope.exit(run(scope.where(), input_read, device, data, length));
}
