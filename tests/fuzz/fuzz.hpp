// What the fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

inline void require(bool fulfilled, const char* what) {
    if (!fulfilled) {
        std::fprintf(stderr, "wrong: %s\n", what);
        std::abort();
    }
}

} // namespace fuzz
