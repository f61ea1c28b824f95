// The trace switches: environment variables that are asked for at every trace point, so that a running process can be
// looked into.
#pragma once

namespace switches {

enum class Switch {
    information, // LIBVXPADCOM_DEBUG
    functions,   // LIBVXPADCOM_DEBUG_FUNC
    locks        // LIBVXPADCOM_DEBUG_MUTEX
};

// The short ways: that all are off is mostly known without looking for each.
bool are_all_off();
bool are_still_off();
bool look(Switch which);

// What atoi() makes of its value just now is a positive number. As a function is entered every variable's slot is
// looked at.
inline bool is_on_at_entry(Switch which) {
    return !are_all_off() && look(which);
}

// The same inside a function that has been entered: what setenv(), putenv() and unsetenv() do, a new environ and a
// value edited in place are seen at once; a slot in the middle that is written by hand meanwhile, as the next function
// is entered.
inline bool is_on(Switch which) {
    return !are_still_off() && look(which);
}

bool any_is_on();

} // namespace switches
