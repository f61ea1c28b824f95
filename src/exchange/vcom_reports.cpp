// Reports of VCOM pads, carried as legacy messages over the message engine.
#include "vxpadcom/internals/vcom_reports.h"
#include "exchange/left_over.hpp"
#include "exchange/report_table.hpp"
#include "support/arguments.hpp"
#include "support/owners.hpp"
#include "support/result.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/ssp_base_message.h"
#include "vxpadcom/internals/ssp_engine.h"

#include <algorithm>
#include <array>
#include <optional>

namespace {

constexpr std::size_t longest_message = 65;
constexpr unsigned int feature_time_out_ms = 1000;
constexpr unsigned int input_time_out_ms = 100;
constexpr int pen_data_queue = 1; // only where no legacy reply is asked for

// One received message of at most a report's size.
struct Message {
    std::array<unsigned char, longest_message> bytes{};
    unsigned int size;

    explicit Message(unsigned int report_length)
        : size{std::min(report_length, static_cast<unsigned int>(longest_message - 1)) + 1} {}

    // Copies the report out, as far as bytes really came. Nothing where the message is no legacy one.
    std::optional<int> copy_report(const trace::Location& where, void* data, unsigned int length) const {
        if (ssp_base_message_is_it_old_message(bytes.data()) != 1) {
            trace::error(where, "ssp_base_message_is_it_old_message() return 0, so it is not legacy message");
            return std::nullopt;
        }
        const int announced = ssp_base_message_old_message_get_data_length(bytes.data());
        const unsigned int count = std::min({static_cast<unsigned int>(announced), length, size - 1});
        std::memcpy(data, bytes.data() + 1, count);
        return static_cast<int>(count);
    }
};

int send_report(const trace::Location& where, vx_device* device, const void* data, unsigned int length) {
    if (!arguments::expect_all(where, {"unsigned int len", length}, data, {"device *current_device", device})) {
        return -1;
    }
    if (device->vcom_handle == nullptr) {
        trace::error(where, "Error, libusb_device_handle *vcom_handle is NULL");
        return -1;
    }
    unsigned char* message = nullptr;
    const int size = ssp_base_message_old_message_create(data, length, &message);
    const Owned<unsigned char> owner{message};
    if (size <= 0) {
        trace::error(where, "Error, ssp_base_message_old_message_create() returned: %d", size);
        return -1;
    }
    const int outcome = __send_ssp_message(device, message, static_cast<unsigned int>(size));
    if (outcome == result::transport_lost) {
        record::mark_removed(*device);
    }
    if (outcome != 0) {
        trace::error(where, "__send_ssp_message() failed with return code %d", outcome);
    }
    return outcome;
}

template <std::uint32_t vx_device::*Size> std::optional<int> size_where_open(vx_device& device) {
    return record::load(device.vcom_handle) != nullptr ? std::optional{static_cast<int>(device.*Size)} : std::nullopt;
}

} // namespace

int vcom_feature_read(vx_device* device, void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    if (!arguments::expect_all(VX_HERE, {"unsigned int len", length}, data, {"device *current_device", device})) {
        return scope.exit(-1);
    }
    if (device->vcom_handle == nullptr) {
        VX_ERROR("Error, struct libusb_device_handle *vcom_handle; is NULL");
        return scope.exit(-1);
    }
    Message message{length};
    if (const int result =
            __receive_ssp_message(device, message.bytes.data(), &message.size, feature_time_out_ms, 1, 1);
        result != 0) {
        VX_INFO("__receive_ssp_message() failed, function return: %d", result);
        return scope.exit(result);
    }
    if (!message.copy_report(VX_HERE, data, length)) {
        left_over::expect_left_over(*device);
        return scope.exit(-1);
    }
    VX_INFO("feature_report with size %u was gotten", length);
    return scope.exit(0);
}

int vcom_feature_write(vx_device* device, const void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    return scope.exit(send_report(VX_HERE, device, data, length));
}

int vcom_output_write(vx_device* device, const void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    return scope.exit(send_report(VX_HERE, device, data, length) == 0 ? 0 : -1);
}

int vcom_input_read(vx_device* device, void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    if (!arguments::expect_all(VX_HERE, {"unsigned int len", length}, data, {"device *current_device", device})) {
        return scope.exit(0);
    }
    Message message{length};
    const int outcome =
        __receive_ssp_message(device, message.bytes.data(), &message.size, input_time_out_ms, 0, pen_data_queue);
    if (outcome == result::transport_lost) {
        record::mark_removed(*device);
        return scope.exit(outcome);
    }
    if (outcome != 0) {
        return scope.exit(0); // nothing was waiting
    }
    return scope.exit(message.copy_report(VX_HERE, data, length).value_or(0));
}

const report_table::Table report_table::over_vcom{
    .feature_read = vcom_feature_read,
    .feature_write = vcom_feature_write,
    .output_write = vcom_output_write,
    .input_read = vcom_input_read,
    .output_packet_size = size_where_open<&vx_device::ep_out_max_packet_size>,
    .input_packet_size = size_where_open<&vx_device::ep_in_max_packet_size>,
};
