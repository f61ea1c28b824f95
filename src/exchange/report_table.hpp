// Reports of one record, over each transport. Those of VCOM are messages: this stands above the message engine, and
// what carries messages (stream_table) below it.
#pragma once

#include "exchange/open_transport.hpp"
#include "vxpadcom/internals/record.h"

#include <optional>

namespace report_table {

struct Table {
    int (*feature_read)(vx_device* device, void* data, unsigned int length);
    int (*feature_write)(vx_device* device, const void* data, unsigned int length);
    int (*output_write)(vx_device* device, const void* data, unsigned int length);
    int (*input_read)(vx_device* device, void* data, unsigned int length);

    // Nothing where the record is not open on this transport.
    std::optional<int> (*output_packet_size)(vx_device& device);
    std::optional<int> (*input_packet_size)(vx_device& device);
};

extern const Table over_hid;
extern const Table over_vcom;

inline const Table& of(vx_device& device) {
    return open_transport::choose(device, over_hid, over_vcom);
}

} // namespace report_table
