#include "arguments.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace vxpadctl {

const char* help_text() {
    return R"(Usage: vxpadctl COMMAND [OPTIONS]

Finds USB signature pads and exchanges reports with them.

Commands:
  list                    the pads that are plugged in, numbered from 1
  info PAD                what a pad says about itself
  feature get PAD         reads a feature report
  feature set PAD HEX...  sends a feature report
  report read PAD         waits for input reports
  report write PAD HEX... sends an output report

Options:
  --json             list, info: JSON instead of text
  --interface K      interface of the pad, counted from 0 (default 0)
  --length BYTES     feature get: size of the report (default: a full report)
  --reply            feature set: then reads a feature report, the pad's answer
  --fill             feature set, report write: zeros up to a full report
  --wait MS          report read: how long to wait for each report, 0 takes what is there (default 1000)
  --count C          report read: number of reports (default 1)
  --trace            the library's own account of everything it does, on standard error
  --help, --version

HEX is one or more bytes of two digits each: 1f 00 2a, 1f002a or 1f:00:2a. Reports are given and shown without the
report-id byte. Every run of vxpadctl talks to the pads on its own account before and after the command: an answer
must be read by the run that has asked. Without --trace the library's own error lines go to the system log.

Exit status: 0 done; 1 failed (no such pad, no permission, no answer, no report in time); 2 wrong usage.
)";
}

namespace {

constexpr unsigned longest_report = 4096;

struct CommandWords {
    Command command;
    std::string_view first;
    std::string_view second;
    bool takes_pad;
    bool takes_bytes;
    std::string_view options;
};

constexpr std::array<CommandWords, 6> commands{{
    {Command::list, "list", "", false, false, "--json"},
    {Command::info, "info", "", true, false, "--json"},
    {Command::feature_get, "feature", "get", true, false, "--interface --length"},
    {Command::feature_set, "feature", "set", true, true, "--interface --fill --reply"},
    {Command::report_read, "report", "read", true, false, "--interface --wait --count"},
    {Command::report_write, "report", "write", true, true, "--interface --fill"},
}};

struct Option {
    std::string_view name;
    void (*set)(Arguments& arguments, unsigned value);
    bool takes_value = false;
    unsigned least = 0;
    unsigned most = 0;
};

constexpr std::array<Option, 8> options{{
    {"--json", [](Arguments& a, unsigned) { a.json = true; }},
    {"--trace", [](Arguments& a, unsigned) { a.trace = true; }},
    {"--fill", [](Arguments& a, unsigned) { a.fill = true; }},
    {"--reply", [](Arguments& a, unsigned) { a.reply = true; }},
    {"--interface", [](Arguments& a, unsigned value) { a.interface = value; }, true, 0, 255},
    {"--length", [](Arguments& a, unsigned value) { a.length = value; }, true, 1, longest_report},
    {"--wait", [](Arguments& a, unsigned value) { a.wait = value; }, true, 0, 86'400'000},
    {"--count", [](Arguments& a, unsigned value) { a.count = value; }, true, 1, 1'000'000},
}};

unsigned parse_number(std::string_view what, std::string_view text, unsigned least, unsigned most) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size() || number < least || number > most)
        throw UsageError(std::string(what) + " takes a number from " + std::to_string(least) + " to " +
                         std::to_string(most) + ", not '" + std::string(text) + "'");
    return number;
}

struct SplitWords {
    std::vector<std::string_view> plain;
    std::vector<std::string_view> options;
    bool help = false;
    bool version = false;
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
            result.help = true;
        } else if (word == "--version") {
            result.version = true;
        } else {
            const std::string_view name = word.substr(0, word.find('='));
            const auto option = std::ranges::find(options, name, &Option::name);
            if (option == options.end() || (!option->takes_value && name != word))
                throw UsageError("there is no option '" + std::string(word) + "'");
            unsigned value = 0;
            if (option->takes_value) {
                if (name == word && ++i == words.size())
                    throw UsageError(std::string(name) + " needs a value");
                value = parse_number(name, name == word ? std::string_view(words[i]) : word.substr(name.size() + 1),
                                     option->least, option->most);
            }
            option->set(arguments, value);
            result.options.push_back(name);
        }
    }
    return result;
}

const CommandWords& find_command(std::span<const std::string_view> words) {
    if (words.empty())
        throw UsageError("there is no command");
    for (const CommandWords& command : commands)
        if (words[0] == command.first && (command.second.empty() || (words.size() > 1 && words[1] == command.second)))
            return command;
    const bool incomplete = std::ranges::find(commands, words[0], &CommandWords::first) != commands.end();
    if (incomplete && words.size() == 1)
        throw UsageError("'" + std::string(words[0]) + "' needs to be told what to do");
    throw UsageError("there is no command '" + std::string(words[0]) +
                     (incomplete ? std::string(" ").append(words[1]) : std::string()) + "'");
}

void check_options(std::string_view command, std::string_view allowed, std::span<const std::string_view> given) {
    for (const std::string_view name : given)
        if (name != "--trace" && allowed.find(name) == std::string_view::npos)
            throw UsageError("'" + std::string(command) + "' has no option " + std::string(name));
}

void parse_bytes(std::span<const std::string_view> words, Bytes& bytes) {
    try {
        for (const std::string_view word : words)
            parse_hex(word, bytes);
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
    if (bytes.empty())
        throw UsageError("the bytes to send are missing");
    if (bytes.size() > longest_report)
        throw UsageError("a report has at most " + std::to_string(longest_report) + " bytes");
}

} // namespace

Arguments parse_arguments(std::span<char* const> words) {
    Arguments arguments;
    const SplitWords given = split(words, arguments);
    if (given.help || given.version) {
        arguments.command = given.help ? Command::help : Command::version;
        return arguments;
    }
    const CommandWords& command = find_command(given.plain);
    arguments.command = command.command;
    std::string name(command.first);
    if (!command.second.empty())
        name.append(" ").append(command.second);
    check_options(name, command.options, given.options);

    auto rest = std::span(given.plain).subspan(command.second.empty() ? 1 : 2);
    if (command.takes_pad) {
        if (rest.empty())
            throw UsageError("'" + name + "' needs the number of a pad (vxpadctl list shows them)");
        arguments.pad = parse_number("PAD", rest.front(), 1, 255);
        rest = rest.subspan(1);
    }
    if (command.takes_bytes)
        parse_bytes(rest, arguments.bytes);
    else if (!rest.empty())
        throw UsageError("'" + name + "' cannot make sense of '" + std::string(rest.front()) + "'");
    return arguments;
}

} // namespace vxpadctl
