#include "host/usbip_protocol.hpp"

#include "usb/usb_descriptors.hpp"

#include <algorithm>

namespace emulator::usbip {

namespace {

constexpr std::size_t path_size = 256;
constexpr std::size_t device_descriptor_size = 18;

std::uint32_t number_at(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t size) {
    std::uint32_t number = 0;
    for (const auto byte : bytes.subspan(offset, size)) {
        number = number << 8 | byte;
    }
    return number;
}

void append(Bytes& bytes, std::uint32_t number, std::size_t size) {
    for (; size > 0; --size) {
        bytes.push_back(static_cast<std::uint8_t>(number >> 8 * (size - 1)));
    }
}

void append_text(Bytes& bytes, const std::string& text, std::size_t size) {
    const auto end = bytes.size() + size;
    bytes.insert(bytes.end(), text.begin(),
                 text.begin() + static_cast<std::ptrdiff_t>(std::min(text.size(), size - 1)));
    bytes.resize(end);
}

Bytes operation(OperationCode code, OperationStatus status) {
    Bytes bytes;
    append(bytes, version, 2);
    append(bytes, code, 2);
    append(bytes, status, 4);
    return bytes;
}

void append_device(Bytes& bytes, const DeviceRecord& device) {
    const auto descriptor = [&](std::size_t offset) { return device.descriptors.at(offset); };
    const auto word = [&](std::size_t offset) { return descriptor(offset) | descriptor(offset + 1U) << 8; };
    append_text(bytes, "/sys/devices/virtual/vxpad-emulator/" + device.bus_id, path_size);
    append_text(bytes, device.bus_id, bus_id_size);
    append(bytes, device.bus, 4);
    append(bytes, device.address, 4);
    append(bytes, full_speed, 4);
    for (const std::size_t offset : {8U, 10U, 12U}) { // vendor, product, release
        append(bytes, static_cast<std::uint32_t>(word(offset)), 2);
    }
    for (const std::size_t offset : {4U, 5U, 6U}) { // class, subclass, protocol
        bytes.push_back(descriptor(offset));
    }
    bytes.push_back(descriptor(device_descriptor_size + 5)); // the configuration's value
    bytes.push_back(descriptor(17));                         // configurations
    bytes.push_back(descriptor(device_descriptor_size + 4)); // interfaces
}

void append_interfaces(Bytes& bytes, const DeviceRecord& device) {
    const auto& all = device.descriptors;
    for (std::size_t offset = device_descriptor_size; offset < all.size(); offset += all[offset]) {
        if (all[offset + 1] == descriptor_interface) {
            bytes.insert(bytes.end(), {all[offset + 5], all[offset + 6], all[offset + 7], 0});
        }
    }
}

Bytes reply(CommandCode code, std::uint32_t number, int status) {
    Bytes bytes;
    append(bytes, code, 4);
    append(bytes, number, 4);
    bytes.resize(20); // a reply tells of no device, direction and endpoint
    append(bytes, static_cast<std::uint32_t>(status), 4);
    bytes.resize(command_size);
    return bytes;
}

} // namespace

Operation parse_operation(std::span<const std::uint8_t, operation_size> bytes) {
    return {static_cast<std::uint16_t>(number_at(bytes, 0, 2)), static_cast<std::uint16_t>(number_at(bytes, 2, 2))};
}

std::string_view parse_bus_id(std::span<const std::uint8_t, bus_id_size> bytes) {
    const auto end = std::ranges::find(bytes, 0);
    return {reinterpret_cast<const char*>(bytes.data()), static_cast<std::size_t>(end - bytes.begin())};
}

Bytes list_reply(const std::vector<DeviceRecord>& devices) {
    auto bytes = operation(reply_list, status_ok);
    append(bytes, static_cast<std::uint32_t>(devices.size()), 4);
    for (const auto& device : devices) {
        append_device(bytes, device);
        append_interfaces(bytes, device);
    }
    return bytes;
}

Bytes import_reply(const DeviceRecord& device) {
    auto bytes = operation(reply_import, status_ok);
    append_device(bytes, device);
    return bytes;
}

Bytes import_refusal(OperationStatus status) {
    return operation(reply_import, status);
}

Command parse_command(std::span<const std::uint8_t, command_size> bytes) {
    Command command;
    command.code = number_at(bytes, 0, 4);
    command.number = number_at(bytes, 4, 4);
    command.device = number_at(bytes, 8, 4);
    command.in = number_at(bytes, 12, 4) != 0;
    command.endpoint = number_at(bytes, 16, 4);
    if (command.code == unlink) {
        command.unlinked = number_at(bytes, 20, 4);
        return command;
    }
    command.flags = number_at(bytes, 20, 4);
    command.length = static_cast<std::int32_t>(number_at(bytes, 24, 4));
    command.packets = static_cast<std::int32_t>(number_at(bytes, 32, 4));
    command.setup = setup_packet(bytes.last<8>());
    return command;
}

Bytes submit_reply(std::uint32_t number, int status, std::size_t actual_length) {
    auto bytes = reply(reply_submit, number, status);
    Bytes length;
    append(length, static_cast<std::uint32_t>(actual_length), 4);
    std::ranges::copy(length, bytes.begin() + 24);
    return bytes;
}

Bytes unlink_reply(std::uint32_t number, int status) {
    return reply(reply_unlink, number, status);
}

} // namespace emulator::usbip
