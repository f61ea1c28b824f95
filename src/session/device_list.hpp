// The application's list of pads, numbered from 1, and which of them is current in the core.
#pragma once

#include "support/lock.hpp"

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

// Fills the list from a new search, with the lock held: pads indexed, or -1.
int looking_for_device();

enum class ListLock { take, already_held };

// 0 switched, 1 the core has no such pad, -1 failure, else the core's unexpected result. With the lock already held the
// core is always asked; otherwise a pad that is current already needs no question. The selected pad's record goes to
// selected.
int set_dev_to_current(unsigned int device, ListLock list_lock, vx_device** selected = nullptr);

// The same for a thread that serves the pad anyway: no lock, and the current pad stays what it is. A removal is
// reported for the thread's interface.
int set_served_dev_to_current(unsigned int device, unsigned int interface_number);

// Whether a number names a pad that was found; says why not. The lock is held.
bool is_indexed(trace::Location where, unsigned int device);

// The core's record of a pad, or null. The lock is held.
vx_device* find_record(unsigned int device);

// Number of the current pad, or -1.
int get_current_dev();

} // namespace device_list
