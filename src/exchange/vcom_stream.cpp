// The stream over VCOM: bulk transfers.
#include "exchange/stream_table.hpp"
#include "support/result.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/vcom_bulk.h"

namespace {

void mark_if_lost(vx_device& device, int outcome) {
    if (outcome == result::transport_lost) {
        record::mark_removed(device);
    }
}

int send(const trace::Location& where, vx_device& device, std::span<unsigned char> framed) {
    const int result = usb_data_send(device.vcom_handle, device.ep_out, framed.data(), static_cast<int>(framed.size()));
    if (result != 0) {
        mark_if_lost(device, result);
        trace::error(where, "Error of send/write data by usb_data_send(), it returns: %d", result);
    }
    return result;
}

int read(const trace::Location& where, vx_device& device, std::span<unsigned char> room, unsigned int time_out,
         unsigned char nonzero) {
    const int count = vcom_read_ssp_data(&device, room.data(), static_cast<int>(room.size()), time_out, nonzero);
    mark_if_lost(device, count);
    if (count < 1 && count != result::timed_out) {
        trace::error(where, "Error, vcom_read_ssp_data() return: %d", count);
    }
    return count;
}

int read_first(const trace::Location& where, vx_device& device, std::span<unsigned char> room, unsigned int time_out,
               bool behind_a_beginning) {
    return read(where, device, room, time_out, behind_a_beginning ? 0 : 1);
}

int read_on(const trace::Location& where, vx_device& device, std::span<unsigned char> room, unsigned int time_out) {
    return read(where, device, room, time_out, 0);
}

int take_waiting(vx_device& device, std::span<unsigned char> room) {
    const int count = usb_data_receive(device.vcom_handle, device.ep_in, room.data(), static_cast<int>(room.size()),
                                       stream_table::take_waiting_ms);
    mark_if_lost(device, count);
    return count == result::timed_out ? 0 : count;
}

} // namespace

const stream_table::Table stream_table::over_vcom{
    .carries_reports = true,
    .send = send,
    .read_first = read_first,
    .read_on = read_on,
    .take_waiting = take_waiting,
};
