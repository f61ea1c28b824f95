// What the standard library would take from operator new, which throws, taken from the checked allocators.
//
// Nothing throws: the library is built without exceptions, so that one which passed through it would leave its locks
// held. std::vector and std::mutex are no alternatives, since they throw when they are asked for too much and when a
// lock fails.
#pragma once

#include "vxpadcom/internals/wrapunix.h"

#include <cstdlib>
#include <memory>
#include <utility>

namespace checked {

template <typename T> struct Allocator {
    using value_type = T;

    Allocator() = default;
    template <typename Other> explicit Allocator(const Allocator<Other>& /*other*/) {}

    T* allocate(std::size_t count) { return static_cast<T*>(Calloc(count, sizeof(T))); }
    void deallocate(T* block, std::size_t /*count*/) { std::free(block); }

    template <typename Other> bool operator==(const Allocator<Other>& /*other*/) const { return true; }
};

template <typename T, typename... Arguments> std::shared_ptr<T> make_shared(Arguments&&... arguments) {
    return std::allocate_shared<T>(Allocator<T>{}, std::forward<Arguments>(arguments)...);
}

} // namespace checked
