// The record of one interface: its marks, its handles as threads see them, its lock.
#pragma once

#include "support/lock.hpp"
#include "vxpadcom/internals/record.h"

#include <atomic>

namespace record {

// Marks and handles that one thread looks at while another, under the record's lock, changes them.
bool was_removed(vx_device& device);
void mark_removed(vx_device& device);
template <typename Handle> Handle* load(Handle*& handle) {
    return std::atomic_ref{handle}.load();
}
template <typename Handle> void store(Handle*& handle, Handle* value) {
    std::atomic_ref{handle}.store(value);
}

// What look() finds of a record's handles. While a failed exchange on another thread closes and reopens the record
// nothing is open for a moment: only where nothing is found the record's lock is waited for.
template <typename Look> auto look_at_handles(const trace::Location& where, vx_device& device, Look look) {
    if (auto found = look()) {
        return found;
    }
    const trace::Lock lock{device.device_lock, "current_device->device_lock", where};
    return look();
}

// Whether anyone wants the interface to stay open.
bool is_kept_open(vx_device& device);
void add_keepers(vx_device& device, int count);

void create_lock(vx_device& device);
// Frees what a closed record holds and zeroes it; a pad's array of further interfaces stays.
void clear(vx_device& device);

} // namespace record
