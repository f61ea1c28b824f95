// The application's list of pads, numbered from 1, and which of them is current in the core.
#pragma once

#include "support/lock.hpp"
#include "vxpadcom/internals/record.h"

#include <cstdint>

namespace device_list {

// Slot 0 is never a pad: at most 15 pads are usable.
constexpr unsigned int slots = 16;

struct Device {
    std::uint8_t indexed;
    char pad_settings[256];
    std::uint8_t used_transport_protocol;
};

struct Table {
    Device devices[slots];
    std::uint32_t count;
    std::uint16_t current;  // number of the pad that the core was last switched to
    bool core_may_disagree; // a switch failed since, perhaps half done
};

// The list, null while the library is not initialised. dev_list_short_lock is held by whoever uses it; whether there is
// one may be asked without.
Table* table();
void create();
void destroy();

// Whether a number names a pad that was found; says why not. The lock is held.
bool expect_indexed(const trace::Location& where, unsigned int device);

// The core's record of a pad, or null. The lock is held.
vx_device* find_record(unsigned int device);

} // namespace device_list
