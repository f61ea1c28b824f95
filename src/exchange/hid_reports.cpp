// Reports of HID pads, as hidapi moves them.
#include "exchange/report_table.hpp"
#include "support/trace.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/hid.h"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/report_io.h"

namespace {

int feature_read(vx_device* device, void* data, unsigned int length) {
    return hid_feature_read(device->hid, data, length);
}

int feature_write(vx_device* device, const void* data, unsigned int length) {
    return hid_feature_write(device->hid, data, length);
}

int output_write(vx_device* device, const void* data, unsigned int length) {
    return hid_output_write(device->hid, data, length);
}

int input_read(vx_device* device, void* data, unsigned int length) {
    return hid_input_read(device->hid, data, length);
}

bool expect_open(const trace::Location& where, vx_device* device) {
    if (device == nullptr) {
        trace::error(where, "Wrong device pointers, current_device is NULL...");
        return false;
    }
    if (record::load(device->hid) == nullptr) {
        trace::error(where, "dev_shared->current_device->hid is NULL...");
        return false;
    }
    return true;
}

template <int (*SizeOf)(vx_device*)> std::optional<int> size_where_open(vx_device& device) {
    const int size = record::load(device.hid) != nullptr ? SizeOf(&device) : -1;
    return size >= 0 ? std::optional{size} : std::nullopt;
}

} // namespace

int hid_get_max_packet_size_of_out_endpoint(vx_device* device) {
    trace::Scope scope{VX_HERE};
    // A constant of the pads' HID interface, not read from its descriptors.
    return scope.exit(expect_open(scope.where(), device) ? 64 : -1);
}

int hid_get_max_packet_size_of_input_report(vx_device* device) {
    trace::Scope scope{VX_HERE};
    if (!expect_open(scope.where(), device)) {
        return scope.exit(-1);
    }
    return scope.exit(device->pad_type == 1 ? 20 : 64);
}

const report_table::Table report_table::over_hid{
    .feature_read = feature_read,
    .feature_write = feature_write,
    .output_write = output_write,
    .input_read = input_read,
    .output_packet_size = size_where_open<hid_get_max_packet_size_of_out_endpoint>,
    .input_packet_size = size_where_open<hid_get_max_packet_size_of_input_report>,
};
