#include "support/trace.hpp"

#include "support/memory.hpp"
#include "support/wchar_tools.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

namespace trace {
namespace {

constexpr const char* debug_switch = "LIBVXPADCOM_DEBUG";
constexpr const char* function_switch = "LIBVXPADCOM_DEBUG_FUNC";
constexpr const char* mutex_switch = "LIBVXPADCOM_DEBUG_MUTEX";

constexpr const char* function_colour = "\033[34m";

constexpr std::size_t message_size = 4096;

std::atomic<vxpad_logging_callback> logging_callback{nullptr};
std::atomic<void*> logging_user_specific{nullptr};

using Message = std::array<char, VXPAD_MAX_STRING_LENGTH>;

// One thread's messages. While it holds a lock they wait, so that the callback may call the library; what the library
// says to a call of the callback itself is not delivered, or it would never end.
struct Outbox {
    int locks_held = 0;
    bool delivering = false;
    checked::Fifo<Message> waiting;
};
thread_local Outbox outbox;

void hand_over(const Message& message) {
    const auto callback = logging_callback.load();
    if (callback == nullptr) {
        return;
    }
    char16_t wide[VXPAD_MAX_STRING_LENGTH] = {};
    astr_to_wstr(wide, message.data(), static_cast<int>(std::strlen(message.data())) + 1);
    outbox.delivering = true;
    callback(logging_user_specific.load(), wide);
    outbox.delivering = false;
}

void hand_over_waiting() {
    auto waiting = std::exchange(outbox.waiting, {});
    while (const auto message = waiting.take_first()) {
        hand_over(*message);
    }
}

// "info: function(): text" and a line end where the message is an information one.
void deliver(const char* kind, const char* function, const char* text, const char* end) {
    if (logging_callback.load() == nullptr || outbox.delivering) {
        return;
    }
    char whole[message_size];
    std::snprintf(whole, sizeof whole, "%s: %s(): %s%s", kind, function, text, end);
    Message message{};
    std::memcpy(message.data(), whole, strnlen(whole, message.size() - 1));
    if (outbox.locks_held > 0) {
        outbox.waiting.push_back(message);
    } else {
        hand_over(message);
    }
}

} // namespace

bool switched_on(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr && std::atoi(value) > 0;
}

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

void set_callback(void* callback, void* user_specific) {
    hand_over_waiting(); // to the one that goes
    logging_callback = reinterpret_cast<vxpad_logging_callback>(callback);
    logging_user_specific = user_specific;
}

void print_line(const char* colour, Location where, const char* format, ...) {
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
    return {switched_on(debug_switch), logging_callback.load() != nullptr};
}

void info(Listeners listeners, Location where, Style style, const char* format, ...) {
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
        deliver("info", where.function, text, "\n");
    }
}

void error(Location where, const char* format, ...) {
    char text[message_size];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);

    std::fflush(stdout);
    err_msg("\033[31m%ld: %s: %s:%5d: error: %s(): %s\033[0m", thread_id(), timestamp().text, where.file, where.line,
            where.function, text);
    std::fflush(stdout);
    deliver("error", where.function, text, "");
}

void system_error(Location where, int error_number, const char* format, ...) {
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
    deliver("error", where.function, text, "");
}

Scope::Scope(Location where) : where_{where}, exit_line_{where.line} {
    if (switched_on(function_switch)) {
        print_line(function_colour, where_, "%s(): enter.", where_.function);
    }
}

Scope::~Scope() {
    if (!switched_on(function_switch)) {
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
    print_line(function_colour, {where_.file, exit_line_, where_.function}, "%s(): exit.%s", where_.function, result);
}

bool lock_lines_wanted() {
    return switched_on(mutex_switch);
}

void lock_line(LockEvent event, Location where, const char* expression) {
    static constexpr const char* texts[] = {
        ">>>>>>>>     going to pthread_mutex_lock() -> ",
        "########   was called pthread_mutex_lock() -> ",
        "<<<<<<<< was called pthread_mutex_unlock() -> ",
    };
    print_line("\033[33m", where, "%s(): %s%s", where.function, texts[static_cast<int>(event)], expression);
}

Lock::Lock(pthread_mutex_t* mutex, const char* expression, Location where)
    : mutex_{mutex}, expression_{expression}, where_{where} {
    if (mutex_ == nullptr) {
        return;
    }
    const bool wanted = lock_lines_wanted();
    if (wanted) {
        lock_line(LockEvent::going_to_lock, where_, expression_);
    }
    Pthread_mutex_lock(mutex_);
    ++outbox.locks_held;
    if (wanted) {
        lock_line(LockEvent::locked, where_, expression_);
    }
}

void Lock::unlock() {
    if (mutex_ == nullptr) {
        return;
    }
    Pthread_mutex_unlock(mutex_);
    mutex_ = nullptr;
    if (lock_lines_wanted()) {
        lock_line(LockEvent::unlocked, where_, expression_);
    }
    if (--outbox.locks_held == 0 && !outbox.waiting.empty()) {
        hand_over_waiting();
    }
}

} // namespace trace
