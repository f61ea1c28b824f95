// Owners of memory that comes from the checked allocators.
#pragma once

#include "vxpadcom/internals/wrapunix.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

struct FreeDeleter {
    void operator()(void* block) const { std::free(block); }
};

template <typename T> using Owned = std::unique_ptr<T, FreeDeleter>;

// A zeroed buffer; one of a report's size needs no heap.
class Buffer {
  public:
    explicit Buffer(std::size_t size) : size_{size} {
        if (size > sizeof small_) {
            large_.reset(static_cast<unsigned char*>(Calloc(1, size)));
        }
    }

    unsigned char* data() { return large_ ? large_.get() : small_; }
    std::size_t size() const { return size_; }
    std::span<unsigned char> span() { return {data(), size_}; }

  private:
    std::size_t size_;
    Owned<unsigned char> large_;
    unsigned char small_[72] = {};
};
