// The stream over HID: feature reports, each of which has to be asked for.
#include "exchange/stream_table.hpp"
#include "transport/open_close.hpp"
#include "vxpadcom/internals/hid.h"
#include "vxpadcom/internals/print_helpers.h"
#include "vxpadcom/internals/record.h"

#include <algorithm>
#include <cstring>
#include <unistd.h>

namespace {

constexpr std::size_t first_read_size = 64;
constexpr std::size_t report_size = 64;
constexpr unsigned char outgoing_report_id = 0xF8;

int send(const trace::Location& where, vx_device& device, std::span<unsigned char> framed) {
    while (!framed.empty()) {
        unsigned char report[report_size] = {outgoing_report_id};
        const std::size_t piece = std::min(framed.size(), report_size - 1);
        std::memcpy(report + 1, framed.data(), piece);
        if (hid_feature_write(device.hid, report, static_cast<unsigned int>(1 + piece)) != 0) {
            trace::error(where, "Error of send/write data by hid_feature_write()");
            return open_close::recover(device);
        }
        framed = framed.subspan(piece);
    }
    return 0;
}

int read(const trace::Location& where, vx_device& device, std::span<unsigned char> room, unsigned int time_out,
         unsigned char request) {
    const int count =
        hid_read_ssp_data(device.hid, room.data(), static_cast<unsigned int>(room.size()), time_out, request);
    if (count < 1) {
        trace::error(where, "Error, hid_read_ssp_data() return: %d", count);
    }
    return count;
}

int read_first(const trace::Location& where, vx_device& device, std::span<unsigned char> room, unsigned int time_out,
               bool) {
    return read(where, device, room.first(std::min(first_read_size, room.size())), time_out, 1);
}

int read_on(const trace::Location& where, vx_device& device, std::span<unsigned char> room, unsigned int time_out) {
    return read(where, device, room, time_out, 0);
}

int take_waiting(vx_device& device, std::span<unsigned char> room) {
    const auto size = static_cast<unsigned int>(std::min(first_read_size, room.size()));
    const int count = hid_read_ssp_data(device.hid, room.data(), size, stream_table::take_waiting_ms, 1);
    if (count > 0 && is_it_zero_array(room.data(), static_cast<std::size_t>(count))) {
        usleep(stream_table::take_waiting_ms * 1000); // it says at once that it has nothing; waits are counted in looks
        return 0;
    }
    return std::max(count, 0);
}

} // namespace

const stream_table::Table stream_table::over_hid{
    .carries_reports = false,
    .send = send,
    .read_first = read_first,
    .read_on = read_on,
    .take_waiting = take_waiting,
};
