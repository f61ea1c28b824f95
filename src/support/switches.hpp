// The trace switches: environment variables that are asked for at every trace point, so that a running process can be
// looked into.
#pragma once

#include "support/thread_local.hpp"

#include <emmintrin.h>
#include <string_view>
#include <unistd.h>

namespace switches {

enum class Switch {
    information, // LIBVXPADCOM_DEBUG
    functions,   // LIBVXPADCOM_DEBUG_FUNC
    locks        // LIBVXPADCOM_DEBUG_MUTEX
};

// What a sanitizer need not look at. Not a double-bracket attribute: the compilers have no name for it in common.
#define VX_UNWATCHED __attribute__((no_sanitize("address", "thread")))

// The switches' names begin with this.
constexpr std::string_view common_beginning = "LIBVXPADCOM_DEBUG";

[[gnu::always_inline]] VX_UNWATCHED inline bool begins_as_a_switch(const char* text) {
    for (const char c : common_beginning) {
        if (*text != c) {
            return false;
        }
        ++text;
    }
    return true;
}

// Two slots of an environment.
[[gnu::always_inline]] VX_UNWATCHED inline __m128i pair_of(char* const* slots) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(slots));
}
inline bool is_all(__m128i same) {
    return _mm_movemask_epi8(same) == 0xFFFF;
}

// Where the calling thread has last seen that no variable is a switch; environ may be null, but never is this.
inline char* nowhere_seen[1];
struct Seen {
    char** variables = nowhere_seen;
    char** end = nullptr; // the null behind them
    __m128i last_slots[2]{};
};
VX_THREAD_LOCAL extern constinit Seen seen;

// A variable that comes new is put behind the last one, and where others were taken out before, those behind them move
// down; and something else may have taken the last one's memory.
VX_UNWATCHED inline bool are_still_off() {
    if (seen.variables != environ) {
        return false;
    }
    char** const end = seen.end;
    const __m128i same = _mm_and_si128(_mm_cmpeq_epi32(pair_of(end - 4), seen.last_slots[0]),
                                       _mm_cmpeq_epi32(pair_of(end - 2), seen.last_slots[1]));
    return is_all(same) && *end == nullptr && !begins_as_a_switch(end[-1]);
}

// Whether what atoi() makes of its value just now is a positive number. Every variable's slot is looked at, as it is to
// be where the library is entered.
bool is_on_in_any_slot(Switch which);

// The same inside the library: what setenv(), putenv() and unsetenv() do, a new environ and a value edited in place are
// seen at once. As this thread enters the library again is seen what leaves the end and the last four slots as they
// were: a slot in the middle that is written by hand meanwhile, or a switch before the last four, which all are set
// anew.
inline bool is_on(Switch which) {
    return !are_still_off() && is_on_in_any_slot(which);
}

bool any_is_on();

} // namespace switches
