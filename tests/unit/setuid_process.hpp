// secure_getenv() as a process finds it that runs with other rights than its user's. For one file of a program.
#pragma once

#include <cstdlib>

// Whether the process runs as a setuid program does, for which secure_getenv() finds nothing.
inline bool is_setuid = false;

extern "C" char* secure_getenv(const char* name) {
    return is_setuid ? nullptr : std::getenv(name);
}
