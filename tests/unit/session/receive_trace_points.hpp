// Stepping in between the steps of a call.
//
// Before it takes a lock and when it has left one, the library asks for a trace switch, which is an environment
// variable. The tests' getenv() makes a trace point of each such question.
#pragma once

#include "receive_test.hpp"

namespace receive_test {

// From now on the calling thread does this at each of its trace points; null: nothing. Its owner keeps it.
void do_at_trace_points(const std::function<void()>* step);

// Runs call again and again, interrupted at its first trace point, then at its second, and so on. The intruder has a
// thread of its own: where it needs a lock that is held at that point, the call goes on and it comes in later. Returns
// how many points there were.
unsigned int interrupt_everywhere(
    const std::function<void()>& call, const std::function<void()>& intruder,
    const std::function<void()>& prepare = [] {});

} // namespace receive_test
