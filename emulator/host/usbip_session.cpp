#include "host/usbip_session.hpp"

#include "host/urb_status.hpp"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <utility>

namespace emulator {

namespace {

usbip::DeviceRecord record_of(const Port& port) {
    return {port.name(), Bus::number, port.address, port.device->descriptors()};
}

std::uint32_t device_id(const Port& port) {
    return usbip::device_id(Bus::number, port.address);
}

// Nothing: the pad has no such endpoint, or the client says one thing in the command and another in the setup packet.
std::shared_ptr<Transfer> transfer_of(const usbip::Command& command, std::span<const std::uint8_t> data,
                                      const UsbDevice& device) {
    auto transfer = std::make_shared<Transfer>();
    transfer->room = static_cast<std::size_t>(command.length);
    transfer->data.assign(data.begin(), data.end());
    if (command.endpoint == 0) {
        transfer->setup = command.setup;
        const bool same = command.setup.is_in() == command.in || command.setup.length == 0;
        return same && (command.in || command.setup.length == data.size()) ? transfer : nullptr;
    }
    if (command.endpoint > 15) {
        return nullptr;
    }
    transfer->endpoint = static_cast<std::uint8_t>(command.endpoint | (command.in ? 0x80U : 0U));
    const auto interface = device.interface_of(transfer->endpoint);
    transfer->interface = interface.value_or(0);
    return interface ? transfer : nullptr;
}

} // namespace

UsbipSession::UsbipSession(UsbipExports& exports, std::function<void()> wake, Port* port)
    : exports_{exports}, wake_{std::move(wake)}, port_{port} {
    if (port_ != nullptr) {
        exports_.imported.insert(port_);
    }
}

UsbipSession::~UsbipSession() {
    release();
}

// Gives the pad back.
void UsbipSession::release() {
    if (const auto* port = std::exchange(port_, nullptr); port != nullptr) {
        transfers_.abandon(*port->device);
        exports_.imported.erase(port);
    }
}

void UsbipSession::receive(std::span<const std::uint8_t> bytes) {
    if (!ended_) {
        received_.insert(received_.end(), bytes.begin(), bytes.end());
        proceed();
    }
}

void UsbipSession::proceed() {
    proceeding_ = true;
    while (listens() && (port_ != nullptr ? take_command() : take_operation())) {
    }
    proceeding_ = false;
    received_.erase(received_.begin(), received_.begin() + static_cast<std::ptrdiff_t>(taken_));
    taken_ = 0;
}

void UsbipSession::unplugged() {
    end("unplugged");
}

void UsbipSession::end(const std::string& why) {
    if (ended_) {
        return;
    }
    ended_ = true;
    why_ended_ = why;
    release();
    if (!proceeding_) {
        wake_();
    }
}

void UsbipSession::refuse(const std::string& why) {
    unsent_.clear();
    end(why);
}

// Takes one operation from the front; false when it has not all come.
bool UsbipSession::take_operation() {
    if (pending().size() < usbip::operation_size) {
        return false;
    }
    const auto operation = usbip::parse_operation(pending().first<usbip::operation_size>());
    const bool imports = operation.code == usbip::request_import;
    if (operation.version != usbip::version || (!imports && operation.code != usbip::request_list)) {
        refuse("unknown version or operation");
        return false;
    }
    if (!imports) {
        taken_ += usbip::operation_size;
        list();
        return true;
    }
    if (pending().size() < usbip::operation_size + usbip::bus_id_size) {
        return false;
    }
    const auto bus_id = pending().subspan<usbip::operation_size, usbip::bus_id_size>();
    taken_ += usbip::operation_size + usbip::bus_id_size;
    import(usbip::parse_bus_id(bus_id));
    return true;
}

void UsbipSession::list() {
    std::vector<usbip::DeviceRecord> devices;
    for (const auto& port : exports_.bus.ports()) {
        if (port->device && !exports_.imported.contains(port.get())) {
            devices.push_back(record_of(*port));
        }
    }
    unsent_.append(usbip::list_reply(devices));
    end("has the list");
}

void UsbipSession::import(std::string_view bus_id) {
    const auto& ports = exports_.bus.ports();
    const auto found =
        std::ranges::find_if(ports, [&](const auto& port) { return port->device && port->name() == bus_id; });
    if (found == ports.end()) {
        unsent_.append(usbip::import_refusal(usbip::status_no_device));
        return end("no such pad");
    }
    if (exports_.imported.contains(found->get())) {
        unsent_.append(usbip::import_refusal(usbip::status_busy));
        return end("the pad is taken");
    }
    unsent_.append(usbip::import_reply(record_of(**found)));
    port_ = found->get();
    exports_.imported.insert(port_);
    port_->log.trace("imported");
}

// Takes one command from the front, with the data that follows it; false when it has not all come.
bool UsbipSession::take_command() {
    if (pending().size() < usbip::command_size) {
        return false;
    }
    const auto command = usbip::parse_command(pending().first<usbip::command_size>());
    if (command.device != device_id(*port_)) {
        refuse("a command to another device");
        return false;
    }
    if (command.code == usbip::unlink) {
        taken_ += usbip::command_size;
        unlink(command);
        return true;
    }
    if (command.code != usbip::submit) {
        refuse("unknown command");
        return false;
    }
    // No pad has isochronous endpoints. Some clients say -1 where there are no such packets.
    if (command.packets > 0 || command.packets < -1) {
        refuse("isochronous packets");
        return false;
    }
    if (command.length < 0 || static_cast<std::size_t>(command.length) > longest_urb - transfers_.room() ||
        transfers_.size() == most_open) {
        refuse("too much at a time");
        return false;
    }
    const auto follows = command.in ? 0 : static_cast<std::size_t>(command.length);
    if (pending().size() < usbip::command_size + follows) {
        return false;
    }
    const auto data = pending().subspan(usbip::command_size, follows);
    taken_ += usbip::command_size + follows;
    submit(command, data);
    return true;
}

void UsbipSession::submit(const usbip::Command& command, std::span<const std::uint8_t> data) {
    if (transfers_.has(command.number)) {
        return refuse("a number that is in use");
    }
    auto transfer = transfer_of(command, data, *port_->device);
    if (!transfer) {
        unsent_.append(usbip::submit_reply(command.number, urb_status(TransferStatus::stalled), 0));
        return;
    }
    const auto answered = [this, command](Transfer& done, TransferStatus status) { answer(command, done, status); };
    transfers_.submit(*port_->device, command.number, std::move(transfer), answered);
}

void UsbipSession::answer(const usbip::Command& command, Transfer& transfer, TransferStatus status) {
    if (status == TransferStatus::cancelled || status == TransferStatus::unplugged) {
        return; // the reply to the unlink tells, or the end of the connection
    }
    // A length beyond the buffer would be the end of the client's kernel.
    const bool nothing = !command.in && status != TransferStatus::done;
    const auto length = nothing ? 0 : std::min(transfer.data.size(), transfer.room);
    const bool too_short = command.in && (command.flags & usbip::flag_short_not_ok) != 0 && length < transfer.room;
    const auto error = status == TransferStatus::done && too_short ? -EREMOTEIO : urb_status(status);
    unsent_.append(usbip::submit_reply(command.number, error, length));
    if (command.in) {
        unsent_.append(std::span{transfer.data}.first(length));
    }
    if (!proceeding_) {
        wake_();
    }
}

// What has been completed already cannot be unlinked, and its reply is on the way.
void UsbipSession::unlink(const usbip::Command& command) {
    const bool cancelled = transfers_.cancel(*port_->device, command.unlinked);
    unsent_.append(usbip::unlink_reply(command.number, cancelled ? -ECONNRESET : 0));
}

} // namespace emulator
