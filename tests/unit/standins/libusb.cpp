// libusb, over the devices of the virtual bus.
#include "calls.hpp"

#include <libusb-1.0/libusb.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

using standins::bus;
using standins::Bytes;
using standins::Calls;
using standins::describe;
using standins::UsbDevice;

extern "C" {

int libusb_init(libusb_context** context) {
    const auto guard = Calls::begin("libusb_init", context ? "context" : "");
    return bus().libusb_init_result;
}

void libusb_exit(libusb_context*) {
    Calls::begin("libusb_exit", "");
}

void libusb_set_debug(libusb_context*, int level) {
    Calls::begin("libusb_set_debug", std::to_string(level));
}

ssize_t libusb_get_device_list(libusb_context*, libusb_device*** list) {
    const auto guard = Calls::begin("libusb_get_device_list", "");
    if (bus().device_list_result < 0) {
        return bus().device_list_result;
    }
    std::vector<libusb_device*> nodes;
    for (UsbDevice& model : Calls::usb_devices()) {
        if (model.plugged) {
            nodes.push_back(Calls::usb_node(model));
        }
    }
    *list = new libusb_device* [nodes.size() + 1] {};
    std::copy(nodes.begin(), nodes.end(), *list);
    Calls::list_given(*list);
    return static_cast<ssize_t>(nodes.size());
}

void libusb_free_device_list(libusb_device** list, int unref_devices) {
    const auto guard = Calls::begin("libusb_free_device_list", std::to_string(unref_devices));
    if (!list || !Calls::list_returned("libusb_free_device_list", list)) {
        return;
    }
    for (libusb_device** device = list; unref_devices && *device; ++device) {
        Calls::unrefer("libusb_free_device_list", *device);
    }
    delete[] list;
}

libusb_device* libusb_ref_device(libusb_device* device) {
    const auto guard = Calls::begin("libusb_ref_device", Calls::name(device));
    return Calls::is_alive("libusb_ref_device", device) ? Calls::refer(device) : device;
}

void libusb_unref_device(libusb_device* device) {
    const auto guard = Calls::begin("libusb_unref_device", Calls::name(device));
    Calls::unrefer("libusb_unref_device", device);
}

int libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor) {
    auto guard = Calls::begin("libusb_get_device_descriptor", Calls::name(device));
    if (!Calls::is_alive("libusb_get_device_descriptor", device)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (const auto result = Calls::ordered(guard, *device->model, "libusb_get_device_descriptor")) {
        return *result;
    }
    const UsbDevice& model = *device->model;
    *descriptor = {};
    descriptor->idVendor = model.vendor_id;
    descriptor->idProduct = model.product_id;
    descriptor->iManufacturer = model.manufacturer.empty() ? 0 : 1;
    descriptor->iProduct = model.product.empty() ? 0 : 2;
    descriptor->iSerialNumber = model.serial_number.empty() ? 0 : 3;
    descriptor->bNumConfigurations = static_cast<std::uint8_t>(model.configurations.size());
    return 0;
}

int libusb_get_config_descriptor(libusb_device* device, uint8_t index, libusb_config_descriptor** config) {
    auto guard = Calls::begin("libusb_get_config_descriptor",
                              Calls::name(device) + ", " + std::to_string(static_cast<unsigned int>(index)));
    if (!Calls::is_alive("libusb_get_config_descriptor", device)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (const auto result = Calls::ordered(guard, *device->model, "libusb_get_config_descriptor")) {
        return *result;
    }
    if (index >= device->model->configurations.size()) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    const auto& model = device->model->configurations[index];
    auto* interfaces = new libusb_interface[model.size()]{};
    for (std::size_t i = 0; i < model.size(); ++i) {
        auto* settings = new libusb_interface_descriptor[model[i].size()]{};
        for (std::size_t k = 0; k < model[i].size(); ++k) {
            auto* endpoints = new libusb_endpoint_descriptor[model[i][k].size()]{};
            for (std::size_t e = 0; e < model[i][k].size(); ++e) {
                endpoints[e].bEndpointAddress = model[i][k][e].address;
                endpoints[e].wMaxPacketSize = model[i][k][e].max_packet_size;
            }
            settings[k].bInterfaceNumber = static_cast<std::uint8_t>(i);
            settings[k].bNumEndpoints = static_cast<std::uint8_t>(model[i][k].size());
            settings[k].endpoint = endpoints;
        }
        interfaces[i].altsetting = settings;
        interfaces[i].num_altsetting = static_cast<int>(model[i].size());
    }
    *config = new libusb_config_descriptor{};
    (*config)->bNumInterfaces = static_cast<std::uint8_t>(model.size());
    (*config)->interface = interfaces;
    Calls::list_given(*config);
    return 0;
}

void libusb_free_config_descriptor(libusb_config_descriptor* config) {
    const auto guard = Calls::begin("libusb_free_config_descriptor", "");
    if (!config || !Calls::list_returned("libusb_free_config_descriptor", config)) {
        return;
    }
    for (int i = 0; i < config->bNumInterfaces; ++i) {
        for (int k = 0; k < config->interface[i].num_altsetting; ++k) {
            delete[] config->interface[i].altsetting[k].endpoint;
        }
        delete[] config->interface[i].altsetting;
    }
    delete[] config->interface;
    delete config;
}

int libusb_get_string_descriptor_ascii(libusb_device_handle* handle, uint8_t index, unsigned char* data, int length) {
    auto guard = Calls::begin("libusb_get_string_descriptor_ascii",
                              Calls::name(handle) + ", " + std::to_string(static_cast<unsigned int>(index)) + ", " +
                                  std::to_string(length));
    if (!Calls::is_open("libusb_get_string_descriptor_ascii", handle)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    UsbDevice& model = *handle->device->model;
    if (const auto result = Calls::ordered(guard, model, "libusb_get_string_descriptor_ascii")) {
        return *result;
    }
    if (!model.plugged) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (index < 1 || index > 3) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const std::string* texts[] = {&model.manufacturer, &model.product, &model.serial_number};
    const std::string text = texts[index - 1]->substr(0, static_cast<std::size_t>(length - 1));
    std::copy(text.begin(), text.end(), data);
    data[text.size()] = 0;
    return static_cast<int>(text.size());
}

int libusb_open(libusb_device* device, libusb_device_handle** handle) {
    auto guard = Calls::begin("libusb_open", Calls::name(device));
    if (!Calls::is_alive("libusb_open", device)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (const auto result = Calls::ordered(guard, *device->model, "libusb_open"); result && *result != 0) {
        return *result;
    }
    if (!device->model->plugged) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    *handle = Calls::open(device);
    return 0;
}

void libusb_close(libusb_device_handle* handle) {
    const auto guard = Calls::begin("libusb_close", Calls::name(handle));
    if (!Calls::is_open("libusb_close", handle)) {
        return;
    }
    handle->open = false;
    Calls::unrefer("libusb_close", handle->device);
}

namespace {

// The calls that name an interface succeed by default.
int with_interface(const char* function, libusb_device_handle* handle, int interface) {
    auto guard = Calls::begin(function, Calls::name(handle) + ", " + std::to_string(interface));
    if (!Calls::is_open(function, handle)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    return Calls::ordered(guard, *handle->device->model, function).value_or(0);
}

} // namespace

int libusb_kernel_driver_active(libusb_device_handle* handle, int interface) {
    return with_interface("libusb_kernel_driver_active", handle, interface);
}

int libusb_detach_kernel_driver(libusb_device_handle* handle, int interface) {
    return with_interface("libusb_detach_kernel_driver", handle, interface);
}

int libusb_claim_interface(libusb_device_handle* handle, int interface) {
    return with_interface("libusb_claim_interface", handle, interface);
}

namespace {

int bulk_in(libusb_device_handle* handle, unsigned char endpoint, std::span<unsigned char> data, int& transferred,
            unsigned int time_out) {
    auto guard = Calls::begin("libusb_bulk_transfer",
                              Calls::transfer_text(handle, endpoint, std::to_string(data.size()), time_out));
    if (!Calls::is_open("libusb_bulk_transfer", handle)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    UsbDevice& model = *handle->device->model;
    const auto hook = bus().hooks.bulk_in;
    guard.unlock();
    if (hook) {
        if (const auto result = hook(model, data, transferred)) {
            return *result;
        }
    }
    guard.lock();
    if (!model.plugged) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (model.incoming.empty()) {
        guard.unlock();
        bus().advance_us(std::int64_t{time_out} * 1000);
        return LIBUSB_ERROR_TIMEOUT;
    }
    Bytes& next = model.incoming.front();
    const std::size_t count = std::min(next.size(), data.size());
    std::copy_n(next.begin(), count, data.begin());
    transferred = static_cast<int>(count);
    next.erase(next.begin(), next.begin() + transferred);
    if (next.empty()) {
        model.incoming.pop_front();
    }
    return 0;
}

int bulk_out(libusb_device_handle* handle, unsigned char endpoint, std::span<const unsigned char> data,
             int& transferred, unsigned int time_out) {
    auto guard = Calls::begin("libusb_bulk_transfer", Calls::transfer_text(handle, endpoint, describe(data), time_out));
    if (!Calls::is_open("libusb_bulk_transfer", handle)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    UsbDevice& model = *handle->device->model;
    const auto hook = bus().hooks.bulk_out;
    guard.unlock();
    if (hook) {
        if (const auto result = hook(model, data, transferred)) {
            return *result;
        }
    }
    guard.lock();
    if (!model.plugged) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    model.outgoing.emplace_back(data.begin(), data.end());
    transferred = static_cast<int>(data.size());
    const auto answer = model.answer;
    const Bytes sent = model.outgoing.back();
    guard.unlock();
    if (answer) {
        answer(model, sent);
    }
    return 0;
}

} // namespace

int libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data, int length,
                         int* transferred, unsigned int time_out) {
    const std::span bytes(data, static_cast<std::size_t>(length));
    return (endpoint & 0x80) != 0 ? bulk_in(handle, endpoint, bytes, *transferred, time_out)
                                  : bulk_out(handle, endpoint, bytes, *transferred, time_out);
}

const char* libusb_error_name(int code) {
    switch (code) {
    case LIBUSB_ERROR_IO:
        return "LIBUSB_ERROR_IO";
    case LIBUSB_ERROR_NO_DEVICE:
        return "LIBUSB_ERROR_NO_DEVICE";
    case LIBUSB_ERROR_TIMEOUT:
        return "LIBUSB_ERROR_TIMEOUT";
    case LIBUSB_ERROR_PIPE:
        return "LIBUSB_ERROR_PIPE";
    default:
        return "LIBUSB_ERROR";
    }
}

} // extern "C"
