// The registry of pads: records, the current pad and what is derived from a record.
#pragma once

#include "support/lock.hpp"

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

// The pad that the calling thread serves, whichever is current meanwhile; null: none. Returns the one before.
vx_device* serve(vx_device* pad);
// The pad on which the calling thread's requests act: the one that it serves, else the current one.
vx_device* acting_device(vx_registry& pads);

// Says what is missing, with the words of the calling function, and returns null; else the pad on which requests act.
enum class Missing { traced, reported };
vx_device* find_current(trace::Location where, Missing missing = Missing::traced);

bool same_settings(const vx_device& pad, const char* settings);
// Index of the pad with these settings, or -1.
int find_settings(const vx_registry& pads, const char* settings);

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

// What look() finds of a record's handles. While a failed exchange on another thread closes and reopens the record
// nothing is open for a moment: only where nothing is found the record's lock is waited for.
template <typename Look> auto look_at_handles(trace::Location where, vx_device& device, Look look) {
    if (auto found = look()) {
        return found;
    }
    const trace::Lock lock{device.device_lock, "current_device->device_lock", where};
    return look();
}

// Whether anyone wants the interface to stay open.
bool is_kept_open(vx_device& device);
void add_keepers(vx_device& device, int count);

// Signature-rectangle types clear their rectangle when they become current and before they are closed.
bool has_signature_rectangle(const vx_device& device);

// Fills pad_type and the model parameters from the record's ids; an unknown id is reported and gives false.
bool derive_pad_type(trace::Location where, vx_device& device);

void create_lock(vx_device& device);
// Frees what a closed record holds and zeroes it; a pad's array of further interfaces stays.
void clear_record(vx_device& device);

// Takes a found and described interface over: a further one of a known pad, or a pad of its own. Where there is no room
// the record is cleared. True where the search now has the registry's count as its result.
enum class Transport : int { hid = 0, vcom = 1 };
bool take_over(trace::Location where, vx_registry& pads, vx_device& found, Transport transport);

// Pads found by a search are told of answers that records before them left unread; behind it that is done.
void forget_answers_left_behind();

} // namespace registry
