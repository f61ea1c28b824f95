#include "options.hpp"

#include "layout.hpp"
#include "library.hpp"
#include "values.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

namespace vxpadctl {

namespace {

constexpr unsigned int longest_wait = 86'400'000;
constexpr double most_speed = 1000;

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

constexpr std::array<Option, 25> options{{
    {.name = "--json",
     .value = "",
     .help = "{}: JSON instead of text",
     .set = [](Arguments& a, unsigned int) { a.json = true; }},
    {.name = "--interface",
     .value = "K",
     .help = "{}: interface of the pad, counted from 0\n"
             "(default 0)",
     .set = [](Arguments& a, unsigned int value) { a.interface = value; },
     .takes_value = true,
     .least = 0,
     .most = 255},
    {.name = "--length",
     .value = "BYTES",
     .help = "{}: size of the report (default: a full report)",
     .set = [](Arguments& a, unsigned int value) { a.length = value; },
     .takes_value = true,
     .least = 1,
     .most = longest_report},
    {.name = "--reply",
     .value = "",
     .help = "{}: then waits for the pad's answer",
     .set = [](Arguments& a, unsigned int) { a.reply = true; }},
    {.name = "--fill",
     .value = "",
     .help = "{}: zeros up to a full report",
     .set = [](Arguments& a, unsigned int) { a.fill = true; }},
    {.name = "--wait",
     .value = "MS",
     .help = "{}: how long to wait for each report, 0 takes what is there (default 1000)",
     .set = [](Arguments& a, unsigned int value) { a.wait = value; },
     .takes_value = true,
     .least = 0,
     .most = longest_wait},
    {.name = "--timeout",
     .value = "MS",
     .help = "ssp send --reply, ssp receive: how long to wait for each message (default 1000)",
     .set = [](Arguments& a, unsigned int value) { a.timeout = value; },
     .takes_value = true,
     .least = 1,
     .most = longest_wait},
    {.name = "--count",
     .value = "C",
     .help = "report read, ssp receive: number of reports or messages (default 1)\n"
             "monitor, record: ends after so many packets",
     .set = [](Arguments& a, unsigned int value) { a.count = value; },
     .takes_value = true,
     .least = 1,
     .most = 1'000'000},
    {.name = "--seconds",
     .value = "S",
     .help = "{}: ends after so long, else at Ctrl-C",
     .takes_value = true,
     .set_text = [](Arguments& a,
                    std::string_view value) { a.seconds = parse_decimal("--seconds", value, most_seconds); }},
    {.name = "-o",
     .value = "FILE",
     .help = "{}: where the result goes; - is the standard output",
     .takes_value = true,
     .set_text = [](Arguments& a, std::string_view value) { a.output = value; }},
    {.name = "--format",
     .value = "FORMAT",
     .help = "plot: svg, png or pdf; export: csv, json or inkml (default: as the name of the result ends)",
     .takes_value = true,
     .set_text = [](Arguments& a, std::string_view value) { a.format = value; }},
    {.name = "--layout",
     .value = "LAYOUT",
     .help = "{}: where the numbers are in a packet;\n"
             "@FILE reads it from a file",
     .takes_value = true,
     .set_text = take_layout},
    {.name = "--layout-file",
     .value = "FILE",
     .help = "the same as --layout @FILE",
     .takes_value = true,
     .set_text = [](Arguments& a, std::string_view value) { a.layout_file = value; }},
    {.name = "--speed",
     .value = "X",
     .help = "{}: so many times as fast, 0.001 to 1000",
     .takes_value = true,
     .set_text = [](Arguments& a, std::string_view value) { a.speed = parse_decimal("--speed", value, most_speed); }},
    {.name = "--fast",
     .value = "",
     .help = "{}: without any pause",
     .set = [](Arguments& a, unsigned int) { a.fast = true; }},
    {.name = "--pad",
     .value = "N",
     .help = "{}: the emulator's number of the virtual pad, its place among --pad and --vcom",
     .set = [](Arguments& a, unsigned int value) { a.virtual_pad = value; },
     .takes_value = true,
     .least = 1,
     .most = 1000},
    {.name = "--interfaces",
     .value = "MASK",
     .help = "{}: bit K stands for interface K, 0x3 for the first two (default: all)",
     .set = [](Arguments& a, unsigned int value) { a.interface_mask = value; },
     .takes_value = true,
     .least = 1,
     .most = 0xffffffff},
    {.name = "--pen-data",
     .value = "",
     .help = "{}: switches pen data on and off again, and waits for the pad's records",
     .set = [](Arguments& a, unsigned int) { a.pen_data = true; }},
    {.name = "--component",
     .value = "COMPONENT",
     .help = "{}: where the message goes",
     .takes_value = true,
     .set_text = [](Arguments& a, std::string_view value) { a.component = parse_component("--component", value); }},
    {.name = "--message",
     .value = "ID",
     .help = "{}: the message's id, 0 to 255",
     .set = [](Arguments& a, unsigned int value) { a.message_id = value; },
     .takes_value = true,
     .least = 0,
     .most = 255},
    {.name = "--transport",
     .value = "hid|vcom",
     .help = "{}: how the pad is reached",
     .takes_value = true,
     .set_text = [](Arguments& a, std::string_view value) { a.new_transport = value; }},
    {.name = "--type",
     .value = "TYPE",
     .help = "{}: kind of pad: 1, 8 to 13, 15 to 17",
     .takes_value = true,
     .set_text = [](Arguments& a, std::string_view value) { a.new_type = value; }},
    {.name = "--name",
     .value = "NAME",
     .help = "{}: for people, up to 63 bytes",
     .takes_value = true,
     .set_text = [](Arguments& a, std::string_view value) { a.new_name = value; }},
    {.name = "--bundle",
     .value = "FILE",
     .help = "{}: writes all of it into a text file for those who help, with serial numbers and users masked",
     .takes_value = true,
     .set_text = [](Arguments& a, std::string_view value) { a.bundle = value; }},
    {.name = "--trace",
     .value = "",
     .help = "the library's own account of everything it does, on standard error",
     .set = [](Arguments& a, unsigned int) { a.trace = true; }},
}};

} // namespace

std::span<const Option> all_options() {
    return options;
}

const Option* find_option(std::string_view name) {
    const auto found = std::ranges::find(options, name, &Option::name);
    return found == options.end() ? nullptr : &*found;
}

void store_option(const Option& option, std::string_view value, Arguments& arguments) {
    if (option.set_text != nullptr) {
        option.set_text(arguments, value);
    } else {
        option.set(arguments, option.takes_value ? parse_number(option.name, value, option.least, option.most) : 0);
    }
}

} // namespace vxpadctl
