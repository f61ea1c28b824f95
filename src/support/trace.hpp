// Tracing: enter/exit lines, information lines and error lines; support/lock has those of locks.
//
// Environment switches are read anew at every trace point, so that a running process can be looked into. Information
// and error messages also go to the application's logging callback. A message that nobody wants is neither formatted
// nor are its arguments evaluated.
#pragma once

#include <variant>

namespace trace {

struct Location {
    const char* file;
    int line;
    const char* function;
};

// A location that stays for ever, so that guards only remember which.
#define VX_HERE_AS(function_name)                                                                                      \
    (*__extension__({                                                                                                  \
        static constexpr ::trace::Location location_{__FILE_NAME__, __LINE__, (function_name)};                        \
        &location_;                                                                                                    \
    }))
#define VX_HERE VX_HERE_AS(__func__)

// Who wants an information message just now.
struct Listeners {
    bool standard_output;
    bool callback;
    explicit operator bool() const { return standard_output || callback; }
};
Listeners info_listeners();

// Whether anyone wants anything but errors just now: one look for all the trace points of a short stretch of work.
bool is_heard();

enum class Style {
    plain,      // "info: function(): text"
    kind_after, // "function(): info: text"
    report_dump // as plain, in the colour of report bytes
};

[[gnu::format(printf, 4, 5)]] void info(Listeners listeners, const Location& where, Style style, const char* format,
                                        ...);
[[gnu::format(printf, 2, 3)]] void error(const Location& where, const char* format, ...);

// One line on standard output, in a colour, behind the common prefix.
[[gnu::format(printf, 3, 4)]] void print_line(const char* colour, const Location& where, const char* format, ...);

// An error line without the function's name that ends in the text of error_number.
[[gnu::format(printf, 3, 4)]] void system_error(const Location& where, int error_number, const char* format, ...);

// An error line without the function's name.
[[gnu::format(printf, 2, 3)]] void plain_error(const Location& where, const char* format, ...);

// The line with which the process ends.
[[noreturn]] void fatal_error(const Location& where, int error_number, const char* text);

#define VX_INFO_STYLED_AT(where, style, ...)                                                                           \
    do {                                                                                                               \
        if (const auto listeners_ = ::trace::info_listeners()) {                                                       \
            ::trace::info(listeners_, (where), (style), __VA_ARGS__);                                                  \
        }                                                                                                              \
    } while (false)
#define VX_INFO_AT(where, ...) VX_INFO_STYLED_AT(where, ::trace::Style::plain, __VA_ARGS__)
#define VX_INFO(...) VX_INFO_AT(VX_HERE, __VA_ARGS__)
#define VX_NOTE(...) VX_INFO_STYLED_AT(VX_HERE, ::trace::Style::kind_after, __VA_ARGS__)
#define VX_DUMP_AT(where, ...) VX_INFO_STYLED_AT(where, ::trace::Style::report_dump, __VA_ARGS__)
#define VX_ERROR(...) ::trace::error(VX_HERE, __VA_ARGS__)

// Enter and exit lines of one function. exit(result) returns the result; the line comes at the end of the scope, behind
// the lines of locks that are held inside it. Without exit() the line names no result.
class Scope {
  public:
    explicit Scope(const Location& where) : where_{where} { tell_enter(); }
    explicit Scope(const Location&& where) = delete;
    ~Scope() { tell_exit(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    const Location& where() const { return where_; }

    int exit(int result, int line = __builtin_LINE()) { return remember(result, line); }
    bool exit(bool result, int line = __builtin_LINE()) { return remember(result, line); }
    long exit(long result, int line = __builtin_LINE()) { return remember(result, line); }
    template <typename T> T* exit(T* result, int line = __builtin_LINE()) {
        remember(static_cast<const void*>(result), line);
        return result;
    }

  protected:
    enum class Enters { library };
    Scope(const Location& where, Enters /*what*/) : where_{where} { tell_enter_after_full_look(); }

  private:
    template <typename T> T remember(T result, int line) {
        result_ = result;
        exit_line_ = line;
        return result;
    }

    void tell_enter() const;
    void tell_enter_after_full_look() const;
    void tell_exit() const;
    void tell_exit_after_full_look() const;

    const Location& where_;
    int exit_line_ = 0; // where exit() was called
    std::variant<std::monostate, int, bool, long, const void*> result_;
};

// The scope of a function that applications call, or that begins a thread's next round.
class Entry : public Scope {
  public:
    explicit Entry(const Location& where) : Scope{where, Enters::library} {}
    explicit Entry(const Location&& where) = delete;
};

// What a thread calls that goes round inside one scope: all that an entry would see is seen.
void begin_round();

// The local time as "14:03:27.045".
struct Timestamp {
    char text[256];
};
Timestamp timestamp();
long thread_id();

} // namespace trace
