// The registry of pads: which there are, and which one requests act on.
#pragma once

#include "support/lock.hpp"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/registry.h"

#include <cstdint>

namespace registry {

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
vx_device* find_current(const trace::Location& where, Missing missing = Missing::traced);

bool same_settings(const vx_device& pad, const char* settings);
// Index of the pad with these settings, or -1.
int find_settings(const vx_registry& pads, const char* settings);

// The pad's further interfaces in use are interfaces[0 .. count - 1].
int further_interfaces(const vx_device& pad);

// Signature-rectangle types clear their rectangle when they become current and before they are closed.
bool has_signature_rectangle(const vx_device& device);

// Clears the record of a pad or of a further interface. A HID pad keeps an answer that nobody read for whoever asks
// next: that outlives the record, until the next search has found the pad again.
void retire(vx_device& device);
// Whether that pad has left an answer behind.
bool has_left_answer(const char* settings);
void forget_answers_left_behind();

} // namespace registry
