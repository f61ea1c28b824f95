#include "header_sizes.h"

struct header_sizes header_sizes_in_c(void) {
    const struct header_sizes sizes = HEADER_SIZES;
    return sizes;
}
