// The trace switches: environment variables that are asked for at every trace point, so that a running process can be
// looked into.
#pragma once

namespace switches {

enum class Switch {
    information, // LIBVXPADCOM_DEBUG
    functions,   // LIBVXPADCOM_DEBUG_FUNC
    locks        // LIBVXPADCOM_DEBUG_MUTEX
};

// What atoi() makes of its value just now is a positive number.
bool is_on(Switch which);

} // namespace switches
