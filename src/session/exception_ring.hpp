// The exception records: what failed last, 63 times over.
#pragma once

#include "support/trace.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace exception_ring {

constexpr int slots = 64; // slot 0 is reserved: handles run from 1 to 63 and around
constexpr std::size_t text_size = 256;

struct Record {
    char type[text_size];
    std::int32_t code;
    char name[text_size];
    char message[text_size];
    std::uint8_t in_use;
};

// Files a record and returns its handle.
int file(int code, const char* function, const char* message);

// A copy of the record behind a handle, if there is one.
std::optional<Record> find(const trace::Location& where, unsigned int handle);

// Drops all records; handles start at 1 again.
void clear(const trace::Location& where);

} // namespace exception_ring
