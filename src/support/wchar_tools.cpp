#include "support/wchar_tools.hpp"

#include "support/trace.hpp"

#include <clocale>
#include <cstring>
#include <cwchar>

pthread_mutex_t print_wchar_to_asci_lock = PTHREAD_MUTEX_INITIALIZER;

namespace {

template <typename Unit> int length_of(const Unit* text) {
    int length = 0;
    while (length < VXPAD_MAX_STRING_LENGTH && std::wctob(static_cast<wint_t>(text[length])) != 0) {
        ++length;
    }
    return length;
}

template <typename Unit> int to_narrow(char* dst, const Unit* src, int n) {
    for (int i = 0; i < n; ++i) {
        dst[i] = static_cast<char>(std::wctob(static_cast<wint_t>(src[i])));
    }
    return n;
}

// The process's LC_CTYPE stays as the environment has it.
template <typename Unit> void fill_log_text(wchar_tools::Text& target, const Unit* text) {
    trace::Lock lock{&print_wchar_to_asci_lock, "&print_wchar_to_asci_lock",
                     trace::here(__FILE_NAME__, __LINE__, "print_wchar_to_asci")};
    target = {};
    std::setlocale(LC_CTYPE, "");
    const int with_terminator = length_of(text) + 1;
    to_narrow(target.text, text, with_terminator < 255 ? with_terminator : 254);
}

} // namespace

void wbzero(void* buffer, int units) {
    if (units > 0) {
        std::memset(buffer, 0, static_cast<std::size_t>(units) * sizeof(char16_t));
    }
}

int wstr_length(const char16_t* text) {
    return length_of(text);
}
int wstr_length(const wchar_t* text) {
    return length_of(text);
}

int astr_to_wstr(char16_t* dst, const char* src, int n) {
    for (int i = 0; i < n; ++i) {
        // Sign-extended on purpose: a byte above 0x7F is the single-byte conversion's negative value.
        dst[i] = static_cast<char16_t>(std::btowc(static_cast<signed char>(src[i])));
    }
    return n;
}

int wstr_to_astr(char* dst, const char16_t* src, int n) {
    return to_narrow(dst, src, n);
}
int wstr_to_astr(char* dst, const wchar_t* src, int n) {
    return to_narrow(dst, src, n);
}

const char* print_wchar_to_asci(const char16_t* text) {
    static wchar_tools::Text shown;
    fill_log_text(shown, text);
    return shown.text;
}

namespace wchar_tools {

Text narrow(const char16_t* text) {
    Text result;
    fill_log_text(result, text);
    return result;
}

Text narrow(const wchar_t* text) {
    Text result;
    fill_log_text(result, text);
    return result;
}

} // namespace wchar_tools
