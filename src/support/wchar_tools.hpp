// Wide text for the log, in the environment's locale.
#pragma once

#include "support/wide_text.hpp"
#include "vxpadcom/vxpadcom.h"

namespace wchar_tools {

// Narrow text of at most 254 characters, in the environment's locale.
struct Text {
    char text[VXPAD_MAX_STRING_LENGTH];
};
Text narrow(const char16_t* text);
Text narrow(const wchar_t* text);

} // namespace wchar_tools
