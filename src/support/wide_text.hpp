// Conversion between narrow text and text of 16 or 32 bits, which hidapi has.
#pragma once

#include "vxpadcom/internals/wide_text.h"

int wstr_length(const wchar_t* text);
int wstr_to_astr(char* dst, const wchar_t* src, int n);
