// Every call that the library makes of others, counted and made to fail.
//
// install() puts functions of this file into the library's own table of addresses, in place of what it calls of hidapi,
// libusb, the allocator, threads and locks, files and time. Each counts its call and then passes it on, to the
// stand-ins or to the system, or fails as the plan says. Nobody else's calls are touched, so it works beside sanitizers
// too.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace faults {

enum class Group { hidapi, libusb, memory, threads, locks, files, clock, pauses };
constexpr std::size_t groups = 8;

// A way in which the calls of a group fail: the result, or the errno.
struct Family {
    std::string_view name;
    Group group;
    int failure;
};
extern const std::array<Family, 11> families;
const Family* find_family(std::string_view name);

// Which call fails, counted from 1 within its group: it alone, or it and all behind it.
struct Plan {
    const Family* family = nullptr; // none: nothing fails
    unsigned int call = 0;
    bool for_good = false;
};

// Whether every function that the library calls is one that this file knows; else the names of the others.
std::optional<std::string> install();

// From here on calls are counted, fail by the plan, and belong to the calling thread or to one of the library's.
void begin(Plan plan);
std::array<unsigned int, groups> counts();
bool came_true(); // whether the planned call was made
unsigned int failed_calls();
bool keeps_queue(); // whether a queue, since it could not be locked, was not destroyed
// No fault from here on.
void end();

// The calling thread's calls neither count nor fail as long as it lives.
class Truce {
  public:
    Truce();
    ~Truce();
    Truce(const Truce&) = delete;
    Truce& operator=(const Truce&) = delete;

  private:
    bool former_;
};

// What the library holds.
std::size_t blocks();     // of memory
int locks_held();         // by any thread
int locks_held_here();    // by the calling thread
std::string block_call(); // the place in the library that asked for a block it holds

// Frees a block that the library has handed over.
void given_up(void* block);

// Virtual time that the calling thread has spent in the library's pauses and transfers.
std::int64_t spent_us();

// Pauses that the library's own threads have made: while they go on, these threads do.
unsigned int naps();

} // namespace faults
