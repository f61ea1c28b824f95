#include "pad_question.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <libusb-1.0/libusb.h>
#include <span>
#include <sstream>
#include <string>
#include <vxpadcom/internals.h>

namespace vxpadctl {

namespace {

struct Connection {
    vx_device record{};
    libusb_device** list = nullptr;
    ssize_t devices = 0;
    bool has_claimed = false;

    Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() {
        if (has_claimed) {
            libusb_release_interface(record.vcom_handle, 0); // gives it back to the kernel's driver
        }
        core_close_dev(&record);
        for (uni_queue* queue : {record.ssp_input_read, record.ssp_command_messages, record.ssp_unfinished}) {
            if (queue != nullptr) {
                destroy_uni_queue(queue);
            }
        }
        if (devices > 0) {
            libusb_free_device_list(list, 1);
        }
    }
};

bool open_hid(const BusDevice& device, Connection& connection) {
    const std::string path =
        device.port + ":" + std::to_string(device.configuration) + "." + std::to_string(device.hid_interfaces.front());
    std::snprintf(connection.record.hid_path, sizeof connection.record.hid_path, "%s", path.c_str());
    return __core_open_dev(&connection.record) == 0;
}

// The first bulk endpoint of each direction, as the search takes them.
void find_endpoints(libusb_device* device, vx_device& record) {
    libusb_config_descriptor* config = nullptr;
    if (libusb_get_config_descriptor(device, 0, &config) != 0) {
        return;
    }
    for (const auto& interface : std::span{config->interface, config->bNumInterfaces}) {
        for (const auto& setting :
             std::span{interface.altsetting, static_cast<std::size_t>(interface.num_altsetting)}) {
            for (const auto& endpoint : std::span{setting.endpoint, setting.bNumEndpoints}) {
                const bool is_in = (endpoint.bEndpointAddress & LIBUSB_ENDPOINT_DIR_MASK) != 0;
                std::uint8_t& address = is_in ? record.ep_in : record.ep_out;
                std::uint32_t& size = is_in ? record.ep_in_max_packet_size : record.ep_out_max_packet_size;
                constexpr std::uint32_t out_packet_size = 64;
                if (address == 0 && setting.bNumEndpoints > 1) {
                    address = endpoint.bEndpointAddress;
                    size = is_in ? endpoint.wMaxPacketSize : out_packet_size;
                }
            }
        }
    }
    libusb_free_config_descriptor(config);
}

bool open_vcom(const BusDevice& device, Connection& connection) {
    if (libusb_init(nullptr) != 0) {
        return false;
    }
    connection.devices = libusb_get_device_list(nullptr, &connection.list);
    vx_device& record = connection.record;
    for (libusb_device* candidate :
         std::span{connection.list, static_cast<std::size_t>(std::max<ssize_t>(connection.devices, 0))}) {
        char place[16];
        std::snprintf(place, sizeof place, "%03u/%03u", libusb_get_bus_number(candidate),
                      libusb_get_device_address(candidate));
        if (device.node.ends_with(place)) {
            record.vcom_device = candidate;
        }
    }
    if (record.vcom_device == nullptr) {
        return false;
    }
    find_endpoints(record.vcom_device, record);
    record.send_ssp_message = __send_ssp_message;
    record.receive_ssp_message = __receive_ssp_message;
    if (record.ep_in == 0 || record.ep_out == 0 || __core_open_dev(&record) != 0) {
        return false;
    }
    libusb_set_auto_detach_kernel_driver(record.vcom_handle, 1);
    connection.has_claimed = libusb_claim_interface(record.vcom_handle, 0) == 0;
    return connection.has_claimed;
}

std::string version_text(const dev_fw_version& version) {
    std::string text = std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
                       std::to_string(version.patch) + "." + std::to_string(version.revision);
    return version.manufacturer[0] == '\0' ? text : text + " " + version.manufacturer;
}

// In one line: the rest of a process's result is lines too.
std::string in_one_line(std::string text) {
    std::ranges::replace(text, '\n', ' ');
    return text;
}

} // namespace

std::optional<PadAnswer> ask_pad(const BusDevice& device, unsigned int type) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    Connection connection;
    vx_device& record = connection.record;
    record.vendor_id = device.id.vendor;
    record.product_id = device.id.product;
    record.pad_type = static_cast<decltype(record.pad_type)>(type);
    const bool is_hid = !device.hid_interfaces.empty();
    if (!(is_hid ? open_hid(device, connection) : open_vcom(device, connection))) {
        return std::nullopt;
    }
    PadAnswer answer;
    dev_fw_version version{};
    if (is_hid) {
        if (core_read_version(&record, &version) != 0) {
            return std::nullopt;
        }
        answer.id = device.id;
        answer.serial = device.serial;
    } else {
        core_set_pad_mode(&record, 1, 0); // as a search begins
        if (ssp_common_get_pad_description(&record) != 0) {
            return std::nullopt;
        }
        answer.id = {record.vendor_id, record.product_id};
        answer.serial = record.serial_number;
    }
    answer.milliseconds =
        static_cast<unsigned int>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
    if (is_hid || core_read_version(&record, &version) == 0) {
        answer.version = version_text(version);
    }
    return answer;
}

std::string to_text(const PadAnswer& answer) {
    return std::to_string(answer.milliseconds) + " " + std::to_string(answer.id.vendor) + " " +
           std::to_string(answer.id.product) + "\n" + in_one_line(answer.version) + "\n" + in_one_line(answer.serial) +
           "\n";
}

std::optional<PadAnswer> parse_answer(std::string_view text) {
    std::istringstream in{std::string(text)};
    PadAnswer answer;
    std::string rest;
    if (!(in >> answer.milliseconds >> answer.id.vendor >> answer.id.product) || !std::getline(in, rest) ||
        !std::getline(in, answer.version) || !std::getline(in, answer.serial)) {
        return std::nullopt;
    }
    return answer;
}

} // namespace vxpadctl
