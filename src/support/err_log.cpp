// The err_ family: error lines to standard error, or to syslog for a daemon.

#include "vxpadcom/internals/err_log.h"
#include "vxpadcom/vxpadcom.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <syslog.h>

int daemon_proc = 0;

namespace {

enum class ErrnoText { left_out, appended };

[[gnu::format(printf, 3, 0)]] void err_format_and_emit(ErrnoText errno_text, int level, const char* format,
                                                       va_list arguments) {
    const int saved_errno = errno;
    constexpr std::size_t text_size = 4096;
    char text[text_size + 1]; // one more for the line end
    std::vsnprintf(text, text_size, format, arguments);
    if (errno_text == ErrnoText::appended) {
        const std::size_t used = std::strlen(text);
        char reason[256];
        std::snprintf(text + used, text_size - used, ": %s", strerror_r(saved_errno, reason, sizeof reason));
    }
    std::strcat(text, "\n");

    if (daemon_proc == 0) {
        std::fputs(text, stderr);
        std::fflush(stderr);
    } else {
        syslog(level, "%s", text);
    }
}

} // namespace

#define EMIT(errno_text, level)                                                                                        \
    do {                                                                                                               \
        va_list arguments;                                                                                             \
        va_start(arguments, format);                                                                                   \
        err_format_and_emit((errno_text), (level), format, arguments);                                                 \
        va_end(arguments);                                                                                             \
    } while (false)

void err_ret(const char* format, ...) {
    EMIT(ErrnoText::appended, LOG_INFO);
}

void err_msg(const char* format, ...) {
    EMIT(ErrnoText::left_out, LOG_INFO);
}

void err_sys(const char* format, ...) {
    EMIT(ErrnoText::appended, LOG_ERR);
    std::exit(1);
}

void err_dump(const char* format, ...) {
    EMIT(ErrnoText::appended, LOG_ERR);
    std::abort();
}

void err_quit(const char* format, ...) {
    EMIT(ErrnoText::left_out, LOG_ERR);
    std::exit(1);
}
