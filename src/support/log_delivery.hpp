// The way of messages to the application's logging callback.
//
// It runs on the thread that has something to say, as soon as that thread holds no lock of the library: so it may call
// the library. What the library says to the callback's own calls is not delivered, or it would never end.
#pragma once

#include "vxpadcom/vxpadcom.h"

#include <cstddef>

namespace log_delivery {

bool is_wanted();

// Null turns delivery off.
void set_callback(vxpad_logging_callback callback, void* user_specific);

// For the tear-down: the callback is given what this thread has said so far, and nothing more.
void forget_callback();

// Most messages of a thread that wait for its locks: the first and the last half; between them stands how many were
// left out.
constexpr int most_waiting = 1000;

enum class Outcome { passed_on, first_left_out };

// "info: function(): text" and a line end where the message is an information one.
Outcome deliver(const char* kind, const char* function, const char* text, const char* end);

// Whether the calling thread is inside the callback.
bool is_delivering();

// A lock was taken by the calling thread, or released. In between its messages wait, in memory from the library's
// allocator, which stands above this file: it has something to say itself.
using Memory = void* (*)(std::size_t size);
void lock_taken(Memory memory);
void lock_released();

} // namespace log_delivery
