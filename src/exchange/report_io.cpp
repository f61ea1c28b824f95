// Reports of one record, whatever its transport.
#include "transport/open_close.hpp"
#include "transport/record.hpp"

namespace {

enum class Direction { read, write };
enum class Locking { caller_holds_lock, takes_lock };

bool refused(trace::Location where, const vx_device* device, const void* data, unsigned int length) {
    if (device == nullptr) {
        trace::error(where, "Error, input parameter: device *current_device is %p", static_cast<const void*>(device));
    } else if (length == 0) {
        trace::error(where, "Error, input parameter: unsigned int len is %d", length);
    } else if (data == nullptr) {
        trace::error(where, "Error, input parameter: void *data is %p", data);
    } else {
        return false;
    }
    return true;
}

// The four transfers differ in the transport's function, in what counts as failure and in who takes the lock.
template <typename ByVcom, typename ByHid, typename Failed>
int transfer(trace::Location where, Direction direction, Locking locking, vx_device* device, const void* data,
             unsigned int length, ByVcom by_vcom, ByHid by_hid, Failed failed) {
    if (refused(where, device, data, length)) {
        return -1;
    }
    const auto is_open = [&] {
        return record::load(device->hid) != nullptr || record::load(device->vcom_handle) != nullptr;
    };
    if (!(locking == Locking::takes_lock ? record::look_at_handles(where, *device, is_open) : is_open())) {
        trace::error(where, "Error, device pointers: *hid and *vcom_handle are NULL");
        return -1;
    }
    trace::Lock lock{locking == Locking::takes_lock ? device->device_lock : nullptr, "current_device->device_lock",
                     where};
    const int result = device->vcom_handle != nullptr ? by_vcom() : by_hid();
    if (!failed(result)) {
        return result;
    }
    trace::error(where, "%s function failed with return code %d", direction == Direction::read ? "read" : "write",
                 result);
    return open_close::recover(*device);
}

bool not_zero(int result) {
    return result != 0;
}
bool negative(int result) {
    return result < 0;
}

int packet_size(trace::Location where, vx_device* device, int size) {
    if (device == nullptr) {
        trace::error(where, "Wrong device pointers, current_device is NULL...");
        return -1;
    }
    if (record::load(device->hid) == nullptr) {
        trace::error(where, "dev_shared->current_device->hid is NULL...");
        return -1;
    }
    return size;
}

} // namespace

int core_feature_read(vx_device* device, void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    const auto say_length = [&] {
        VX_INFO_STYLED_AT(scope.where(), trace::Style::kind_after, "input parameter len:[%d]", length);
    };
    return scope.exit(transfer(
        scope.where(), Direction::read, Locking::caller_holds_lock, device, data, length,
        [&] {
            say_length();
            return vcom_feature_read(device, data, length);
        },
        [&] {
            say_length();
            return hid_feature_read(device->hid, data, length);
        },
        not_zero));
}

int core_feature_write(vx_device* device, const void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    return scope.exit(transfer(
        scope.where(), Direction::write, Locking::caller_holds_lock, device, data, length,
        [&] { return vcom_feature_write(device, data, length); },
        [&] { return hid_feature_write(device->hid, data, length); }, not_zero));
}

int core_output_write(vx_device* device, const void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    return scope.exit(transfer(
        scope.where(), Direction::write, Locking::takes_lock, device, data, length,
        [&] { return vcom_output_write(device, data, length); },
        [&] { return hid_output_write(device->hid, data, length); }, not_zero));
}

int core_input_read(vx_device* device, void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    return scope.exit(transfer(
        scope.where(), Direction::read, Locking::takes_lock, device, data, length,
        [&] { return vcom_input_read(device, data, length); },
        [&] { return hid_input_read(device->hid, data, length); }, negative));
}

int hid_get_max_packet_size_of_out_endpoint(vx_device* device) {
    trace::Scope scope{VX_HERE};
    // A constant of the pads' HID interface, not read from its descriptors.
    return scope.exit(packet_size(scope.where(), device, 64));
}

int hid_get_max_packet_size_of_input_report(vx_device* device) {
    trace::Scope scope{VX_HERE};
    return scope.exit(packet_size(scope.where(), device, device != nullptr && device->pad_type == 1 ? 20 : 64));
}
