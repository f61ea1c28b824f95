// hidapi, over the pads of the virtual bus.
#include "calls.hpp"

#include <hidapi/hidapi.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

using standins::bus;
using standins::Bytes;
using standins::Calls;
using standins::describe;
using standins::HidInterface;

namespace {

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

extern "C" {

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

} // extern "C"
