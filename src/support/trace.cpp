#include "support/trace.hpp"

#include "support/log_delivery.hpp"
#include "support/switches.hpp"
#include "vxpadcom/internals/err_log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

using switches::Switch;

namespace trace {
namespace {

constexpr const char* function_colour = "\033[34m";

constexpr std::size_t message_size = 4096;

// What could not be told elsewhere in time goes to standard error.
void deliver(const char* kind, const Location& where, const char* text, const char* end) {
    if (log_delivery::deliver(kind, where.function, text, end) == log_delivery::Outcome::first_left_out) {
        err_msg("\033[31m%ld: %s: %s:%5d: error: %s(): more than %d messages wait for the logging callback while this "
                "thread holds a lock, some are left out\033[0m",
                thread_id(), timestamp().text, where.file, where.line, where.function, log_delivery::most_waiting);
    }
}

} // namespace

long thread_id() {
    return syscall(SYS_gettid);
}

Timestamp timestamp() {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char clock[32];
    if (std::strftime(clock, sizeof clock, "%H:%M:%S", &local) == 0) {
        clock[0] = '\0';
    }
    Timestamp stamp;
    std::snprintf(stamp.text, sizeof stamp.text, "%s.%03ld", clock, static_cast<long>(now.tv_usec / 1000));
    return stamp;
}

void print_line(const char* colour, const Location& where, const char* format, ...) {
    char text[message_size];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::fprintf(stdout, "%s%ld: %s:%18s:%5d: %s\n\033[0m", colour, thread_id(), timestamp().text, where.file,
                 where.line, text);
    std::fflush(stdout);
}

Listeners info_listeners() {
    return {switches::is_on(Switch::information), log_delivery::is_wanted()};
}

bool is_heard() {
    return log_delivery::is_wanted() || switches::any_is_on();
}

void info(Listeners listeners, const Location& where, Style style, const char* format, ...) {
    char text[message_size];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);

    if (listeners.standard_output) {
        const char* colour = style == Style::report_dump ? "\033[36m" : "\033[32m";
        if (style == Style::kind_after) {
            print_line(colour, where, "%s(): info: %s", where.function, text);
        } else {
            print_line(colour, where, "info: %s(): %s", where.function, text);
        }
    }
    if (listeners.callback) {
        deliver("info", where, text, "\n");
    }
}

void error(const Location& where, const char* format, ...) {
    char text[message_size];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);

    std::fflush(stdout);
    err_msg("\033[31m%ld: %s: %s:%5d: error: %s(): %s\033[0m", thread_id(), timestamp().text, where.file, where.line,
            where.function, text);
    std::fflush(stdout);
    deliver("error", where, text, "");
}

void system_error(const Location& where, int error_number, const char* format, ...) {
    char text[message_size];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);

    std::fflush(stdout);
    const Timestamp now = timestamp();
    errno = error_number;
    err_ret("\033[31m%ld: %s: %s:%5d: error: %s\033[0m", thread_id(), now.text, where.file, where.line, text);
    std::fflush(stdout);
    deliver("error", where, text, "");
}

void plain_error(const Location& where, const char* format, ...) {
    char text[message_size];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);

    err_msg("\033[31m%ld: %s: %s:%5d: error: %s\033[0m", thread_id(), timestamp().text, where.file, where.line, text);
    deliver("error", where, text, "");
}

void fatal_error(const Location& where, int error_number, const char* text) {
    deliver("error", where, text, "");
    errno = error_number;
    err_sys("error: %s", text);
}

void begin_round() {
    static_cast<void>(switches::is_on_in_any_slot(Switch::functions));
}

// The looks by themselves: what they seldom lead to is apart.
void Scope::tell_enter() const {
    if (!switches::are_still_off()) [[unlikely]] {
        tell_enter_after_full_look();
    }
}

void Scope::tell_enter_after_full_look() const {
    if (switches::is_on_in_any_slot(Switch::functions)) [[unlikely]] {
        print_line(function_colour, where_, "%s(): enter.", where_.function);
    }
}

void Scope::tell_exit() const {
    if (!switches::are_still_off()) [[unlikely]] {
        tell_exit_after_full_look();
    }
}

void Scope::tell_exit_after_full_look() const {
    if (!switches::is_on_in_any_slot(Switch::functions)) {
        return;
    }
    char result[64] = "";
    if (const int* number = std::get_if<int>(&result_)) {
        std::snprintf(result, sizeof result, " returned int: %d.", *number);
    } else if (const bool* truth = std::get_if<bool>(&result_)) {
        std::snprintf(result, sizeof result, " returned bool: %s.", *truth ? "TRUE" : "FALSE");
    } else if (const long* long_number = std::get_if<long>(&result_)) {
        std::snprintf(result, sizeof result, " returned long: %ld.", *long_number);
    } else if (const auto* pointer = std::get_if<const void*>(&result_)) {
        std::snprintf(result, sizeof result, " returned pointer: %p.", *pointer);
    }
    const int line = exit_line_ != 0 ? exit_line_ : where_.line;
    print_line(function_colour, {where_.file, line, where_.function}, "%s(): exit.%s", where_.function, result);
}

} // namespace trace
