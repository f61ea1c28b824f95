// The registry of pads: records, the current pad and what is derived from a record.
#pragma once

#include "support/trace.hpp"

#include <atomic>
#include <cstdint>

namespace registry {

constexpr int removed_result = -20;

// The library's registry; null while the core is not initialised.
vx_registry* get();
void set(vx_registry* instance);
vx_registry& storage();

vx_device* current_device(vx_registry& pads);
void set_current_device(vx_registry& pads, int index);

// Says what is missing, with the words of the calling function, and returns null; else the current pad.
enum class Missing { traced, reported };
vx_device* find_current(trace::Location where, Missing missing = Missing::traced);

// The pad's further interfaces in use are interfaces[0 .. count - 1].
int further_interfaces(const vx_device& pad);

// Flags and handles that one thread looks at while another, under the record's lock, changes them.
bool was_removed(vx_device& device);
void mark_removed(vx_device& device);
template <typename Handle> Handle* load(Handle*& handle) {
    return std::atomic_ref{handle}.load();
}
template <typename Handle> void store(Handle*& handle, Handle* value) {
    std::atomic_ref{handle}.store(value);
}

// Signature-rectangle types clear their rectangle when they become current and before they are closed.
bool has_signature_rectangle(const vx_device& device);

// Fills pad_type and the model parameters from the record's ids; an unknown id is reported and gives false.
bool derive_pad_type(trace::Location where, vx_device& device);

void create_lock(vx_device& device);
// Zeroes a record; a pad's array of further interfaces stays.
void clear_record(vx_device& device);

// Takes a found interface over: a further one of a known pad, or a pad of its own. False where there is no room; the
// record's lock is then destroyed.
enum class Added { nothing, interface, pad };
Added add_interface(trace::Location where, vx_registry& pads, vx_device& found);

} // namespace registry
