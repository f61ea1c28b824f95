// Requests to the current pad and to one of its interfaces by number.
#pragma once

#include "pads/registry.hpp"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/registry.h"

namespace current_pad {

// As long as it lives, the calling thread's requests act on this pad, whichever other threads make current meanwhile.
// With null they act on the current one again.
class Serve {
  public:
    explicit Serve(vx_device* pad) : former_{registry::serve(pad)} {}
    ~Serve() { registry::serve(former_); }
    Serve(const Serve&) = delete;
    Serve& operator=(const Serve&) = delete;

  private:
    vx_device* former_;
};

// As long as it lives, an interface stays open where its pad is reopened: closing it would throw away the reports that
// hidapi holds for a receive thread, and would fail the call of another thread.
class KeepOpen {
  public:
    KeepOpen(vx_device& pad, unsigned int interface_number);
    ~KeepOpen();
    KeepOpen(const KeepOpen&) = delete;
    KeepOpen& operator=(const KeepOpen&) = delete;

  private:
    vx_device* interface_;
};

// The pad that is current, or the one with these settings; null where there is none.
vx_device* get();
vx_device* find(const char* settings);

// core_set_device_to_current(), for a caller who holds a lock while it chooses. That is released before a pad is
// reopened, always. The pad's own lock is taken first where it is free, so that nobody finds the pad unready; where
// another thread has it, this one waits behind it, and a third may come between.
int make_current(const char* settings, trace::Lock& choice);

// Runs query(pad) and then the removed check, with which every request to the current pad ends. -1 without a pad.
template <typename Query> int answer(const trace::Location& where, Query query) {
    vx_device* pad = registry::find_current(where);
    if (pad == nullptr) {
        return -1;
    }
    int result = query(*pad);
    core_catch_is_dev_was_removed(&result);
    return result;
}

// The record behind an interface number, opened unless it is the pad's own, or null with the reason reported. The
// prefix begins the text of a number that is too large; no_record tells of a missing record, with the number less one.
vx_device* find_interface(const trace::Location& where, vx_device& pad, const char* prefix,
                          unsigned int interface_number,
                          void (*no_record)(const trace::Location& where, unsigned int index));

} // namespace current_pad
