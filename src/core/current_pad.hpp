// Requests to the current pad and to one of its interfaces by number.
#pragma once

#include "core/registry.hpp"

namespace current_pad {

// Runs request(pad) and then the removed check, with which every request to the current pad ends. -1 without a pad.
template <typename Request>
int request(trace::Location where, Request request, registry::Missing missing = registry::Missing::traced) {
    vx_device* pad = registry::find_current(where, missing);
    if (pad == nullptr) {
        return -1;
    }
    int result = request(*pad);
    core_catch_is_dev_was_removed(&result);
    return result;
}

// The record behind an interface number, opened unless it is the pad's own, or null with the reason reported. The
// prefix begins the text of a number that is too large; no_record tells of a missing record, with the number less one.
vx_device* find_interface(trace::Location where, vx_device& pad, const char* prefix, unsigned int interface_number,
                          void (*no_record)(trace::Location where, unsigned int index));

} // namespace current_pad
