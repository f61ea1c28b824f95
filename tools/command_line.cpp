#include "command_line.hpp"

#include "commands.hpp"
#include "operands.hpp"
#include "options.hpp"
#include "values.hpp"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

namespace vxpadctl {

namespace {

constexpr std::string_view introduction = R"(Usage: vxpadctl COMMAND [OPTIONS]

Finds USB signature pads, exchanges reports and SSP messages with them, and records what they send.
)";

constexpr std::pair<Section, std::string_view> headings[]{
    {Section::reports, "Commands:"},
    {Section::pen, "Commands for what a pad sends by itself while a person writes, and for large uploads:"},
    {Section::ssp, "Commands for pads that speak SSP:"},
};

// What is no option of the table.
constexpr std::string_view general_options = R"(  --help, --version
  --                 what follows is no option
)";

constexpr std::string_view explanations =
    R"(HEX is one or more bytes of two digits each: 1f 00 2a, 1f002a or 1f:00:2a. Reports are given and shown without the
report-id byte. Other numbers are decimal, or hexadecimal behind 0x.
COMPONENT is communication, configuration, signpad or the id that ssp components shows. MODE is signature, doc-view,
doc-sign or its type (0, 5, 6). BUTTON is its code or zoom-in, zoom-out, next, prev, ssig, rotate, ok, repeat, cancel,
rotate-90, rotate-180.

LAYOUT is a list NAME=OFFSET:TYPE,... with offsets in bytes from 0 and the types u8, i8, u16le, u16be, i16le, i16be,
u32le, u32be, i32le and i32be: x=2:u16le,y=4:u16le,pressure=6:u16le is that of virtual pads, which comes as
virtual-pad.layout. In a file the fields may also stand in lines of their own; lines that begin with # are comments.
A plot takes x, y and pressure: the pen is up where pressure is 0, and never where the layout has none.

A recording drives a virtual pad: vxpadctl replay FILE --pad N inside, or the request replay N FILE on the emulator's
control socket. docs/recordings.md describes the format.

An upload cuts the file into whole reports, the last one filled up with zeros.

Every run of vxpadctl talks to the pads on its own account before and after the command: an answer must be read by the
run that has asked. Without --trace the library's own error lines go to the system log.

Exit status: 0 done; 1 failed (no such pad, no permission, no answer, nothing in time, refused, pulled out, sent in part
only); 2 wrong usage; 130 interrupted, with the pad left in order and what was recorded complete.
)";

constexpr std::size_t command_column = 26;
constexpr std::size_t option_column = 21;
constexpr std::size_t help_width = 117;

// An entry of the help: a head and, from that column on, a text, on lines of its own where the head is too long.
std::string help_entry(const std::string& head, std::string_view text, std::size_t column) {
    std::string entry = "  " + head;
    if (!text.empty() && entry.size() < column) {
        entry.resize(column, ' ');
    } else if (!text.empty()) {
        entry += "\n" + std::string(column, ' ');
    }
    for (const char c : text) {
        entry += c;
        if (c == '\n') {
            entry.append(column, ' ');
        }
    }
    return entry + "\n";
}

std::string joined(std::string_view first, std::string_view second) {
    return second.empty() ? std::string(first) : std::string(first).append(" ").append(second);
}

// By name, or by their first words where all that begin with one have the option.
std::vector<std::string_view> commands_with(std::string_view option) {
    std::vector<std::string_view> names;
    for (const Command& command : all_commands()) {
        if (!command.has_option(option)) {
            continue;
        }
        const bool all = std::ranges::all_of(all_commands(), [&](const Command& other) {
            return other.family() != command.family() || other.has_option(option);
        });
        const std::string_view name = all ? command.family() : command.name;
        if (names.empty() || names.back() != name) {
            names.push_back(name);
        }
    }
    return names;
}

// In lines that fit behind the column.
std::string listed(const std::vector<std::string_view>& names, std::size_t column) {
    std::string text;
    std::size_t line = column;
    for (const std::string_view& name : names) {
        const std::string word = std::string(name) + (&name == &names.back() ? "" : ",");
        if (!text.empty()) {
            const bool fits = line + 1 + word.size() <= help_width;
            text += fits ? ' ' : '\n';
            line = fits ? line + 1 : column;
        }
        text += word;
        line += word.size();
    }
    return text;
}

std::string option_entry(const Option& option) {
    constexpr std::string_view commands = "{}";
    std::string help{option.help};
    if (help.starts_with(commands)) {
        help.replace(0, commands.size(), listed(commands_with(option.name), option_column));
    }
    return help_entry(joined(option.name, option.value), help, option_column);
}

struct SplitWords {
    std::vector<std::string_view> plain;
    std::vector<std::string_view> options;
};

// Sorts the words into options, which are stored at once, and the rest.
SplitWords split(std::span<char* const> words, Arguments& arguments) {
    SplitWords result;
    bool ended = false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string_view word = words[i];
        if (ended || !word.starts_with("-")) {
            result.plain.push_back(word);
        } else if (word == "--") {
            ended = true;
        } else if (word == "--help" || word == "-h") {
            arguments.help = true;
        } else if (word == "--version") {
            arguments.version = true;
        } else {
            const std::string_view name = word.substr(0, word.find('='));
            const Option* option = find_option(name);
            if (option == nullptr || (!option->takes_value && name != word)) {
                throw UsageError("there is no option " + quoted(word));
            }
            std::string_view value;
            if (option->takes_value) {
                if (name == word && ++i == words.size()) {
                    throw UsageError(std::string(name) + " needs a value");
                }
                value = name == word ? std::string_view(words[i]) : word.substr(name.size() + 1);
            }
            store_option(*option, value, arguments);
            result.options.push_back(name);
        }
    }
    return result;
}

// Takes the command's name off the words.
const Command& take_command(std::span<const std::string_view>& words) {
    if (words.empty()) {
        throw UsageError("there is no command");
    }
    const std::string_view family = words.front();
    const auto commands = all_commands();
    const bool is_known = std::ranges::find(commands, family, &Command::family) != commands.end();
    const bool is_whole = std::ranges::find(commands, family, &Command::name) != commands.end();
    if (is_known && !is_whole && words.size() == 1) {
        throw UsageError(quoted(family) + " needs to be told what to do");
    }
    const std::string name = joined(family, is_known && !is_whole ? words[1] : "");
    const auto command = std::ranges::find(commands, name, &Command::name);
    if (command == commands.end()) {
        throw UsageError("there is no command " + quoted(name));
    }
    words = words.subspan(is_whole ? 1 : 2);
    return *command;
}

} // namespace

std::string help_text() {
    std::string text{introduction};
    for (const auto& [section, heading] : headings) {
        text.append("\n").append(heading).append("\n");
        for (const Command& command : all_commands()) {
            for (const Usage& usage : command.usages) {
                const bool is_there = !usage.operands.empty() || !usage.does.empty();
                if (command.section == section && is_there) {
                    text += help_entry(joined(command.name, usage.operands), usage.does, command_column);
                }
            }
        }
    }
    text += "\nOptions:\n";
    for (const Option& option : all_options()) {
        if (!option.help.empty()) {
            text += option_entry(option);
        }
    }
    return text.append(general_options).append("\n").append(explanations);
}

Arguments parse_arguments(std::span<char* const> words) {
    Arguments arguments;
    const SplitWords given = split(words, arguments);
    if (arguments.help || arguments.version) {
        return arguments;
    }
    std::span<const std::string_view> words_left{given.plain};
    const Command& command = take_command(words_left);
    arguments.command = &command;
    for (const std::string_view option : given.options) {
        if (!command.has_option(option)) {
            throw UsageError(quoted(command.name) + " has no option " + std::string(option));
        }
    }
    Operands operands{std::string(command.name), words_left};
    for (const auto take : command.take) {
        if (take != nullptr) {
            take(operands, arguments);
        }
    }
    operands.expect_end();
    return arguments;
}

} // namespace vxpadctl
