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
constexpr winsize usual_size{24, 80, 0, 0};

winsize size_of(std::FILE* file) {
    winsize size{};
    ::ioctl(::fileno(file), TIOCGWINSZ, &size);
    size.ws_row = size.ws_row > 0 ? size.ws_row : usual_size.ws_row;
    size.ws_col = size.ws_col > 0 ? size.ws_col : usual_size.ws_col;
    return size;
}

bool understands_escapes() {
    const char* terminal = std::getenv("TERM");
    return terminal != nullptr && *terminal != '\0' && std::string_view(terminal) != "dumb";
}

} // namespace

TerminalView::TerminalView(std::FILE* file)
    : file_{file}, is_terminal_{::isatty(::fileno(file)) == 1 && understands_escapes()} {}

// The line behind the last one is where the cursor rests. What scrolls out at the top cannot be drawn over.
void TerminalView::draw(const std::vector<std::string>& lines) {
    const winsize size = size_of(file_);
    const std::size_t shown = std::min<std::size_t>(lines.size(), size.ws_row > 1 ? size.ws_row - 1U : 1U);
    std::string text;
    if (drawn_ > 0) {
        text += "\r\033[" + std::to_string(drawn_) + "A";
    }
    for (std::size_t i = 0; i < shown; ++i) {
        text += cut(lines[i], size.ws_col) + "\033[K\n";
    }
    if (shown < drawn_) {
        text += "\033[J"; // what is left of the lines before
    }
    drawn_ = shown;
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
