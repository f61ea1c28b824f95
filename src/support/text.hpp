// Bounded formatting into the fixed text fields of records.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace text {

template <std::size_t size> [[gnu::format(printf, 2, 3)]] void print(char (&target)[size], const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(target, size, format, arguments);
    va_end(arguments);
}

} // namespace text
