// Writes vxpad-bridge(1) from the table of options. Argument: the file.
#include "program/options.hpp"

#include <fstream>
#include <iostream>
#include <string>
#include <string_view>

namespace {

// Text that troff shows as it is.
std::string plain(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        escaped.append(c == '-' ? "\\-" : c == '\\' ? "\\e" : std::string(1, c));
    }
    return escaped;
}

std::string page() {
    std::string text = ".TH VXPAD\\-BRIDGE 1 \"\" \"libvxpadcom " VXPAD_BRIDGE_VERSION "\" \"User Commands\"\n"
                       ".SH NAME\nvxpad\\-bridge \\- USB signature pads for applications in a browser\n"
                       ".SH SYNOPSIS\n.B vxpad\\-bridge\n[\\fIOPTIONS\\fR]\n.SH DESCRIPTION\n";
    text += plain(bridge::purpose) + "\n.PP\n" + plain(bridge::places) + "\n.SH OPTIONS\n";
    for (const bridge::Option& option : bridge::option_table()) {
        text += ".TP\n\\fB" + plain(option.name) + "\\fR";
        if (!option.value.empty()) {
            text += " \\fI" + plain(option.value) + "\\fR";
        }
        text += "\n" + plain(option.help) + "\n";
    }
    return text +
           ".SH SEE ALSO\n.BR vxpadctl (1)\n.PP\nThe protocol is told in bridge.md of the package's documents.\n";
}

} // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::cerr << "Usage: vxpad-bridge-man-page FILE\n";
        return 2;
    }
    std::ofstream file{arguments[1]};
    file << page();
    return file.flush() ? 0 : 1;
}
