#include "usb/bus.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>

namespace emulator {

namespace {
constexpr unsigned int lowest_address = 2;
constexpr unsigned int highest_address = 127;
} // namespace

Port& Bus::add(const PadSettings& settings) {
    ports_.push_back(std::make_unique<Port>(static_cast<unsigned int>(ports_.size() + 1), settings, verbose_));
    return *ports_.back();
}

unsigned int Bus::free_address() {
    do {
        last_address_ = last_address_ < highest_address ? last_address_ + 1 : lowest_address;
    } while (find_address(last_address_) != nullptr);
    return last_address_;
}

void Bus::plug(Port& port) {
    if (port.device) {
        return;
    }
    port.address = free_address();
    port.model = std::make_unique<PadModel>(port.settings);
    if (port.settings.has_ssp) {
        port.ssp = std::make_unique<SspPad>(loop_, *port.model, port.faults, port.log);
    }
    port.device = std::make_unique<UsbDevice>(loop_, *port.model, port.ssp.get(), port.faults, port.log,
                                              [this, &port] { unplug(port); });
    if (port.settings.kind == PadKind::hid) {
        port.reports = std::make_unique<PenPlayer>(
            loop_, port.model->settings(), PenPacket::input_report,
            [&model = *port.model](std::span<const std::uint8_t> report) { model.send_pen_report(report); });
    }
    if (port.settings.pen.mode == PenMode::loop) {
        port.pen().play(std::nullopt, port.settings.pen.rate);
    }
    port.log.trace("plugged in with address " + std::to_string(port.address));
    try {
        for (const auto& [plugged, unplugging] : observers_) {
            plugged(port);
        }
    } catch (...) {
        unplug(port);
        throw;
    }
}

void Bus::unplug(Port& port) {
    if (!port.device) {
        return;
    }
    port.log.trace("unplugged");
    port.device->cancel_all(TransferStatus::unplugged);
    for (const auto& [plugged, unplugging] : observers_) {
        unplugging(port);
    }
    port.reports.reset();
    port.device.reset();
    port.ssp.reset();
}

Port* Bus::find(unsigned int port_number) const {
    return port_number >= 1 && port_number <= ports_.size() ? ports_[port_number - 1].get() : nullptr;
}

Port* Bus::find_address(unsigned int address) const {
    const auto found = std::ranges::find_if(
        ports_, [&](const auto& port) { return port->device != nullptr && port->address == address; });
    return found == ports_.end() ? nullptr : found->get();
}

} // namespace emulator
