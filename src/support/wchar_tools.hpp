// Text conversion for hidapi's 32-bit strings, beside the exported functions for 16-bit ones.
#pragma once

#include "vxpadcom/vxpadcom.h"

int wstr_length(const wchar_t* text);
int wstr_to_astr(char* dst, const wchar_t* src, int n);

namespace wchar_tools {

// Narrow text of at most 254 characters, in the environment's locale.
struct Text {
    char text[VXPAD_MAX_STRING_LENGTH];
};
Text narrow(const char16_t* text);
Text narrow(const wchar_t* text);

} // namespace wchar_tools
