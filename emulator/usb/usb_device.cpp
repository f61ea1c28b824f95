#include "usb/usb_device.hpp"

#include "base/text.hpp"
#include "pad/ssp_outbox.hpp"
#include "usb/usb_descriptors.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <utility>

namespace emulator {

namespace {

enum StandardRequest : std::uint8_t {
    get_status = 0x00,
    clear_feature = 0x01,
    get_descriptor = 0x06,
    get_configuration = 0x08,
    set_configuration = 0x09,
    get_interface = 0x0a,
    set_interface = 0x0b,
};

enum HidRequest : std::uint8_t {
    get_report = 0x01,
    get_idle = 0x02,
    set_report = 0x09,
    set_idle = 0x0a,
};

enum ReportType : std::uint8_t { input_report = 1, output_report = 2, feature_report = 3 };

constexpr std::uint8_t type_mask = 0x60;
constexpr std::uint8_t type_standard = 0x00;
constexpr std::uint8_t type_class = 0x20;
constexpr std::uint8_t recipient_mask = 0x1f;
constexpr std::uint8_t recipient_interface = 0x01;

// How often the bus asks the input endpoint.
constexpr auto polling_interval = std::chrono::milliseconds(1);

constexpr std::uint8_t high(std::uint16_t value) {
    return static_cast<std::uint8_t>(value >> 8);
}
constexpr std::uint8_t low(std::uint16_t value) {
    return static_cast<std::uint8_t>(value & 0xff);
}

bool is_hid(const SetupPacket& setup) {
    return (setup.request_type & type_mask) == type_class &&
           (setup.request_type & recipient_mask) == recipient_interface;
}

TransferKind kind_of(const SetupPacket& setup) {
    if ((setup.request_type & type_mask) == type_standard && setup.request == get_descriptor) {
        return high(setup.value) == descriptor_string ? TransferKind::string : TransferKind::descriptor;
    }
    if (is_hid(setup) && high(setup.value) == feature_report) {
        if (setup.request == get_report && setup.is_in()) {
            return TransferKind::get_feature;
        }
        if (setup.request == set_report && !setup.is_in()) {
            return TransferKind::set_feature;
        }
    }
    return TransferKind::other;
}

std::string describe(const SetupPacket& setup) {
    const std::array<std::uint8_t, 8> bytes{setup.request_type, setup.request,     low(setup.value),
                                            high(setup.value),  low(setup.index),  high(setup.index),
                                            low(setup.length),  high(setup.length)};
    return "control " + hex(bytes);
}

} // namespace

SetupPacket setup_packet(std::span<const std::uint8_t, 8> bytes) {
    const auto word = [&](std::size_t offset) {
        return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
    };
    return {bytes[0], bytes[1], word(2), word(4), word(6)};
}

UsbDevice::UsbDevice(EventLoop& loop, PadModel& model, SspPad* ssp, FaultList& faults, TransferLog& log,
                     std::function<void()> pull_out)
    : loop_{loop}, model_{model}, ssp_{ssp}, faults_{faults}, log_{log}, pull_out_{std::move(pull_out)},
      inputs_(is_vcom() ? 0 : model.settings().interfaces) {
    if (is_vcom()) {
        ssp_->outbox().on_bytes([this] { serve(bulk_in_); });
    } else {
        model_.on_input([this](unsigned int interface) { serve(inputs_.at(interface)); });
    }
}

UsbDevice::~UsbDevice() {
    model_.on_input({});
    if (is_vcom()) {
        ssp_->outbox().on_bytes({});
    }
    cancel_all(TransferStatus::unplugged);
}

UsbDevice::Bytes UsbDevice::descriptors() const {
    auto bytes = device_descriptor(model_.settings());
    const auto configuration = configuration_descriptor(model_.settings());
    bytes.insert(bytes.end(), configuration.begin(), configuration.end());
    return bytes;
}

std::optional<unsigned int> UsbDevice::interface_of(std::uint8_t endpoint,
                                                    const std::set<unsigned int>& preferred) const {
    const auto has_it = [&](unsigned int interface) { return has_endpoint(settings(), interface, endpoint); };
    if (const auto found = std::ranges::find_if(preferred, has_it); found != preferred.end()) {
        return *found;
    }
    for (unsigned int interface = 0; interface < interfaces(); ++interface) {
        if (has_it(interface)) {
            return interface;
        }
    }
    return std::nullopt;
}

UsbDevice::Lane& UsbDevice::lane_of(const Transfer& transfer) {
    if (transfer.endpoint == 0) {
        return control_;
    }
    if (is_vcom()) {
        return transfer.is_in() ? bulk_in_ : bulk_out_;
    }
    return inputs_.at(transfer.interface);
}

void UsbDevice::submit(std::shared_ptr<Transfer> transfer) {
    auto& lane = lane_of(*transfer);
    lane.waiting.push_back(std::move(transfer));
    serve(lane);
}

void UsbDevice::cancel(const std::shared_ptr<Transfer>& transfer) {
    auto& lane = lane_of(*transfer);
    const auto found = std::ranges::find(lane.waiting, transfer);
    if (found == lane.waiting.end()) {
        return;
    }
    if (found == lane.waiting.begin()) {
        finish(lane, TransferStatus::cancelled);
        serve(lane);
    } else {
        const auto cancelled = *found; // stays alive for its callback
        lane.waiting.erase(found);
        cancelled->completed(*cancelled, TransferStatus::cancelled);
    }
}

void UsbDevice::cancel_all(TransferStatus status) {
    const auto empty = [&](Lane& lane) {
        while (!lane.waiting.empty()) {
            finish(lane, status);
        }
    };
    for (auto* lane : {&control_, &bulk_in_, &bulk_out_}) {
        empty(*lane);
    }
    std::ranges::for_each(inputs_, empty);
}

void UsbDevice::serve(Lane& lane) {
    while (!lane.busy && !lane.waiting.empty()) {
        const auto* before = lane.waiting.front().get();
        if (&lane == &control_) {
            serve_control(lane);
        } else if (&lane == &bulk_in_) {
            serve_bulk_in(lane);
        } else if (&lane == &bulk_out_) {
            serve_bulk_out(lane);
        } else {
            serve_input(lane);
        }
        if (!lane.busy && !lane.waiting.empty() && lane.waiting.front().get() == before) {
            return; // waits for something to deliver
        }
    }
}

void UsbDevice::finish(Lane& lane, TransferStatus status) {
    if (lane.timer) {
        loop_.cancel(*lane.timer);
    }
    lane.timer.reset();
    lane.busy = false;
    const auto transfer = std::move(lane.waiting.front());
    lane.waiting.pop_front();
    transfer->completed(*transfer, status);
}

void UsbDevice::finish_after(Lane& lane, EventLoop::Clock::duration delay, TransferStatus status) {
    if (delay == EventLoop::Clock::duration::zero()) {
        return finish(lane, status);
    }
    lane.busy = true;
    lane.timer = loop_.call_after(delay, [this, &lane, status] {
        lane.timer.reset();
        finish(lane, status);
        serve(lane);
    });
}

// Applies the faults that keep a transfer from reaching the pad; false when one of them did.
bool UsbDevice::begin(Lane& lane, const Verdict& verdict) {
    if (verdict.unplug) {
        loop_.post(pull_out_);
    }
    lane.busy = verdict.unplug || verdict.silence;
    return !lane.busy;
}

void UsbDevice::serve_control(Lane& lane) {
    auto& transfer = *lane.waiting.front();
    const auto& setup = transfer.setup;
    const auto kind = kind_of(setup);
    const auto verdict = faults_.empty() ? Verdict{} : faults_.judge(kind);
    if (!begin(lane, verdict)) {
        if (log_.verbose()) {
            log_.trace(describe(setup) + (verdict.unplug ? " unplug" : " silence"));
        }
        return;
    }
    std::optional<Bytes> reply;
    if (!verdict.stall) {
        if (!setup.is_in()) {
            verdict.alter(transfer.data);
        }
        reply = answer(setup, transfer.data);
        if (reply && setup.is_in()) {
            verdict.alter(*reply);
            reply->resize(std::min({reply->size(), transfer.room, std::size_t{setup.length}}));
            transfer.data = std::move(*reply);
        }
    }
    const bool done = reply.has_value();
    const auto* note = done ? "" : "stall";
    if (kind == TransferKind::get_feature) {
        log_.report(true, "feature", setup.index, done ? std::span{transfer.data} : std::span<std::uint8_t>{}, note);
    } else if (kind == TransferKind::set_feature) {
        log_.report(false, "feature", setup.index, transfer.data, note);
    } else if (is_hid(setup) && setup.request == set_report) {
        log_.report(false, "output", setup.index, transfer.data, note);
    } else if (log_.verbose()) {
        log_.trace(describe(setup) + (done ? " -> " + hex(transfer.data) : " stall"));
    }
    finish_after(lane, verdict.delay, done ? TransferStatus::done : TransferStatus::stalled);
}

// Packets fill the transfer until one is short or no room is left. A fault strikes the report that it meets.
void UsbDevice::serve_input(Lane& lane) {
    auto& transfer = *lane.waiting.front();
    const auto interface = static_cast<unsigned int>(&lane - inputs_.data());
    const auto packet_size = model_.settings().input_report_size();
    while (model_.has_input(interface)) {
        const auto verdict = faults_.empty() ? Verdict{} : faults_.judge(TransferKind::input);
        if (!begin(lane, verdict)) {
            return;
        }
        if (verdict.stall) {
            log_.report(true, "input", interface, {}, "stall");
            // At the pace of the bus: a caller that submits again at once must not make the endpoint spin.
            return finish_after(lane, std::max<EventLoop::Clock::duration>(verdict.delay, polling_interval),
                                TransferStatus::stalled);
        }
        auto packet = model_.take_input(interface);
        verdict.alter(packet);
        log_.report(true, "input", interface, packet, "");
        const bool fits = packet.size() <= transfer.room - transfer.data.size();
        if (!fits) {
            packet.resize(transfer.room - transfer.data.size());
        }
        transfer.data.insert(transfer.data.end(), packet.begin(), packet.end());
        if (!fits || packet.size() < packet_size || transfer.data.size() == transfer.room ||
            verdict.delay.count() > 0) {
            return finish_after(lane, verdict.delay, fits ? TransferStatus::done : TransferStatus::overflow);
        }
    }
}

// Packets fill the transfer until one is short or no room is left. A fault strikes the whole of it.
void UsbDevice::serve_bulk_in(Lane& lane) {
    auto& outbox = ssp_->outbox();
    if (outbox.empty()) {
        return;
    }
    auto& transfer = *lane.waiting.front();
    const auto verdict = faults_.empty() ? Verdict{} : faults_.judge(TransferKind::bulk_in);
    if (!begin(lane, verdict)) {
        return;
    }
    if (verdict.stall) {
        log_.report(true, "bulk", 0, {}, "stall");
        return finish_after(lane, std::max<EventLoop::Clock::duration>(verdict.delay, polling_interval),
                            TransferStatus::stalled);
    }
    bool fits = true;
    for (bool more = true; more;) {
        const auto packet = outbox.take_packet(bulk_packet_size);
        fits = packet.size() <= transfer.room - transfer.data.size();
        if (fits) {
            transfer.data.insert(transfer.data.end(), packet.begin(), packet.end());
        }
        more = fits && packet.size() == bulk_packet_size && transfer.data.size() < transfer.room;
    }
    verdict.alter(transfer.data);
    log_.report(true, "bulk", 0, transfer.data, fits ? "" : "overflow");
    finish_after(lane, verdict.delay, fits ? TransferStatus::done : TransferStatus::overflow);
}

void UsbDevice::serve_bulk_out(Lane& lane) {
    auto& transfer = *lane.waiting.front();
    const auto verdict = faults_.empty() ? Verdict{} : faults_.judge(TransferKind::bulk_out);
    if (!begin(lane, verdict)) {
        return;
    }
    if (verdict.stall) {
        log_.report(false, "bulk", 0, transfer.data, "stall");
        return finish_after(lane, std::max<EventLoop::Clock::duration>(verdict.delay, polling_interval),
                            TransferStatus::stalled);
    }
    verdict.alter(transfer.data);
    log_.report(false, "bulk", 0, transfer.data, "");
    const auto data = transfer.data;
    finish_after(lane, verdict.delay, TransferStatus::done);
    ssp_->receive(data);
}

// Nothing: the pad stalls.
std::optional<UsbDevice::Bytes> UsbDevice::answer(const SetupPacket& setup, std::span<const std::uint8_t> data) {
    if ((setup.request_type & recipient_mask) == recipient_interface && low(setup.index) >= interfaces()) {
        return std::nullopt;
    }
    if ((setup.request_type & type_mask) == type_standard) {
        return answer_standard(setup);
    }
    return is_hid(setup) && !is_vcom() ? answer_hid(setup, data) : std::nullopt;
}

std::optional<UsbDevice::Bytes> UsbDevice::answer_standard(const SetupPacket& setup) {
    switch (setup.request) {
    case get_status:
        return Bytes{0, 0};
    case get_descriptor:
        return descriptor(setup);
    case get_configuration:
        return Bytes{configuration_};
    case set_configuration:
        if (setup.value > 1) {
            return std::nullopt;
        }
        configuration_ = low(setup.value);
        set_up_ = configuration_ != 0;
        return Bytes{};
    case get_interface:
        return Bytes{0};
    case set_interface:
        return setup.value == 0 ? std::optional(Bytes{}) : std::nullopt;
    case clear_feature:
        return Bytes{};
    default:
        return std::nullopt;
    }
}

std::optional<UsbDevice::Bytes> UsbDevice::descriptor(const SetupPacket& setup) const {
    const auto& pad = model_.settings();
    if (is_vcom() && (high(setup.value) == descriptor_hid || high(setup.value) == descriptor_report)) {
        return std::nullopt;
    }
    switch (high(setup.value)) {
    case descriptor_device:
        return device_descriptor(pad);
    case descriptor_configuration:
        return low(setup.value) == 0 ? std::optional(configuration_descriptor(pad)) : std::nullopt;
    case descriptor_string:
        return string_descriptor(pad, low(setup.value));
    case descriptor_hid:
        return hid_descriptor(pad);
    case descriptor_report:
        return report_descriptor(pad);
    default:
        return std::nullopt;
    }
}

std::optional<UsbDevice::Bytes> UsbDevice::answer_hid(const SetupPacket& setup, std::span<const std::uint8_t> data) {
    const unsigned int interface = low(setup.index);
    const auto type = high(setup.value);
    if (setup.is_in()) {
        if (setup.request == get_report && type == feature_report) {
            const auto report = model_.read_feature(interface);
            return Bytes(report.begin(), report.end());
        }
        if (setup.request == get_report && type == input_report) {
            return Bytes(model_.settings().input_report_size());
        }
        return setup.request == get_idle ? std::optional(Bytes{0}) : std::nullopt;
    }
    if (setup.request == set_idle) {
        return Bytes{};
    }
    if (setup.request != set_report || data.size() > feature_report_size) {
        return std::nullopt;
    }
    if (type == feature_report) {
        model_.write_feature(interface, data);
    } else if (type == output_report) {
        model_.write_output(interface, data);
    } else {
        return std::nullopt;
    }
    return Bytes{};
}

} // namespace emulator
