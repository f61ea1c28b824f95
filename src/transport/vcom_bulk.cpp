// Bytes over the bulk endpoints of a VCOM pad.
#include "vxpadcom/internals/vcom_bulk.h"
#include "support/arguments.hpp"
#include "support/clock.hpp"
#include "support/print_helpers.hpp"
#include "support/result.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/print_helpers.h"
#include "vxpadcom/internals/record.h"

#include <algorithm>
#include <cstring>
#include <libusb-1.0/libusb.h>
#include <unistd.h>

namespace {

constexpr unsigned int send_time_out_ms = 1000;
constexpr int send_attempts = 3;
constexpr useconds_t first_send_pause_us = 1000; // then twice as long and 500 more
constexpr useconds_t zero_data_pause_us = 1000;

static_assert(int{result::transport_lost} == LIBUSB_ERROR_NO_DEVICE && int{result::timed_out} == LIBUSB_ERROR_TIMEOUT);

// In the texts of refused arguments.
constexpr const char* size_name = "unsigned int data_size";
constexpr const char* handle_name = "struct libusb_device_handle *device_handle";

} // namespace

libusb_device_handle* vcom_open_dev(libusb_device* usb_device) {
    trace::Scope scope{VX_HERE};
    libusb_device_handle* handle = nullptr;
    if (usb_device == nullptr) {
        VX_ERROR("input parameter *usb_device == NULL");
        return scope.exit(handle);
    }
    VX_INFO("Going to open VCOM device %p", static_cast<void*>(usb_device));
    if (const int result = libusb_open(usb_device, &handle); result != 0) {
        VX_ERROR("failed during opening VCOM device %p", static_cast<void*>(usb_device));
        VX_ERROR("libusb_open() failed: %s", libusb_error_name(result));
        handle = nullptr;
    }
    return scope.exit(handle);
}

void vcom_close_dev(libusb_device_handle* handle) {
    trace::Scope scope{VX_HERE};
    if (handle != nullptr) {
        libusb_close(handle);
    }
}

int usb_data_receive(libusb_device_handle* handle, unsigned char endpoint, void* data, int data_size,
                     unsigned int time_out) {
    trace::Scope scope{VX_HERE};
    if (!arguments::expect_all(VX_HERE, {size_name, data_size}, data, {handle_name, handle})) {
        return scope.exit(-1);
    }
    VX_INFO("going to call libusb_bulk_transfer(device_handle: %p, endpoint_address_in: %d, data: %p, data_size: %d, "
            "timeout: %u)",
            static_cast<void*>(handle), endpoint, data, data_size, time_out);
    auto* bytes = static_cast<unsigned char*>(data);
    int transferred = 0;
    const int result = libusb_bulk_transfer(handle, endpoint, bytes, data_size, &transferred, time_out);
    transferred = std::clamp(transferred, 0, data_size);
    if (result == LIBUSB_ERROR_TIMEOUT) {
        VX_INFO("libusb_bulk_transfer() timeout: %s", libusb_error_name(result));
        // A transfer that ran out of time may still have brought bytes; they must not be lost.
        if (transferred == 0) {
            return scope.exit(result);
        }
    } else if (result == LIBUSB_ERROR_NO_DEVICE) {
        VX_ERROR("libusb_bulk_transfer() failed: %s", libusb_error_name(result));
        return scope.exit(result);
    } else if (result != 0) {
        VX_INFO("libusb_bulk_transfer() failed: %s", libusb_error_name(result));
        return scope.exit(result);
    }
    VX_INFO("USB_DATA_RECEIVE : %s", print_helpers::bytes_text({bytes, static_cast<std::size_t>(transferred)}).data());
    return scope.exit(transferred);
}

int usb_data_send(libusb_device_handle* handle, unsigned char endpoint, void* data, int data_size) {
    trace::Scope scope{VX_HERE};
    if (!arguments::expect_all(VX_HERE, {size_name, data_size}, data, {handle_name, handle})) {
        return scope.exit(-1);
    }
    int result = 0;
    useconds_t pause = first_send_pause_us;
    for (int attempt = 0; attempt < send_attempts; ++attempt) {
        int transferred = 0;
        result = libusb_bulk_transfer(handle, endpoint, static_cast<unsigned char*>(data), data_size, &transferred,
                                      send_time_out_ms);
        if (result == 0) {
            if (transferred != data_size) {
                VX_ERROR("transferred[%d] != data_size[%d]", transferred, data_size);
            }
            break;
        }
        if (result == LIBUSB_ERROR_NO_DEVICE) {
            VX_ERROR("libusb_bulk_transfer() failed: %s", libusb_error_name(result));
            break;
        }
        VX_INFO("libusb_bulk_transfer() failed: %s, going to try again after %u microsecond", libusb_error_name(result),
                pause);
        usleep(pause);
        pause = 2 * pause + 500;
    }
    return scope.exit(result);
}

int vcom_read_ssp_data(vx_device* device, void* data, int data_size, unsigned int time_out, unsigned char nonzero) {
    trace::Scope scope{VX_HERE};
    if (device == nullptr) {
        VX_ERROR("Error, input parameter: device *current_device is NULL");
        return scope.exit(-1);
    }
    if (device->vcom_handle == nullptr) {
        VX_ERROR("Error, input parameter: struct libusb_device_handle *vcom_handle is NULL");
        return scope.exit(-1);
    }
    if (!arguments::expect_all(VX_HERE, {size_name, data_size}, data, {handle_name, device->vcom_handle})) {
        return scope.exit(-1);
    }
    VX_NOTE("Going to read: %d", data_size);
    VX_NOTE("time_out: %u", time_out);

    int result = -1;
    Stopwatch stopwatch;
    for (unsigned int elapsed_time = 0; elapsed_time < time_out;
         elapsed_time = static_cast<unsigned int>(stopwatch.elapsed_ms())) {
        std::memset(data, 0, static_cast<std::size_t>(data_size));
        const int count = usb_data_receive(device->vcom_handle, device->ep_in, data, data_size, time_out);
        if (count == LIBUSB_ERROR_TIMEOUT) {
            result = count;
            VX_NOTE("usb_data_receive return LIBUSB_ERROR_TIMEOUT, try again....");
        } else if (count == LIBUSB_ERROR_NO_DEVICE) {
            record::mark_removed(*device);
            return scope.exit(count);
        } else if (count < 0) {
            VX_ERROR("usb_data_receive() failed with return code %d", count);
            return scope.exit(-1);
        } else if (count == 0) {
            VX_NOTE("usb_data_receive return 0, NO DATA, try again....");
        } else if (nonzero == 0 ||
                   !is_it_zero_array(static_cast<unsigned char*>(data), static_cast<std::size_t>(data_size))) {
            return scope.exit(count);
        } else {
            VX_NOTE("usb_data_receive return zerro array, try again....");
            usleep(zero_data_pause_us);
        }
    }
    return scope.exit(result);
}
