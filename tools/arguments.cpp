#include "arguments.hpp"

#include "names.hpp"
#include "text.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <string_view>

namespace vxpadctl {

const char* help_text() {
    return R"(Usage: vxpadctl COMMAND [OPTIONS]

Finds USB signature pads, exchanges reports and SSP messages with them, and records what they send.

Commands:
  list                    the pads that are plugged in, numbered from 1
  info PAD                what a pad says about itself
  feature get PAD         reads a feature report
  feature set PAD HEX...  sends a feature report
  report read PAD         waits for input reports
  report write PAD HEX... sends an output report

Commands for what a pad sends by itself while a person writes, and for large uploads:
  monitor PAD             shows what comes: rate, packets so far, pressure or rate as a bar, the last packets; on
                          anything but a terminal a line each second
  record PAD -o FILE      writes what comes into a recording, a text file with a time for each packet
  replay FILE             shows the packets of a recording at their times, a line each: seconds, pressure, bytes
  replay FILE --pad N     has virtual pad N send them, for a program under vxpad-emulator run
  plot FILE --layout LAYOUT -o FILE
                          draws a recording as an SVG picture
  upload PAD FILE         sends a file as output reports, over several interfaces at once

Commands for pads that speak SSP:
  ssp send PAD HEX...     sends a whole message as it is
  ssp send PAD --component COMPONENT --message ID [HEX...]
                          sends a message to a component, HEX is what follows the message id
  ssp receive PAD         waits for messages, or with --pen-data for pen data
  ssp components PAD      the components of a pad
  ssp modes PAD           the modes of its signpad
  ssp description PAD     ids, version and serial number as the signpad tells them
  ssp connection PAD [get]
  ssp connection PAD set TYPE
                          the connection type, 0 to 127
  config set PAD VARIABLE VALUE
                          sets a configuration variable (up to 40 bytes) to a value (up to 20 bytes)
  config persist PAD VARIABLE
                          has the pad keep a variable's value
  config state PAD        how far a pad is with applying its configuration
  button input PAD        the button that the user pressed last in mode user-input
  button event PAD MODE   the last button event of a mode
  button set PAD MODE BUTTON FIRST SECOND
                          sets the state of a button, two numbers of 32 bits
  button refresh PAD MODE has the pad show the buttons of a mode anew

Options:
  --json             list, info, ssp components, ssp modes, ssp description, ssp connection, config state,
                     button input, button event: JSON instead of text
  --interface K      feature, report, ssp send, ssp receive, monitor, record: interface of the pad, counted from 0
                     (default 0)
  --length BYTES     feature get: size of the report (default: a full report)
  --reply            feature set, ssp send: then waits for the pad's answer
  --fill             feature set, report write: zeros up to a full report
  --wait MS          report read: how long to wait for each report, 0 takes what is there (default 1000)
  --timeout MS       ssp send --reply, ssp receive: how long to wait for each message (default 1000)
  --count C          report read, ssp receive: number of reports or messages (default 1)
                     monitor, record: ends after so many packets
  --seconds S        monitor, record: ends after so long (by itself neither ends before Ctrl-C)
  -o FILE            record, plot: where the result goes; - is the standard output
  --layout LAYOUT    monitor, replay, plot: where the numbers are in a packet; @FILE reads it from a file
  --layout-file FILE the same as --layout @FILE
  --speed X          replay: so many times as fast, 0.001 to 1000
  --fast             replay: without any pause
  --pad N            replay: the emulator's number of the virtual pad, its place among --pad and --vcom
  --interfaces MASK  upload: bit K stands for interface K, 0x3 for the first two (default: all)
  --pen-data         ssp receive: switches pen data on and off again, and waits for the pad's records
  --component COMPONENT, --message ID
                     ssp send: where the message goes, and its message id
  --trace            the library's own account of everything it does, on standard error
  --help, --version
  --                 what follows is no option

HEX is one or more bytes of two digits each: 1f 00 2a, 1f002a or 1f:00:2a. Reports are given and shown without the
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
}

namespace {

constexpr unsigned int longest_report = 4096;
constexpr unsigned int longest_message = 3 + 0x10000; // component id and size, payload
constexpr unsigned int longest_data = 0xffff;         // of a payload, behind its message id
constexpr std::size_t longest_variable = 40;
constexpr std::size_t longest_value = 20;
constexpr unsigned int longest_wait = 86'400'000;
constexpr double least_decimal = 0.001;
constexpr double most_speed = 1000;

std::string quoted(std::string_view text) {
    return "'" + std::string(text) + "'";
}

std::optional<unsigned int> number_in(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = text.substr(hexadecimal ? 2 : 0);
    unsigned int number = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), number, hexadecimal ? 16 : 10);
    if (error != std::errc{} || end != digits.data() + digits.size()) {
        return std::nullopt;
    }
    return number;
}

unsigned int parse_number(std::string_view what, std::string_view text, unsigned int least, unsigned int most) {
    const auto number = number_in(text);
    if (!number || *number < least || *number > most) {
        throw UsageError(std::string(what) + " takes a number from " + std::to_string(least) + " to " +
                         std::to_string(most) + ", not " + quoted(text));
    }
    return *number;
}

// Above 0, with or without a fraction.
double parse_decimal(std::string_view what, std::string_view text, double most) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    if (error != std::errc{} || end != text.data() + text.size() || !(number >= least_decimal && number <= most)) {
        throw UsageError(std::string(what) + " takes a number from " + decimal(least_decimal, 3) + " to " +
                         decimal(most, 0) + ", not " + quoted(text));
    }
    return number;
}

// A name, or the number for which it stands where only these numbers will do.
unsigned int parse_name(std::string_view what, std::string_view text, Names names) {
    if (const auto value = value_of(names, text)) {
        return *value;
    }
    const auto number = number_in(text);
    if (!number || name_of(names, *number).empty()) {
        throw UsageError(std::string(what) + " is " + list_names(names) + ", not " + quoted(text));
    }
    return *number;
}

ComponentChoice parse_component(std::string_view text) {
    constexpr unsigned int most = 127;
    if (const auto type = value_of(component_types, text)) {
        return {ComponentChoice::By::type, *type};
    }
    const auto id = number_in(text);
    if (!id || *id > most) {
        throw UsageError("--component takes " + list_names(component_types) + ", or an id from 0 to " +
                         std::to_string(most) + ", not " + quoted(text));
    }
    return {ComponentChoice::By::id, *id};
}

// The words behind a command's name, taken one by one.
class Operands {
  public:
    Operands(std::string command, std::span<const std::string_view> words)
        : command_{std::move(command)}, words_{words} {}

    bool empty() const { return words_.empty(); }

    std::string_view next(std::string_view what) {
        if (words_.empty()) {
            throw UsageError(quoted(command_) + " needs " + std::string(what));
        }
        const std::string_view word = words_.front();
        words_ = words_.subspan(1);
        return word;
    }

    bool skip(std::string_view word) {
        const bool found = !words_.empty() && words_.front() == word;
        if (found) {
            words_ = words_.subspan(1);
        }
        return found;
    }

    void expect_end() const {
        if (!words_.empty()) {
            throw UsageError(quoted(command_) + " cannot make sense of " + quoted(words_.front()));
        }
    }

  private:
    std::string command_;
    std::span<const std::string_view> words_;
};

void take_pad(Operands& operands, Arguments& arguments) {
    arguments.pad = parse_number("PAD", operands.next("the number of a pad (vxpadctl list shows them)"), 1, 255);
}

void take_hex(Operands& operands, Bytes& bytes) {
    try {
        while (!operands.empty()) {
            parse_hex(operands.next("bytes"), bytes);
        }
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
}

void expect_size(const Bytes& bytes, unsigned int least, unsigned int most, std::string_view what) {
    if (bytes.size() < least) {
        throw UsageError("the bytes to send are missing");
    }
    if (bytes.size() > most) {
        throw UsageError(std::string(what) + " at most " + std::to_string(most) + " bytes");
    }
}

void take_report(Operands& operands, Arguments& arguments) {
    take_hex(operands, arguments.bytes);
    expect_size(arguments.bytes, 1, longest_report, "a report has");
}

// A whole message, or what goes to a component behind the message id.
void take_message(Operands& operands, Arguments& arguments) {
    if (arguments.component.has_value() != arguments.message_id.has_value()) {
        throw UsageError("--component and --message go together");
    }
    take_hex(operands, arguments.bytes);
    if (arguments.component) {
        expect_size(arguments.bytes, 0, longest_data, "a message takes");
    } else {
        expect_size(arguments.bytes, 1, longest_message, "a message has");
    }
}

void take_connection(Operands& operands, Arguments& arguments) {
    if (!operands.skip("set")) {
        operands.skip("get");
        return;
    }
    if (arguments.json) {
        throw UsageError("'ssp connection set' has no option --json");
    }
    arguments.connection = parse_number("TYPE", operands.next("a connection type"), 0, 127);
}

std::string text_of(std::string_view what, std::string_view text, std::size_t least, std::size_t most) {
    if (text.size() < least || text.size() > most) {
        throw UsageError(std::string(what) + " has from " + std::to_string(least) + " to " + std::to_string(most) +
                         " bytes, not " + std::to_string(text.size()));
    }
    return std::string(text);
}

void take_variable(Operands& operands, Arguments& arguments) {
    arguments.variable = text_of("VARIABLE", operands.next("the name of a variable"), 1, longest_variable);
}

void take_value(Operands& operands, Arguments& arguments) {
    arguments.value = text_of("VALUE", operands.next("a value"), 0, longest_value);
}

void take_mode(Operands& operands, Arguments& arguments) {
    arguments.mode = parse_name("MODE", operands.next("a mode: " + list_names(button_modes)), button_modes);
}

void take_button(Operands& operands, Arguments& arguments) {
    arguments.button = parse_name("BUTTON", operands.next("a button: " + list_names(buttons)), buttons);
}

void take_button_state(Operands& operands, Arguments& arguments) {
    for (std::uint32_t& value : arguments.button_state) {
        value = parse_number("a button's state", operands.next("two numbers, the button's state"), 0,
                             std::numeric_limits<std::uint32_t>::max());
    }
}

void take_file(Operands& operands, Arguments& arguments) {
    arguments.file = operands.next("a file");
}

void expect_output(Operands&, Arguments& arguments) {
    if (arguments.output.empty()) {
        throw UsageError("-o FILE is missing, where the result goes (- is the standard output)");
    }
}

void expect_layout(Operands&, Arguments& arguments) {
    if (arguments.layout.empty() && arguments.layout_file.empty()) {
        throw UsageError("--layout is missing: where x and y are in a packet");
    }
}

void take_layout(Arguments& arguments, std::string_view text) {
    try {
        if (text.starts_with('@')) {
            arguments.layout_file = text.substr(1);
        } else {
            arguments.layout = parse_layout(text);
        }
    } catch (const std::invalid_argument& error) {
        throw UsageError(std::string("--layout ") + error.what());
    }
}

using Take = void (*)(Operands& operands, Arguments& arguments);

struct CommandWords {
    Command command;
    std::string_view first;
    std::string_view second;
    std::array<Take, 4> operands; // as many as there are
    std::string_view options;
};

constexpr std::array<CommandWords, 24> commands{{
    {Command::list, "list", "", {}, "--json"},
    {Command::info, "info", "", {take_pad}, "--json"},
    {Command::feature_get, "feature", "get", {take_pad}, "--interface --length"},
    {Command::feature_set, "feature", "set", {take_pad, take_report}, "--interface --fill --reply"},
    {Command::report_read, "report", "read", {take_pad}, "--interface --wait --count"},
    {Command::report_write, "report", "write", {take_pad, take_report}, "--interface --fill"},
    {Command::ssp_send, "ssp", "send", {take_pad, take_message}, "--interface --component --message --reply --timeout"},
    {Command::ssp_receive, "ssp", "receive", {take_pad}, "--interface --timeout --count --pen-data"},
    {Command::ssp_components, "ssp", "components", {take_pad}, "--json"},
    {Command::ssp_modes, "ssp", "modes", {take_pad}, "--json"},
    {Command::ssp_description, "ssp", "description", {take_pad}, "--json"},
    {Command::ssp_connection, "ssp", "connection", {take_pad, take_connection}, "--json"},
    {Command::config_set, "config", "set", {take_pad, take_variable, take_value}, ""},
    {Command::config_persist, "config", "persist", {take_pad, take_variable}, ""},
    {Command::config_state, "config", "state", {take_pad}, "--json"},
    {Command::button_input, "button", "input", {take_pad}, "--json"},
    {Command::button_event, "button", "event", {take_pad, take_mode}, "--json"},
    {Command::button_set, "button", "set", {take_pad, take_mode, take_button, take_button_state}, ""},
    {Command::button_refresh, "button", "refresh", {take_pad, take_mode}, ""},
    {Command::monitor, "monitor", "", {take_pad}, "--interface --seconds --count --layout --layout-file"},
    {Command::record, "record", "", {take_pad, expect_output}, "-o --interface --seconds --count"},
    {Command::replay, "replay", "", {take_file}, "--speed --fast --pad --layout --layout-file"},
    {Command::plot, "plot", "", {take_file, expect_output, expect_layout}, "-o --layout --layout-file"},
    {Command::upload, "upload", "", {take_pad, take_file}, "--interfaces"},
}};

struct Option {
    std::string_view name;
    void (*set)(Arguments& arguments, unsigned int value);
    bool takes_value = false;
    unsigned int least = 0;
    unsigned int most = 0;
    void (*set_text)(Arguments& arguments, std::string_view value) = nullptr; // for a value that is no number
};

constexpr std::array<Option, 20> options{{
    {"--json", [](Arguments& a, unsigned int) { a.json = true; }},
    {"--trace", [](Arguments& a, unsigned int) { a.trace = true; }},
    {"--fill", [](Arguments& a, unsigned int) { a.fill = true; }},
    {"--reply", [](Arguments& a, unsigned int) { a.reply = true; }},
    {"--pen-data", [](Arguments& a, unsigned int) { a.pen_data = true; }},
    {"--interface", [](Arguments& a, unsigned int value) { a.interface = value; }, true, 0, 255},
    {"--length", [](Arguments& a, unsigned int value) { a.length = value; }, true, 1, longest_report},
    {"--wait", [](Arguments& a, unsigned int value) { a.wait = value; }, true, 0, longest_wait},
    {"--timeout", [](Arguments& a, unsigned int value) { a.timeout = value; }, true, 1, longest_wait},
    {"--count", [](Arguments& a, unsigned int value) { a.count = value; }, true, 1, 1'000'000},
    {"--message", [](Arguments& a, unsigned int value) { a.message_id = value; }, true, 0, 255},
    {"--component", nullptr, true, 0, 0,
     [](Arguments& a, std::string_view value) { a.component = parse_component(value); }},
    {"--fast", [](Arguments& a, unsigned int) { a.fast = true; }},
    {"--pad", [](Arguments& a, unsigned int value) { a.virtual_pad = value; }, true, 1, 1000},
    {"--interfaces", [](Arguments& a, unsigned int value) { a.interfaces = value; }, true, 1, 0xffffffff},
    {"--seconds", nullptr, true, 0, 0,
     [](Arguments& a, std::string_view value) { a.seconds = parse_decimal("--seconds", value, most_seconds); }},
    {"--speed", nullptr, true, 0, 0,
     [](Arguments& a, std::string_view value) { a.speed = parse_decimal("--speed", value, most_speed); }},
    {"--layout", nullptr, true, 0, 0, take_layout},
    {"--layout-file", nullptr, true, 0, 0, [](Arguments& a, std::string_view value) { a.layout_file = value; }},
    {"-o", nullptr, true, 0, 0, [](Arguments& a, std::string_view value) { a.output = value; }},
}};

void store(const Option& option, std::string_view value, Arguments& arguments) {
    if (option.set_text != nullptr) {
        option.set_text(arguments, value);
    } else {
        option.set(arguments, option.takes_value ? parse_number(option.name, value, option.least, option.most) : 0);
    }
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
            if (option == options.end() || (!option->takes_value && name != word)) {
                throw UsageError("there is no option " + quoted(word));
            }
            std::string_view value;
            if (option->takes_value) {
                if (name == word && ++i == words.size()) {
                    throw UsageError(std::string(name) + " needs a value");
                }
                value = name == word ? std::string_view(words[i]) : word.substr(name.size() + 1);
            }
            store(*option, value, arguments);
            result.options.push_back(name);
        }
    }
    return result;
}

const CommandWords& find_command(std::span<const std::string_view> words) {
    if (words.empty()) {
        throw UsageError("there is no command");
    }
    for (const CommandWords& command : commands) {
        if (words[0] == command.first && (command.second.empty() || (words.size() > 1 && words[1] == command.second))) {
            return command;
        }
    }
    const bool incomplete = std::ranges::find(commands, words[0], &CommandWords::first) != commands.end();
    if (incomplete && words.size() == 1) {
        throw UsageError(quoted(words[0]) + " needs to be told what to do");
    }
    throw UsageError("there is no command '" + std::string(words[0]) +
                     (incomplete ? std::string(" ").append(words[1]) : std::string()) + "'");
}

// Allowed options are words with blanks in between.
void check_options(std::string_view command, std::string_view allowed, std::span<const std::string_view> given) {
    const std::string words = " --trace " + std::string(allowed) + " ";
    for (const std::string_view name : given) {
        if (words.find(" " + std::string(name) + " ") == std::string::npos) {
            throw UsageError(quoted(command) + " has no option " + std::string(name));
        }
    }
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
    std::string name{command.first};
    if (!command.second.empty()) {
        name.append(" ").append(command.second);
    }
    check_options(name, command.options, given.options);

    Operands operands{name, std::span(given.plain).subspan(command.second.empty() ? 1 : 2)};
    for (const Take take : command.operands) {
        if (take != nullptr) {
            take(operands, arguments);
        }
    }
    operands.expect_end();
    return arguments;
}

} // namespace vxpadctl
