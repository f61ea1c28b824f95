// Opening and closing one record on its transport.
#include "transport/open_close.hpp"

#include "support/result.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/hid.h"
#include "vxpadcom/internals/open_close.h"
#include "vxpadcom/internals/print_helpers.h"
#include "vxpadcom/internals/vcom_bulk.h"

// A path is set when any of its bytes is.
static bool has_path(const vx_device& device) {
    return !is_it_zero_array(reinterpret_cast<const unsigned char*>(device.hid_path), sizeof device.hid_path);
}

int __core_open_dev(vx_device* device) {
    trace::Scope scope{VX_HERE};
    if (device == nullptr) {
        VX_ERROR("Error, input parameter: device *current_device is %p", static_cast<void*>(device));
        return scope.exit(-1);
    }
    int result = 0;
    if (device->vcom_handle == nullptr && device->vcom_device != nullptr) {
        record::store(device->vcom_handle, vcom_open_dev(device->vcom_device));
        if (device->vcom_handle == nullptr) {
            VX_ERROR("Error, vcom_open_dev() returned NULL");
            result = -1;
        }
    }
    if (device->hid == nullptr && has_path(*device)) {
        record::store(device->hid, hid_open_dev(device->hid_path));
        if (device->hid == nullptr) {
            VX_ERROR("Error, hid_open_dev() returned NULL");
            result = -1;
        }
    }
    return scope.exit(result);
}

bool open_close::opens(vx_device& device) {
    trace::Scope scope{VX_HERE_AS("core_open_dev")};
    const trace::Lock lock{device.device_lock, "device->device_lock", scope.where()};
    const bool is_open = __core_open_dev(&device) == 0;
    scope.exit(0);
    return is_open;
}

int core_open_dev(vx_device* device) {
    if (device == nullptr) {
        trace::Scope scope{VX_HERE};
        return scope.exit(__core_open_dev(device));
    }
    // A failed open is found at the first transfer, which then tries to recover.
    open_close::opens(*device);
    return 0;
}

void __core_close_dev(vx_device* device) {
    trace::Scope scope{VX_HERE};
    if (device == nullptr) {
        VX_ERROR("Error, input parameter: device *current_device is %p", static_cast<void*>(device));
        return;
    }
    if (device->vcom_handle != nullptr) {
        vcom_close_dev(device->vcom_handle);
        record::store<libusb_device_handle>(device->vcom_handle, nullptr);
    }
    if (device->hid != nullptr) {
        hid_close_dev(device->hid);
        record::store<hid_device_>(device->hid, nullptr);
    }
}

void core_close_dev(vx_device* device) {
    trace::Scope scope{VX_HERE};
    if (device == nullptr) {
        __core_close_dev(device);
        return;
    }
    VX_LOCK(lock, device->device_lock);
    __core_close_dev(device);
}

int open_close::recover(vx_device& device) {
    __core_close_dev(&device);
    if (__core_open_dev(&device) != 0) {
        record::mark_removed(device);
        return result::removed;
    }
    return -1;
}
