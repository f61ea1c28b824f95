// What the stand-ins of C functions share: they note the call, spend its time and answer for the virtual bus.
#pragma once

#include "standins.hpp"

#include <hidapi/hidapi.h>
#include <libusb-1.0/libusb.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

struct hid_device_ {
    standins::HidInterface* pad;
    unsigned int times_unplugged; // differs from the pad's once the pad was unplugged under this handle
    bool nonblocking = false;
    bool open = true;
};

struct libusb_device {
    standins::UsbDevice* model;
    int references = 0;
};

struct libusb_device_handle {
    libusb_device* device;
    bool open = true;
};

namespace standins {

// A clock that stands still makes a time-out endless; a test that forgets a cost is stopped here.
constexpr std::size_t too_many_calls = 1'000'000;

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

} // namespace standins
