#include "program/options.hpp"

#include "access/access.hpp"
#include "base/text.hpp"
#include "layout.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace bridge {

const std::string_view purpose = "Lets applications in a browser of this machine use USB signature pads: a WebSocket "
                                 "with JSON, and a page of its own that shows what is written on a pad. Only this "
                                 "machine gets an answer, only pages whose origin is allowed, and only whoever knows "
                                 "the token.";

const std::string_view places = "The address of the page, with the token, stands in the file "
                                "$XDG_RUNTIME_DIR/vxpad-bridge/address as long as the program runs, and on the "
                                "terminal where there is one. SIGINT, SIGTERM and SIGHUP, unless it is ignored, end "
                                "the program and leave the pads in order.";

namespace {

// One line, as parse_layout() takes it.
std::string layout_text(const std::string& value) {
    const vxpadctl::Layout layout =
        value.starts_with('@') ? vxpadctl::read_layout(value.substr(1)) : vxpadctl::parse_layout(value);
    std::string text;
    for (const vxpadctl::Field& field : layout) {
        text.append(text.empty() ? "" : ",").append(field.name).append("=").append(std::to_string(field.offset));
        text.append(":").append(field.type->name);
    }
    return text;
}

constexpr std::array<Option, 8> options{{
    {"--port", "PORT", "port to listen at, default 7429; 0: any free one",
     [](Options& o, const std::string& value) {
         o.port = static_cast<unsigned short>(emulator::parse_count(value, 0, 65535));
     }},
    {"--listen", "ADDRESS",
     "address of this machine's loopback interface to listen at, may be repeated; default: "
     "127.0.0.1, and ::1 where there is one. No other address is accepted",
     [](Options& o, const std::string& value) {
         if (value != "127.0.0.1" && value != "::1") {
             throw std::invalid_argument("'" + value + "' is not accepted; 127.0.0.1 and ::1 are");
         }
         o.addresses.push_back(value);
     }},
    {"--allow-origin", "ORIGIN",
     "pages from there may use the pads too, if they know the token; may be repeated. As a "
     "browser tells it: https://counter.example or http://localhost:3000. http is for "
     "this machine only",
     [](Options& o, const std::string& value) {
         if (!is_acceptable_origin(value)) {
             throw std::invalid_argument("'" + value +
                                         "' is no origin; https://HOST[:PORT] is, or "
                                         "http://localhost[:PORT]");
         }
         o.origins.push_back(value);
     }},
    {"--layout", "LAYOUT",
     "where the numbers are in pen data, for clients that name no layout: "
     "x=2:u16le,y=4:u16le,pressure=6:u16le or @FILE",
     [](Options& o, const std::string& value) { o.layout = layout_text(value); }},
    {"--token-file", "FILE",
     "takes the token from there in place of a new one each time: a line of 32 to 256 letters, "
     "digits, - and _ in a file with mode 600",
     [](Options& o, const std::string& value) { o.token_file = value; }},
    {"--address-file", "FILE", "writes the address there",
     [](Options& o, const std::string& value) { o.address_file = value; }},
    {"--help", "", "shows this text", [](Options& o, const std::string&) { o.help = true; }},
    {"--version", "", "shows the version", [](Options& o, const std::string&) { o.version = true; }},
}};

void append_wrapped(std::string& text, std::string_view words, std::size_t indentation) {
    constexpr std::size_t columns = 100;
    std::size_t column = indentation;
    while (!words.empty()) {
        const auto end = std::min(words.find(' '), words.size());
        if (column > indentation && column + 1 + end > columns) {
            text.append("\n").append(indentation, ' ');
            column = indentation;
        } else if (column > indentation) {
            text += ' ';
            ++column;
        }
        text.append(words.substr(0, end));
        column += end;
        words.remove_prefix(std::min(end + 1, words.size()));
    }
    text += '\n';
}

} // namespace

std::span<const Option> option_table() {
    return options;
}

Options parse_options(std::span<const char* const> arguments) {
    Options parsed;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string name = arguments[i];
        std::optional<std::string> value;
        if (const auto equals = name.find('='); name.starts_with("--") && equals != std::string::npos) {
            value = name.substr(equals + 1);
            name.resize(equals);
        }
        const auto option = std::ranges::find(options, name, &Option::name);
        if (option == options.end()) {
            throw UsageError("there is no option '" + name + "'");
        }
        if (option->value.empty() && value) {
            throw UsageError(name + " takes no value");
        }
        if (!option->value.empty() && !value) {
            if (++i == arguments.size()) {
                throw UsageError(name + " needs a value");
            }
            value = arguments[i];
        }
        try {
            option->set(parsed, value.value_or(""));
        } catch (const std::invalid_argument& error) {
            throw UsageError(name + " " + error.what());
        }
    }
    return parsed;
}

std::string help_text() {
    constexpr std::size_t indentation = 26;
    std::string text = "Usage: vxpad-bridge [OPTIONS]\n\n";
    append_wrapped(text, purpose, 0);
    text += "\nOptions:\n";
    for (const Option& option : options) {
        std::string head = "  " + std::string{option.name};
        head.append(option.value.empty() ? "" : " ").append(option.value);
        head.resize(std::max(indentation, head.size() + 1), ' ');
        text += head;
        append_wrapped(text, option.help, indentation);
    }
    text += '\n';
    append_wrapped(text, places, 0);
    return text;
}

} // namespace bridge
