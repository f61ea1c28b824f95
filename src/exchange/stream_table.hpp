// The byte stream that carries messages, over each transport.
#pragma once

#include "exchange/open_transport.hpp"
#include "support/trace.hpp"
#include "vxpadcom/internals/record.h"

#include <span>

namespace stream_table {

struct Table {
    bool carries_reports; // as legacy messages, each asked for by another

    // 0, or what it failed with.
    int (*send)(const trace::Location& where, vx_device& device, std::span<unsigned char> framed);

    // How many bytes a read brought, or what it failed with. Zeros in front of everything are nothing; behind the
    // beginning of a message they are data.
    int (*read_first)(const trace::Location& where, vx_device& device, std::span<unsigned char> room,
                      unsigned int time_out, bool behind_a_beginning);
    int (*read_on)(const trace::Location& where, vx_device& device, std::span<unsigned char> room,
                   unsigned int time_out);

    // Takes what waits already: how many bytes, 0 for nothing, or what it failed with.
    int (*take_waiting)(vx_device& device, std::span<unsigned char> room);
};

extern const Table over_hid;
extern const Table over_vcom;

inline const Table& of(vx_device& device) {
    return open_transport::choose(device, over_hid, over_vcom);
}

constexpr unsigned int take_waiting_ms = 1;

} // namespace stream_table
