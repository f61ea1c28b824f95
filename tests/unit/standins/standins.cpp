#include "standins.hpp"

#include VXPADCOM_USB_IDS_FILE

#include "calls.hpp"
#include "vxpadcom/internals.h"

#include <algorithm>
#include <cstdio>

namespace standins {
namespace {

constexpr std::int64_t start_of_time_us = 1'700'000'000'000'000;

} // namespace

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
