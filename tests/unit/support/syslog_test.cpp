#include "support/syslog.hpp"

#include <array>
#include <cstdarg>
#include <cstdio>

namespace syslog_standin {

bool echo = false;

std::vector<Entry>& entries() {
    static std::vector<Entry> all;
    return all;
}

namespace {

[[gnu::format(printf, 2, 0)]] void keep(int priority, const char* format, va_list arguments) {
    std::array<char, 8192> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    entries().push_back({priority, text.data()});
    if (echo) {
        std::fprintf(stderr, "syslog %d: %s", priority, text.data());
    }
}

} // namespace
} // namespace syslog_standin

// Both names, for libraries built with and without the C library's checks.
extern "C" {

void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    syslog_standin::keep(priority, format, arguments);
    va_end(arguments);
}

void __syslog_chk(int priority, int, const char* format, ...) __attribute__((format(printf, 3, 4)));

void __syslog_chk(int priority, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    syslog_standin::keep(priority, format, arguments);
    va_end(arguments);
}
}
