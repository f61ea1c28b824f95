#include "support/wide_text.hpp"

#include "vxpadcom/vxpadcom.h"

#include <cstring>
#include <cwchar>

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
