// The transport on which a record is open. Its handles alone tell.
#pragma once

#include "transport/record.hpp"
#include "vxpadcom/internals/record.h"

namespace open_transport {

inline bool is_any(vx_device& device) {
    return record::load(device.hid) != nullptr || record::load(device.vcom_handle) != nullptr;
}

// What the transports do differently stands in tables. VCOM wins where a record is open on both.
template <typename Table> const Table& choose(vx_device& device, const Table& over_hid, const Table& over_vcom) {
    return record::load(device.vcom_handle) != nullptr ? over_vcom : over_hid;
}

} // namespace open_transport
