#include "header_sizes.h"

static_assert(__cplusplus == 201703L, "must be compiled as C++17");

header_sizes header_sizes_in_cxx17() {
    return HEADER_SIZES;
}
