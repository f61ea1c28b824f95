// A call has dozens of trace points, and getenv() looks at every variable's text. What it found is therefore remembered
// together with all that it depends on: environ, its slots and, for each switch, the slot that holds it. As long as
// those are the same only the text in that slot is looked at; else everything is looked at anew.
//
// Mostly no variable is a switch. Then all slots are compared only as an application's call is entered; at its further
// trace points the last ones tell.
#include "support/switches.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <emmintrin.h>
#include <gnu/libc-version.h>
#include <string_view>
#include <unistd.h>

extern "C" void* __libc_stack_end; // NOLINT(bugprone-reserved-identifier): the C library's

namespace switches {
namespace {

constexpr std::array<std::string_view, 3> names{"LIBVXPADCOM_DEBUG", "LIBVXPADCOM_DEBUG_FUNC",
                                                "LIBVXPADCOM_DEBUG_MUTEX"}; // in the order of Switch

constexpr std::size_t most_variables = 1024; // with more of them getenv() is asked each time
constexpr std::size_t slots_per_block = 8;
constexpr std::size_t block_size = slots_per_block * sizeof(char*);
constexpr std::size_t page_size = 4096;

// Where a switch stands, or would stand if the last variable were replaced by it: a text that is put into the
// environment after another one was taken out may have the same address and the same slot.
struct Place {
    std::uint32_t slot;
    bool found;
};
std::uint32_t packed(Place place) {
    return place.slot * 2 + (place.found ? 1 : 0);
}
Place unpacked_place(std::uint32_t word) {
    return {word / 2, word % 2 != 0};
}

// Slots, a block of them at least, that are all on one page or in memory that stays. In one word, so that whoever reads
// it reads no further than there are slots.
struct Stretch {
    char** slots;
    std::size_t count;
    char** end() const { return slots + count; }
};
constexpr unsigned int count_bits = 16; // no address needs the highest ones
constexpr std::uint64_t nowhere = ~std::uint64_t{0};
std::uint64_t packed(Stretch stretch) {
    return reinterpret_cast<std::uintptr_t>(stretch.slots) << count_bits | stretch.count;
}
Stretch unpacked_stretch(std::uint64_t word) {
    return {reinterpret_cast<char**>(word >> count_bits), word & ((1U << count_bits) - 1)};
}

// One for all threads. Who changes it makes the version odd meanwhile; what was read counts if the version was even and
// is still the same afterwards. No slot below the count is ever null, so that no reader walks past the end of environ,
// even if it reads while another thread writes.
struct Memory {
    std::atomic<std::uint32_t> version{0};
    std::atomic<std::uint32_t> count{0};
    std::atomic<char**> variables{nullptr}; // null: nothing is remembered
    std::array<std::atomic<std::uint32_t>, names.size()> places{};
    std::atomic<std::uint64_t> without_switches{nowhere}; // a Stretch of which no variable is a switch
    alignas(block_size) std::array<std::atomic<char*>, most_variables> slots{};
};
Memory memory;
static_assert(sizeof(std::atomic<char*>) == sizeof(char*));

// A program may have a getenv() of its own: that one knows best, and is asked each time.
bool getenv_reads_environ() {
    Dl_info asked{};
    Dl_info c_library{};
    return dladdr(reinterpret_cast<void*>(&getenv), &asked) != 0 &&
           dladdr(reinterpret_cast<void*>(&gnu_get_libc_version), &c_library) != 0 &&
           asked.dli_fbase == c_library.dli_fbase;
}
const bool may_remember = getenv_reads_environ();

bool is_positive(const char* value) {
    return value != nullptr && std::atoi(value) > 0;
}

// The value in a text "name=value", or null where it has another name.
const char* value_in(const char* text, std::string_view name) {
    const bool matches =
        text[0] == name[0] && std::strncmp(text, name.data(), name.size()) == 0 && text[name.size()] == '=';
    return matches ? text + name.size() + 1 : nullptr;
}

// The last block of a stretch begins anywhere, the others where a block of the remembered slots does.
[[gnu::always_inline]] VX_UNWATCHED inline __m128i aligned_pair_of(char* const* slots) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(slots));
}

template <auto former_pair>
[[gnu::always_inline]] VX_UNWATCHED inline __m128i same_pair(char* const* now, char* const* former) {
    return _mm_cmpeq_epi32(pair_of(now), former_pair(former));
}

// Of slots of which the first one exists.
template <auto former_pair = aligned_pair_of>
[[gnu::always_inline]] VX_UNWATCHED inline __m128i same_block(char* const* now, char* const* former) {
    const __m128i first =
        _mm_and_si128(same_pair<former_pair>(now, former), same_pair<former_pair>(now + 2, former + 2));
    const __m128i second =
        _mm_and_si128(same_pair<former_pair>(now + 4, former + 4), same_pair<former_pair>(now + 6, former + 6));
    return _mm_and_si128(first, second);
}

VX_UNWATCHED inline bool is_same_slot_by_slot(char* const* now, char* const* former, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (now[i] != former[i]) {
            return false;
        }
    }
    return true;
}

std::size_t slots_left_on_page(char* const* slot) {
    return (page_size - reinterpret_cast<std::uintptr_t>(slot) % page_size + sizeof *slot - 1) / sizeof *slot;
}

// Above the stack's beginning is the environment that the process has been started with.
bool is_first_environment(char* const* variables) {
    return reinterpret_cast<std::uintptr_t>(variables) > reinterpret_cast<std::uintptr_t>(__libc_stack_end);
}

char* const* remembered_slots() {
    return reinterpret_cast<char* const*>(memory.slots.data());
}

// Goes from front to back, so that no slot is read before those in front of it are known to be as they were, but for
// the rest of a block on the same page. Like getenv() it reads what another thread may be changing, which is the
// application's to prevent.
VX_UNWATCHED inline bool is_as_remembered(char* const* now, std::size_t count) {
    char* const* const former = remembered_slots();
    for (std::size_t i = 0; i < count; i += slots_per_block) {
        const std::size_t left = std::min(count - i, slots_per_block);
        const bool is_block = left == slots_per_block && slots_left_on_page(now + i) >= slots_per_block;
        if (!(is_block ? is_all(same_block(now + i, former + i)) : is_same_slot_by_slot(now + i, former + i, left))) {
            return false;
        }
    }
    return now[count] == nullptr;
}

// The last block begins inside the one before it, unless that one ends where it begins.
VX_UNWATCHED inline bool is_stretch_as_remembered(Stretch now) {
    char* const* const former = remembered_slots();
    const std::size_t last = now.count - slots_per_block;
    __m128i same = same_block<pair_of>(now.slots + last, former + last);
    for (std::size_t i = 0; i < last; i += slots_per_block) {
        same = _mm_and_si128(same, same_block(now.slots + i, former + i));
    }
    return is_all(same) && *now.end() == nullptr;
}

Place find(char* const* variables, std::size_t count, std::string_view name) {
    for (std::size_t i = 0; i < count; ++i) {
        if (value_in(variables[i], name) != nullptr) {
            return {static_cast<std::uint32_t>(i), true};
        }
    }
    return {static_cast<std::uint32_t>(count == 0 ? 0 : count - 1), false};
}

[[gnu::noinline]] VX_UNWATCHED void remember(char** variables) {
    std::size_t count = 0;
    while (variables[count] != nullptr) {
        if (++count > most_variables) {
            return;
        }
    }
    std::uint32_t version = memory.version.load(std::memory_order_relaxed);
    if (version % 2 != 0 || !memory.version.compare_exchange_strong(version, version + 1)) {
        return; // another thread is at it
    }
    memory.without_switches.store(nowhere, std::memory_order_relaxed);
    for (std::size_t i = 0; i < count; ++i) {
        memory.slots[i].store(variables[i], std::memory_order_release);
    }
    bool has_switches = false;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const Place place = find(variables, count, names[i]);
        has_switches = has_switches || place.found;
        memory.places[i].store(packed(place), std::memory_order_relaxed);
    }
    memory.count.store(static_cast<std::uint32_t>(count), std::memory_order_release);
    memory.variables.store(variables, std::memory_order_release);
    if (!has_switches && count >= slots_per_block &&
        (count < slots_left_on_page(variables) || is_first_environment(variables))) {
        memory.without_switches.store(packed(Stretch{variables, count}), std::memory_order_release);
    }
    memory.version.store(version + 2, std::memory_order_release);
}

[[gnu::noinline]] bool look_anew(std::string_view name) {
    if (may_remember && environ != nullptr) {
        remember(environ);
    }
    return is_positive(std::getenv(name.data()));
}

[[gnu::noinline]] bool look_into(const char* text, std::string_view name, bool found) {
    if (const char* value = value_in(text, name)) {
        return is_positive(value);
    }
    return found && look_anew(name);
}

// Where no variable was a switch and all are the same, only what may have taken the last one's memory is to be looked
// at: as long as that does not begin as a switch does, all are off.
//
// Where the stretch is the same before and after, either its slots did not change meanwhile, or another thread has
// found just now that none of them is a switch.
VX_UNWATCHED bool are_all_off() {
    seen.variables = nowhere_seen;
    const std::uint64_t word = memory.without_switches.load(std::memory_order_acquire);
    const Stretch now = unpacked_stretch(word);
    if (now.slots != environ || !is_stretch_as_remembered(now) || begins_as_a_switch(now.end()[-1])) {
        return false;
    }
    seen.end = now.end();
    seen.last_slots[0] = pair_of(remembered_slots() + now.count - 4);
    seen.last_slots[1] = pair_of(remembered_slots() + now.count - 2);
    std::atomic_signal_fence(std::memory_order_acquire); // the processor keeps loads in order
    const bool is_same = memory.without_switches.load(std::memory_order_acquire) == word;
    seen.variables = is_same ? now.slots : nowhere_seen;
    return is_same;
}

bool look(Switch which) {
    const auto index = static_cast<std::size_t>(which);
    char** const variables = environ;
    const std::uint32_t version = memory.version.load(std::memory_order_acquire);
    if (version % 2 != 0 || variables == nullptr || memory.variables.load(std::memory_order_acquire) != variables) {
        return look_anew(names[index]);
    }
    const Place place = unpacked_place(memory.places[index].load(std::memory_order_acquire));
    const bool same = is_as_remembered(variables, memory.count.load(std::memory_order_acquire));
    std::atomic_signal_fence(std::memory_order_acquire); // the processor keeps loads in order
    if (!same || memory.version.load(std::memory_order_acquire) != version) {
        return look_anew(names[index]);
    }
    const char* text = variables[place.slot]; // null where there is no variable at all
    if (text == nullptr || (!place.found && !begins_as_a_switch(text))) {
        return false;
    }
    return look_into(text, names[index], place.found);
}

} // namespace

VX_THREAD_LOCAL constinit Seen seen;

bool is_on_in_any_slot(Switch which) {
    return !are_all_off() && look(which);
}

bool any_is_on() {
    return !are_still_off() && !are_all_off() &&
           (look(Switch::information) || look(Switch::functions) || look(Switch::locks));
}

} // namespace switches
