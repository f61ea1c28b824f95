// A call has dozens of trace points, and getenv() looks at every variable's text. What it found is therefore remembered
// together with all that it depends on: environ, its slots and, for each switch, the slot that holds it. As long as
// those are the same only the text in that slot is looked at; else everything is looked at anew.
//
// Mostly no variable is a switch. Then a function's further trace points need not compare all slots either: a variable
// that comes new is put behind the last one, and where others were taken out before, those behind them move down. So
// the last slots tell.
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

namespace switches {
namespace {

constexpr std::array<std::string_view, 3> names{"LIBVXPADCOM_DEBUG", "LIBVXPADCOM_DEBUG_FUNC",
                                                "LIBVXPADCOM_DEBUG_MUTEX"}; // in the order of Switch

constexpr std::size_t most_variables = 1024; // with more of them getenv() is asked each time
constexpr std::size_t slots_per_block = 8;
constexpr std::size_t page = 4096;

// Where a switch stands, or would stand if the last variable were replaced by it: a text that is put into the
// environment after another one was taken out may have the same address and the same slot.
struct Place {
    std::uint32_t slot;
    bool found;
};
std::uint32_t packed(Place place) {
    return place.slot * 2 + (place.found ? 1 : 0);
}
Place unpacked(std::uint32_t word) {
    return {word / 2, word % 2 != 0};
}

// One for all threads. Who changes it makes the version odd meanwhile; what was read counts if the version was even and
// is still the same afterwards. No slot below the count is ever null, so that no reader walks past the end of environ,
// even if it reads while another thread writes.
struct Memory {
    std::atomic<std::uint32_t> version{0};
    std::atomic<std::uint32_t> count{0};
    std::atomic<char**> variables{nullptr};        // null: nothing is remembered
    std::atomic<char**> without_switches{nullptr}; // the same, where no variable is a switch; null while slots change
    std::atomic<char**> on_one_page{nullptr};      // the same, where the last block is on the page of the first slot
    std::array<std::atomic<std::uint32_t>, names.size()> places{};
    alignas(slots_per_block * sizeof(char*)) std::array<std::atomic<char*>, most_variables> slots{};
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

// What a sanitizer need not look at. Not a double-bracket attribute: the compilers have no name for it in common.
#define VX_UNWATCHED __attribute__((no_sanitize("address", "thread")))

// Two slots each.
[[gnu::always_inline]] VX_UNWATCHED inline __m128i same_pair(char* const* now, char* const* former) {
    return _mm_cmpeq_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(now)),
                           _mm_loadu_si128(reinterpret_cast<const __m128i*>(former)));
}

// Of slots of which the first one exists.
[[gnu::always_inline]] VX_UNWATCHED inline bool is_same_block(char* const* now, char* const* former) {
    const __m128i first = _mm_and_si128(same_pair(now, former), same_pair(now + 2, former + 2));
    const __m128i second = _mm_and_si128(same_pair(now + 4, former + 4), same_pair(now + 6, former + 6));
    return _mm_movemask_epi8(_mm_and_si128(first, second)) == 0xFFFF;
}

VX_UNWATCHED inline bool is_same_slot_by_slot(char* const* now, char* const* former, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (now[i] != former[i]) {
            return false;
        }
    }
    return true;
}

// Of slots on one page. The last block begins inside the one before it, unless that one ends where it begins.
VX_UNWATCHED inline bool is_same_part(char* const* now, char* const* former, std::size_t count) {
    if (count < slots_per_block) {
        return is_same_slot_by_slot(now, former, count);
    }
    const std::size_t last = count - slots_per_block;
    for (std::size_t i = 0; i < last; i += slots_per_block) {
        if (!is_same_block(now + i, former + i)) {
            return false;
        }
    }
    return is_same_block(now + last, former + last);
}

std::size_t slots_left_on_page(char* const* slot) {
    return (page - reinterpret_cast<std::uintptr_t>(slot) % page + sizeof *slot - 1) / sizeof *slot;
}

char* const* remembered_slots() {
    return reinterpret_cast<char* const*>(memory.slots.data());
}

// Goes from front to back, so that no slot is read before those in front of it are known to be as they were, but for
// the rest of a block on the same page. Like getenv() it reads what another thread may be changing, which is the
// application's to prevent.
VX_UNWATCHED inline bool is_as_remembered(char* const* now, std::size_t count) {
    char* const* former = remembered_slots();
    while (count > 0) {
        const std::size_t part = std::min(count, slots_left_on_page(now));
        if (!is_same_part(now, former, part)) {
            return false;
        }
        now += part;
        former += part;
        count -= part;
    }
    return *now == nullptr;
}

// Of slots whose last block is on the page of the first one.
VX_UNWATCHED inline bool is_end_as_remembered(char* const* now, std::size_t count) {
    const std::size_t last = count - slots_per_block;
    return is_same_block(now + last, remembered_slots() + last) && now[count] == nullptr;
}

// Where no variable was a switch and all are the same, only what may have taken the last one's memory is to be looked
// at: as long as that does not begin as a switch does, all are off.
VX_UNWATCHED inline bool are_off(const std::atomic<char**>& looked_at, bool (*is_same)(char* const*, std::size_t)) {
    char** const variables = environ;
    const std::uint32_t version = memory.version.load(std::memory_order_acquire);
    if (variables == nullptr || looked_at.load(std::memory_order_acquire) != variables) {
        return false;
    }
    const std::size_t count = memory.count.load(std::memory_order_acquire);
    if (!is_same(variables, count) || variables[count - 1][0] == names[0][0]) {
        return false;
    }
    std::atomic_signal_fence(std::memory_order_acquire); // the processor keeps loads in order
    return memory.version.load(std::memory_order_acquire) == version;
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
    memory.without_switches.store(nullptr, std::memory_order_relaxed);
    memory.on_one_page.store(nullptr, std::memory_order_relaxed);
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
    if (!has_switches && count > 0) {
        memory.without_switches.store(variables, std::memory_order_release);
        if (count >= slots_per_block && count < slots_left_on_page(variables)) {
            memory.on_one_page.store(variables, std::memory_order_release);
        }
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

} // namespace

VX_UNWATCHED bool are_all_off() {
    return are_off(memory.without_switches, is_as_remembered);
}

VX_UNWATCHED bool are_still_off() {
    return are_off(memory.on_one_page, is_end_as_remembered);
}

bool look(Switch which) {
    const auto index = static_cast<std::size_t>(which);
    char** const variables = environ;
    const std::uint32_t version = memory.version.load(std::memory_order_acquire);
    if (version % 2 != 0 || variables == nullptr || memory.variables.load(std::memory_order_acquire) != variables) {
        return look_anew(names[index]);
    }
    const Place place = unpacked(memory.places[index].load(std::memory_order_acquire));
    const bool same = is_as_remembered(variables, memory.count.load(std::memory_order_acquire));
    std::atomic_signal_fence(std::memory_order_acquire); // the processor keeps loads in order
    if (!same || memory.version.load(std::memory_order_acquire) != version) {
        return look_anew(names[index]);
    }
    const char* text = variables[place.slot]; // null where there is no variable at all
    if (text == nullptr || (text[0] != names[index][0] && !place.found)) {
        return false;
    }
    return look_into(text, names[index], place.found);
}

bool any_is_on() {
    return !are_still_off() && (look(Switch::information) || look(Switch::functions) || look(Switch::locks));
}

} // namespace switches
