// What the standard library would take from operator new, which throws, taken from the checked allocators.
//
// Nothing here needs a destructor at process exit, and nothing throws: the library is built without exceptions, so that
// one which passed through it would leave its locks held. std::vector and std::mutex are no alternatives, since they
// throw when they are asked for too much and when a lock fails.
#pragma once

#include "vxpadcom/vxpadcom.h"

#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
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

// First in, first out. It has no destructor, so that it may be a thread's own: whoever fills it empties it.
template <typename T> class Fifo {
  public:
    bool empty() const { return first_ == nullptr; }

    void push_back(const T& value) {
        Node* added = new (Malloc(sizeof(Node))) Node{value, nullptr};
        (last_ == nullptr ? first_ : last_->next) = added;
        last_ = added;
    }

    std::optional<T> take_first() {
        if (first_ == nullptr) {
            return std::nullopt;
        }
        Node* taken = std::exchange(first_, first_->next);
        if (first_ == nullptr) {
            last_ = nullptr;
        }
        std::optional<T> value{std::move(taken->value)};
        std::destroy_at(taken);
        std::free(taken);
        return value;
    }

  private:
    struct Node {
        T value;
        Node* next;
    };

    Node* first_ = nullptr;
    Node* last_ = nullptr;
};

} // namespace checked
