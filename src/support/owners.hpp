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

// Room that nobody looks at before it is filled, and that mostly needs no heap.
class Room {
  public:
    explicit Room(std::size_t size) : size_{size} {
        if (size > sizeof near_) {
            far_.reset(static_cast<unsigned char*>(Malloc(size)));
        }
    }

    unsigned char* data() { return far_ ? far_.get() : near_; }
    std::span<unsigned char> span() { return {data(), size_}; }

  private:
    std::size_t size_;
    Owned<unsigned char> far_;
    unsigned char near_[4096];
};
