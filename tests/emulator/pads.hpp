// Virtual pads as a program sees them that knows hidapi and libusb only.
#pragma once

#include "control_client.hpp"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <hidapi/hidapi.h>
#include <libusb-1.0/libusb.h>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace pads {

using Bytes = std::vector<unsigned char>;

inline std::string hex(const Bytes& bytes) {
    std::string text;
    for (const auto byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

struct CloseUsb {
    void operator()(libusb_device_handle* handle) const { libusb_close(handle); }
};
using UsbHandle = std::unique_ptr<libusb_device_handle, CloseUsb>;

struct CloseHid {
    void operator()(hid_device* device) const { hid_close(device); }
};
using Hid = std::unique_ptr<hid_device, CloseHid>;

inline std::string on_pad(const std::string& command, int pad, const std::string& rest = "") {
    return emulator::request(command + " " + std::to_string(pad) + (rest.empty() ? "" : " ") + rest);
}

// A libusb context of its own.
class Usb {
  public:
    Usb() { EXPECT_EQ(libusb_init(&context_), 0); }
    ~Usb() { libusb_exit(context_); }
    Usb(const Usb&) = delete;
    Usb& operator=(const Usb&) = delete;

    libusb_context* context() const { return context_; }

    UsbHandle open(int pad) const {
        UsbHandle handle;
        for_each([&](libusb_device* device) {
            libusb_device_handle* opened = nullptr;
            if (libusb_get_port_number(device) == pad && libusb_open(device, &opened) == 0) {
                handle.reset(opened);
            }
        });
        return handle;
    }

    // The ports that have a pad now.
    std::set<int> ports() const {
        std::set<int> numbers;
        for_each([&](libusb_device* device) { numbers.insert(libusb_get_port_number(device)); });
        return numbers;
    }

    void for_each(const std::function<void(libusb_device*)>& use) const {
        libusb_device** list = nullptr;
        const auto count = libusb_get_device_list(context_, &list);
        ASSERT_GE(count, 0);
        std::for_each(list, list + count, use);
        libusb_free_device_list(list, 1);
    }

  private:
    libusb_context* context_ = nullptr;
};

// Begins with pads 1 to count as they are when they have just been plugged in.
class FreshPads : public testing::Test {
  protected:
    explicit FreshPads(int count) : count_{count} {}

    void SetUp() override {
        ASSERT_TRUE(emulator::is_running()) << "start this program with vxpad-emulator";
        for (int pad = 1; pad <= count_; ++pad) {
            on_pad("clear-faults", pad);
            if (on_pad("state", pad).starts_with("plugged=1")) {
                on_pad("unplug", pad);
            }
            on_pad("plug", pad);
            on_pad("log", pad);
        }
        ASSERT_EQ(hid_init(), 0);
    }
    void TearDown() override { hid_exit(); }

  private:
    int count_;
};

} // namespace pads
