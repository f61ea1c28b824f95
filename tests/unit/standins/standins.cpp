#include "standins.hpp"

#include VXPADCOM_USB_IDS_FILE

#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <hidapi/hidapi.h>
#include <libusb-1.0/libusb.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

using standins::bus;
using standins::Bytes;
using standins::describe;
using standins::HidInterface;
using standins::UsbDevice;

struct hid_device_ {
    HidInterface* pad;
    unsigned int times_unplugged; // differs from the pad's once the pad was unplugged under this handle
    bool nonblocking = false;
    bool open = true;
};

struct libusb_device {
    UsbDevice* model;
    int references = 0;
};

struct libusb_device_handle {
    libusb_device* device;
    bool open = true;
};

namespace {

// A clock that stands still makes a time-out endless; a test that forgets a cost is stopped here.
constexpr std::size_t too_many_calls = 1'000'000;

constexpr std::int64_t start_of_time_us = 1'700'000'000'000'000;

unsigned char byte_of(std::uint32_t value, int index) {
    return static_cast<unsigned char>(value >> (8 * index));
}

Bytes version_reply() {
    Bytes reply{0x11, 0, 0, 0};
    for (const std::uint32_t number : {2U, 5U, 7U, 11U}) {
        for (int i = 0; i < 4; ++i) {
            reply.push_back(byte_of(number, i));
        }
    }
    for (const char letter : {'A', 'C', 'M', 'E'}) {
        reply.push_back(static_cast<unsigned char>(letter));
    }
    return reply;
}

Bytes pads_own_reply(const HidInterface& pad) {
    const unsigned char command = pad.last_request.empty() ? 0 : pad.last_request[0];
    switch (command) {
    case 0x01:
    case 0x65:
        return {command, 0};
    case 0x11:
        return version_reply();
    case 0x27:
        return {command, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, pad.mode, 7, 8, 9, 10, 11, 12, 13, 14};
    default:
        return pad.last_request;
    }
}

} // namespace

namespace standins {

// What the C functions below share: they note the call, spend its time and answer for the virtual bus.
struct Calls {
    static std::unique_lock<std::recursive_mutex> begin(std::string_view function, const std::string& arguments) {
        auto guard = bus().lock();
        bus().log_.push_back(std::string(function) + "(" + arguments + ")");
        if (bus().log_.size() == too_many_calls) {
            std::fprintf(stderr, "the library calls %s for ever\n", bus().log_.back().c_str());
            std::abort();
        }
        if (const auto cost = bus().cost_us.find(function); cost != bus().cost_us.end()) {
            bus().now_us_ += cost->second;
        }
        return guard;
    }

    static void misuse(const std::string& text) { bus().misuses_.push_back(text); }

    static std::string name(const hid_device* handle) { return handle ? handle->pad->path : "NULL"; }

    static bool is_open(const char* function, const hid_device* handle) {
        const bool ok = handle && handle->open;
        if (!ok) {
            misuse(std::string(function) + " on a handle that is not open: " + name(handle));
        }
        return ok;
    }

    static bool is_there(const hid_device* handle) {
        return handle->pad->plugged && handle->times_unplugged == handle->pad->times_unplugged;
    }

    static hid_device* open(HidInterface& pad) {
        bus().handles_.push_back(std::make_unique<hid_device>(hid_device{&pad, pad.times_unplugged}));
        return bus().handles_.back().get();
    }

    static HidInterface* find(const std::string& path) {
        for (HidInterface& pad : bus().pads_) {
            if (pad.plugged && pad.path == path) {
                return &pad;
            }
        }
        return nullptr;
    }

    static std::vector<const HidInterface*> matching(unsigned int vendor_id, unsigned int product_id) {
        std::vector<const HidInterface*> found;
        for (const HidInterface& pad : bus().pads_) {
            if (pad.plugged && (vendor_id == 0 || vendor_id == pad.vendor_id) &&
                (product_id == 0 || product_id == pad.product_id)) {
                found.push_back(&pad);
            }
        }
        return found;
    }

    static void list_given(const void* list) { bus().lists_.push_back(list); }

    static bool list_returned(const char* function, const void* list) {
        const auto found = std::find(bus().lists_.begin(), bus().lists_.end(), list);
        if (found == bus().lists_.end()) {
            misuse(std::string(function) + " of a list that was not given out");
            return false;
        }
        bus().lists_.erase(found);
        return true;
    }

    static void note_pause(unsigned int microseconds) {
        bus().pauses_.push_back(microseconds);
        bus().now_us_ += microseconds;
    }

    static std::deque<UsbDevice>& usb_devices() { return bus().usb_devices_; }

    // As with libusb a device has one node as long as somebody refers to it.
    static libusb_device* usb_node(UsbDevice& model) {
        for (const auto& node : bus().usb_nodes_) {
            if (node->model == &model && node->references > 0) {
                return refer(node.get());
            }
        }
        bus().usb_nodes_.push_back(std::make_unique<libusb_device>(libusb_device{&model}));
        return refer(bus().usb_nodes_.back().get());
    }

    static libusb_device* refer(libusb_device* device) {
        ++device->references;
        return device;
    }

    static void unrefer(const char* function, libusb_device* device) {
        if (is_alive(function, device)) {
            --device->references;
        }
    }

    static bool is_alive(const char* function, const libusb_device* device) {
        const bool ok = device && device->references > 0;
        if (!ok) {
            misuse(std::string(function) + " of a device that nobody refers to: " + name(device));
        }
        return ok;
    }

    static bool is_open(const char* function, const libusb_device_handle* handle) {
        const bool ok = handle && handle->open;
        if (!ok) {
            misuse(std::string(function) + " on a handle that is not open: " + name(handle));
        }
        return ok;
    }

    static std::string name(const libusb_device* device) { return device ? device->model->name : "NULL"; }
    static std::string name(const libusb_device_handle* handle) { return handle ? name(handle->device) : "NULL"; }

    static std::string transfer_text(const libusb_device_handle* handle, unsigned int endpoint, const std::string& data,
                                     unsigned int time_out) {
        char address[8];
        std::snprintf(address, sizeof address, "%02x", endpoint);
        return name(handle) + ", " + address + ", " + data + ", " + std::to_string(time_out);
    }

    static libusb_device_handle* open(libusb_device* device) {
        bus().usb_handles_.push_back(std::make_unique<libusb_device_handle>(libusb_device_handle{refer(device)}));
        return bus().usb_handles_.back().get();
    }

    // What a call on a device gives by order of the hook; guard is not held meanwhile.
    static std::optional<int> ordered(std::unique_lock<std::recursive_mutex>& guard, UsbDevice& device,
                                      std::string_view function) {
        const auto hook = bus().hooks.usb;
        guard.unlock();
        const auto result = hook ? hook(device, function) : std::nullopt;
        guard.lock();
        return result;
    }
};

UsbDevice vcom_pad(std::string name, std::size_t which) {
    UsbDevice pad;
    pad.vendor_id = static_cast<std::uint16_t>(vcom_device_list[which].vendor_id);
    pad.product_id = static_cast<std::uint16_t>(vcom_device_list[which].product_id);
    pad.name = std::move(name);
    pad.configurations = {{{{{0x81, 512}, {0x01, 512}}}}};
    return pad;
}

HidInterface pad_of_type(unsigned int pad_type, std::string path, int interface_number, std::wstring serial_number,
                         unsigned int occurrence) {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> ids;
    for (const std::uint32_t vendor : usb_ids::shared_vendors) {
        for (const usb_ids::Product& product : usb_ids::shared_products) {
            if (product.pad_type == pad_type) {
                ids.emplace_back(vendor, product.product_id);
            }
        }
    }
    for (const usb_ids::Product& product : usb_ids::classic_products) {
        if (product.pad_type == pad_type) {
            ids.emplace_back(usb_ids::classic_vendor, product.product_id);
        }
    }
    HidInterface pad;
    pad.path = std::move(path);
    pad.vendor_id = static_cast<std::uint16_t>(ids.at(occurrence).first);
    pad.product_id = static_cast<std::uint16_t>(ids.at(occurrence).second);
    pad.interface_number = interface_number;
    pad.serial_number = std::move(serial_number);
    return pad;
}

Bus& bus() {
    static Bus& the_bus = *[] {
        auto* made = new Bus; // outlives every static object of the library
        made->reset();
        return made;
    }();
    return the_bus;
}

void Bus::reset() {
    const auto guard = lock();
    pads_.clear();
    usb_devices_.clear();
    handles_.clear();
    usb_nodes_.clear();
    usb_handles_.clear();
    lists_.clear();
    hooks = {};
    cost_us.clear();
    hid_exit_result = 0;
    libusb_init_result = 0;
    device_list_result = 0;
    gettimeofday_result = 0;
    nonblocking_result = 0;
    signals = false;
    hid_error_text = L"no text";
    now_us_ = start_of_time_us;
    log_.clear();
    pauses_.clear();
    misuses_.clear();
}

HidInterface& Bus::plug(HidInterface pad) {
    const auto guard = lock();
    return pads_.emplace_back(std::move(pad));
}

UsbDevice& Bus::plug(UsbDevice device) {
    const auto guard = lock();
    return usb_devices_.emplace_back(std::move(device));
}

void Bus::unplug(UsbDevice& device) {
    const auto guard = lock();
    device.plugged = false;
    device.incoming.clear();
}

void Bus::plug_again(UsbDevice& device) {
    const auto guard = lock();
    device.plugged = true;
}

void Bus::unplug(HidInterface& pad) {
    const auto guard = lock();
    pad.plugged = false;
    ++pad.times_unplugged;
}

void Bus::plug_again(HidInterface& pad) {
    const auto guard = lock();
    pad.plugged = true;
}

std::int64_t Bus::now_us() {
    const auto guard = lock();
    return now_us_;
}

void Bus::advance_us(std::int64_t microseconds) {
    const auto guard = lock();
    now_us_ += microseconds;
}

std::vector<std::string> Bus::log(std::string_view function) {
    const auto guard = lock();
    const std::string beginning = std::string(function) + "(";
    std::vector<std::string> chosen;
    std::copy_if(log_.begin(), log_.end(), std::back_inserter(chosen),
                 [&](const std::string& line) { return function.empty() || line.starts_with(beginning); });
    return chosen;
}

std::vector<std::string> Bus::take_log(std::string_view function) {
    const auto guard = lock();
    std::vector<std::string> chosen = log(function);
    log_.clear();
    pauses_.clear();
    return chosen;
}

std::vector<unsigned int> Bus::pauses() {
    const auto guard = lock();
    return pauses_;
}

std::vector<std::string> Bus::misuses() {
    const auto guard = lock();
    return misuses_;
}

int Bus::open_handles() {
    const auto guard = lock();
    const auto is_open = [](const auto& handle) { return handle->open; };
    return static_cast<int>(std::count_if(handles_.begin(), handles_.end(), is_open) +
                            std::count_if(usb_handles_.begin(), usb_handles_.end(), is_open));
}

int Bus::usb_references() {
    const auto guard = lock();
    int references = 0;
    for (const auto& node : usb_nodes_) {
        references += node->references;
    }
    return references;
}

int Bus::open_lists() {
    const auto guard = lock();
    return static_cast<int>(lists_.size());
}

std::string describe(std::span<const unsigned char> bytes) {
    std::string text = std::to_string(bytes.size()) + ":";
    std::size_t used = bytes.size();
    while (used > 0 && bytes[used - 1] == 0) {
        --used;
    }
    for (const unsigned char byte : bytes.first(used)) {
        char digits[4];
        std::snprintf(digits, sizeof digits, " %02x", byte);
        text += digits;
    }
    return text;
}

} // namespace standins

using standins::Calls;

extern "C" {

// The system.

int usleep(useconds_t microseconds) {
    auto guard = Calls::begin("usleep", std::to_string(microseconds));
    if (bus().signals) {
        Calls::note_pause(std::min(microseconds, 1000U));
        return -1;
    }
    Calls::note_pause(microseconds);
    const auto hook = bus().hooks.usleep;
    guard.unlock();
    if (hook) {
        hook(microseconds);
    }
    return 0;
}

int gettimeofday(struct timeval* __restrict time, void* __restrict) noexcept {
    const auto guard = bus().lock();
    if (bus().gettimeofday_result < 0) {
        return bus().gettimeofday_result;
    }
    const std::int64_t now = bus().now_us();
    time->tv_sec = now / 1'000'000;
    time->tv_usec = now % 1'000'000;
    return 0;
}

// hidapi.

int hid_init() {
    Calls::begin("hid_init", "");
    return 0;
}

int hid_exit() {
    const auto guard = Calls::begin("hid_exit", "");
    return bus().hid_exit_result;
}

hid_device_info* hid_enumerate(unsigned short vendor_id, unsigned short product_id) {
    char ids[16];
    std::snprintf(ids, sizeof ids, "%04x, %04x", vendor_id, product_id);
    const auto guard = Calls::begin("hid_enumerate", ids);
    hid_device_info* first = nullptr;
    hid_device_info** last = &first;
    for (const HidInterface* pad : Calls::matching(vendor_id, product_id)) {
        *last = new hid_device_info{};
        (*last)->path = strdup(pad->path.c_str());
        (*last)->vendor_id = pad->vendor_id;
        (*last)->product_id = pad->product_id;
        (*last)->manufacturer_string = wcsdup(pad->manufacturer.c_str());
        (*last)->product_string = wcsdup(pad->product.c_str());
        (*last)->serial_number = wcsdup(pad->serial_number.c_str());
        (*last)->interface_number = pad->interface_number;
        last = &(*last)->next;
    }
    if (first) {
        Calls::list_given(first);
    }
    return first;
}

void hid_free_enumeration(hid_device_info* list) {
    const auto guard = Calls::begin("hid_free_enumeration", "");
    if (!list || !Calls::list_returned("hid_free_enumeration", list)) {
        return;
    }
    while (list) {
        hid_device_info* next = list->next;
        free(list->path);
        free(list->manufacturer_string);
        free(list->product_string);
        free(list->serial_number);
        delete list;
        list = next;
    }
}

hid_device* hid_open_path(const char* path) {
    auto guard = Calls::begin("hid_open_path", path);
    const auto hook = bus().hooks.open_path;
    guard.unlock();
    if (hook && hook(path).value_or(0) != 0) {
        return nullptr;
    }
    guard.lock();
    HidInterface* pad = Calls::find(path);
    return pad ? Calls::open(*pad) : nullptr;
}

void hid_close(hid_device* handle) {
    const auto guard = Calls::begin("hid_close", Calls::name(handle));
    if (Calls::is_open("hid_close", handle)) {
        handle->open = false;
    }
}

namespace {

int get_string(const char* function, hid_device* handle, wchar_t* string, size_t maxlen,
               std::wstring HidInterface::*text) {
    auto guard = Calls::begin(function, Calls::name(handle) + ", " + std::to_string(maxlen));
    if (!Calls::is_open(function, handle)) {
        return -1;
    }
    const auto hook = bus().hooks.get_string;
    guard.unlock();
    if (hook) {
        if (const auto result = hook(*handle->pad, function, {string, maxlen})) {
            return *result;
        }
    }
    guard.lock();
    if (!Calls::is_there(handle)) {
        return -1;
    }
    wcsncpy(string, (handle->pad->*text).c_str(), maxlen);
    string[maxlen - 1] = L'\0';
    return 0;
}

} // namespace

int hid_get_manufacturer_string(hid_device* handle, wchar_t* string, size_t maxlen) {
    return get_string("hid_get_manufacturer_string", handle, string, maxlen, &HidInterface::manufacturer);
}

int hid_get_product_string(hid_device* handle, wchar_t* string, size_t maxlen) {
    return get_string("hid_get_product_string", handle, string, maxlen, &HidInterface::product);
}

int hid_get_serial_number_string(hid_device* handle, wchar_t* string, size_t maxlen) {
    return get_string("hid_get_serial_number_string", handle, string, maxlen, &HidInterface::serial_number);
}

int hid_send_feature_report(hid_device* handle, const unsigned char* data, size_t length) {
    const std::span report(data, length);
    auto guard = Calls::begin("hid_send_feature_report", Calls::name(handle) + ", " + describe(report));
    if (!Calls::is_open("hid_send_feature_report", handle)) {
        return -1;
    }
    const auto hook = bus().hooks.send_feature;
    guard.unlock();
    if (hook) {
        if (const auto result = hook(*handle->pad, report)) {
            return *result;
        }
    }
    guard.lock();
    if (!Calls::is_there(handle) || report.empty()) {
        return -1;
    }
    handle->pad->last_request.assign(report.begin() + 1, report.end());
    if (report.size() > 2 && report[1] == 0x01) {
        handle->pad->mode = report[2];
    }
    return static_cast<int>(length);
}

int hid_get_feature_report(hid_device* handle, unsigned char* data, size_t length) {
    const std::span report(data, length);
    auto guard = Calls::begin("hid_get_feature_report", Calls::name(handle) + ", " + describe(report));
    if (!Calls::is_open("hid_get_feature_report", handle)) {
        return -1;
    }
    const auto hook = bus().hooks.get_feature;
    guard.unlock();
    if (hook) {
        if (const auto result = hook(*handle->pad, report)) {
            return *result;
        }
    }
    guard.lock();
    if (!Calls::is_there(handle) || report.empty()) {
        return -1;
    }
    Bytes reply;
    if (handle->pad->feature_replies.empty()) {
        reply = pads_own_reply(*handle->pad);
        reply.resize(length - 1);
    } else {
        reply = std::move(handle->pad->feature_replies.front());
        handle->pad->feature_replies.pop_front();
        reply.resize(std::min(reply.size(), length - 1));
    }
    report[0] = 0;
    std::copy(reply.begin(), reply.end(), report.begin() + 1);
    return static_cast<int>(reply.size() + 1);
}

int hid_read(hid_device* handle, unsigned char* data, size_t length) {
    auto guard = Calls::begin("hid_read", Calls::name(handle) + ", " + std::to_string(length));
    if (!Calls::is_open("hid_read", handle)) {
        return -1;
    }
    const auto hook = bus().hooks.read;
    guard.unlock();
    if (hook) {
        if (const auto result = hook(*handle->pad, {data, length})) {
            return *result;
        }
    }
    guard.lock();
    if (!Calls::is_there(handle)) {
        return -1;
    }
    if (handle->pad->input_reports.empty()) {
        if (!handle->nonblocking) {
            Calls::misuse("hid_read would wait for ever: " + handle->pad->path);
        }
        return 0;
    }
    Bytes input = std::move(handle->pad->input_reports.front());
    handle->pad->input_reports.pop_front();
    input.resize(std::min(input.size(), length));
    std::copy(input.begin(), input.end(), data);
    return static_cast<int>(input.size());
}

int hid_set_nonblocking(hid_device* handle, int nonblock) {
    const auto guard = Calls::begin("hid_set_nonblocking", Calls::name(handle) + ", " + std::to_string(nonblock));
    if (!Calls::is_open("hid_set_nonblocking", handle)) {
        return -1;
    }
    if (bus().nonblocking_result < 0) {
        return bus().nonblocking_result;
    }
    handle->nonblocking = nonblock != 0;
    return 0;
}

const wchar_t* hid_error(hid_device*) {
    const auto guard = bus().lock();
    return bus().hid_error_text.c_str();
}

// libusb.

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
