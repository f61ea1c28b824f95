#include "terminal_view.hpp"

#include "printing.hpp"
#include "text.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace vxpadctl {

namespace {

// Also where the terminal does not tell.
constexpr std::size_t usual_columns = 80;

std::size_t columns_of(std::FILE* file) {
    winsize size{};
    const bool known = ::ioctl(::fileno(file), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : usual_columns;
}

bool understands_escapes() {
    const char* terminal = std::getenv("TERM");
    return terminal != nullptr && *terminal != '\0' && std::string_view(terminal) != "dumb";
}

} // namespace

TerminalView::TerminalView(std::FILE* file)
    : file_{file}, is_terminal_{::isatty(::fileno(file)) == 1 && understands_escapes()} {}

void TerminalView::draw(const std::vector<std::string>& lines) {
    std::string text;
    if (drawn_ > 0) {
        text += "\r\033[" + std::to_string(drawn_) + "A";
    }
    for (const std::string& line : lines) {
        text += cut(line, columns_of(file_)) + "\033[K\n";
    }
    drawn_ = lines.size();
    print(file_, text);
    flush(file_);
}

std::string bar(double part, std::size_t columns) {
    const double filled = std::round(std::clamp(part, 0.0, 1.0) * static_cast<double>(columns));
    std::string text(columns, '-');
    text.replace(0, static_cast<std::size_t>(filled), static_cast<std::size_t>(filled), '#');
    return "[" + text + "]";
}

} // namespace vxpadctl
