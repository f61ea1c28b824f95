#include "support/wchar_tools.hpp"

#include "support/lock.hpp"
#include "vxpadcom/internals/process_state.h"
#include "vxpadcom/internals/wchar_tools.h"
#include "vxpadcom/internals/wide_text.h"

#include <clocale>

pthread_mutex_t print_wchar_to_asci_lock = PTHREAD_MUTEX_INITIALIZER;

namespace {

// The process's LC_CTYPE stays as the environment has it.
template <typename Unit> void fill_log_text(wchar_tools::Text& target, const Unit* text) {
    trace::Lock lock{&print_wchar_to_asci_lock, "&print_wchar_to_asci_lock", VX_HERE_AS("print_wchar_to_asci")};
    target = {};
    std::setlocale(LC_CTYPE, "");
    const int with_terminator = wstr_length(text) + 1;
    wstr_to_astr(target.text, text, with_terminator < 255 ? with_terminator : 254);
}

} // namespace

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
