// The files of page/, as embed.cmake puts them into a source.
#pragma once

namespace bridge {

extern const char* const page_html;
extern const char* const page_style;
extern const char* const page_script;

} // namespace bridge
