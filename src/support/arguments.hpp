// Arguments of the functions that move bytes.
#pragma once

#include "support/trace.hpp"

#include <cstdint>

namespace arguments {

struct Size {
    const char* name;
    std::int64_t value;
};

struct Object {
    const char* name;
    const void* pointer;
};

// Whether all is there; else says what is missing: the size is looked at first and the object last.
inline bool expect_all(const trace::Location& where, Size size, const void* data, Object object) {
    if (size.value < 1) {
        trace::error(where, "Error, input parameter: %s is %d", size.name, static_cast<int>(size.value));
    } else if (data == nullptr) {
        trace::error(where, "Error, input parameter: void *data is %p", data);
    } else if (object.pointer == nullptr) {
        trace::error(where, "Error, input parameter: %s is NULL", object.name);
    } else {
        return true;
    }
    return false;
}

} // namespace arguments
