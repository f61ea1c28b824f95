#include "support/log_delivery.hpp"

#include "support/callback_pair.hpp"
#include "support/thread_local.hpp"
#include "support/wide_text.hpp"
#include "vxpadcom/internals/wide_text.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace log_delivery {
namespace {

using Pair = CallbackPair<vxpad_logging_callback>::Pair;

constexpr std::size_t message_size = 4096;
constexpr int half = most_waiting / 2;

using Message = std::array<char, VXPAD_MAX_STRING_LENGTH>;

CallbackPair<vxpad_logging_callback> registered;
std::atomic<unsigned int> registrations{0};

struct Waiting {
    Message message;
    Waiting* next;
};

// Messages in the order in which they were said.
class Queue {
  public:
    void add(const Message& message, Memory memory) {
        Waiting* const added = is_full() ? drop_middle() : take(memory);
        if (added == nullptr) {
            ++left_out_;
            return;
        }
        *added = {message, nullptr};
        (last_ == nullptr ? first_ : last_->next) = added;
        last_ = added;
        ++count_;
        if (count_ == half) {
            end_of_first_half_ = added;
        }
    }

    bool is_full() const { return count_ >= most_waiting; }
    bool is_empty() const { return count_ == 0 && left_out_ == 0; }
    unsigned long left_out() const { return left_out_; }

    // Runs use(message) on each, with a note where some were left out.
    template <typename Use> void empty(Use use) {
        const Waiting* const end_of_first_half = end_of_first_half_;
        const unsigned long left_out = std::exchange(left_out_, 0);
        Waiting* next = std::exchange(first_, nullptr);
        *this = {};
        bool is_noted = left_out == 0;
        const auto note = [&] {
            Message text{};
            std::snprintf(text.data(), text.size(), "info: log_delivery(): %lu messages were left out here\n",
                          left_out);
            use(text);
            is_noted = true;
        };
        while (next != nullptr) {
            Waiting* const one = next;
            next = one->next;
            use(one->message);
            if (one == end_of_first_half && !is_noted) {
                note();
            }
            std::free(one);
        }
        if (!is_noted) {
            note();
        }
    }

  private:
    // The checked allocators have something to say themselves where there is none: that waits in plain memory, or is
    // left out, since it would be said again without end.
    Waiting* take(Memory memory) {
        if (is_taking_) {
            return static_cast<Waiting*>(std::malloc(sizeof(Waiting)));
        }
        is_taking_ = true;
        auto* const taken = static_cast<Waiting*>(memory(sizeof(Waiting)));
        is_taking_ = false;
        return taken;
    }

    // The oldest of the second half.
    Waiting* drop_middle() {
        Waiting* const dropped = end_of_first_half_->next;
        end_of_first_half_->next = dropped->next;
        --count_;
        ++left_out_;
        return dropped;
    }

    Waiting* first_ = nullptr;
    Waiting* end_of_first_half_ = nullptr;
    Waiting* last_ = nullptr;
    int count_ = 0;
    unsigned long left_out_ = 0;
    bool is_taking_ = false;
};

// One thread's messages. Both queues are empty when it holds no lock, so there is nothing to destroy at its end.
struct Outbox {
    int locks_held = 0;
    Memory memory = nullptr; // for what waits
    bool delivering = false;
    Queue waiting;
    Queue last_words; // for the callback that its tear-down has forgotten
    Pair forgotten;
    unsigned int registration = 0; // no later one has taken its place
};
VX_THREAD_LOCAL constinit Outbox outbox;

void hand_over(const Message& message, const Pair& to) {
    if (to.callback == nullptr) {
        return;
    }
    char16_t wide[VXPAD_MAX_STRING_LENGTH] = {};
    astr_to_wstr(wide, message.data(), static_cast<int>(std::strlen(message.data())) + 1);
    outbox.delivering = true;
    to.callback(to.user_specific, wide);
    outbox.delivering = false;
}

// Apart, so that a lock which nothing waits for is released with little ado.
[[gnu::noinline]] void hand_over_all() {
    outbox.last_words.empty([](const Message& message) {
        // Whoever registers another callback meanwhile may have freed what the former was given.
        if (outbox.registration == registrations) {
            hand_over(message, outbox.forgotten);
        }
    });
    outbox.waiting.empty([](const Message& message) { hand_over(message, registered.get()); });
}

} // namespace

bool is_wanted() {
    return registered.is_set();
}

void set_callback(vxpad_logging_callback callback, void* user_specific) {
    registered.set(callback, user_specific);
    ++registrations; // behind it: who has counted this one does not take the former
}

void forget_callback() {
    outbox.registration = registrations; // before the callback: a later one then counts as later
    outbox.forgotten = registered.take();
    outbox.last_words = std::exchange(outbox.waiting, {});
}

Outcome deliver(const char* kind, const char* function, const char* text, const char* end) {
    if (!is_wanted() || outbox.delivering) {
        return Outcome::passed_on;
    }
    char whole[message_size];
    std::snprintf(whole, sizeof whole, "%s: %s(): %s%s", kind, function, text, end);
    Message message{};
    std::memcpy(message.data(), whole, strnlen(whole, message.size() - 1));
    if (outbox.locks_held == 0) {
        hand_over(message, registered.get());
        return Outcome::passed_on;
    }
    const bool is_full = outbox.waiting.is_full();
    outbox.waiting.add(message, outbox.memory);
    return is_full && outbox.waiting.left_out() == 1 ? Outcome::first_left_out : Outcome::passed_on;
}

bool is_delivering() {
    return outbox.delivering;
}

void lock_taken(Memory memory) {
    ++outbox.locks_held;
    outbox.memory = memory;
}

void lock_released() {
    --outbox.locks_held;
    // A lock of the callback's own calls delivers nothing: the callback is never called inside itself.
    while (outbox.locks_held == 0 && !outbox.delivering &&
           !(outbox.waiting.is_empty() && outbox.last_words.is_empty())) {
        hand_over_all();
    }
}

} // namespace log_delivery
