#include "program/options.hpp"

#include "base/text.hpp"
#include "pad/added_ids.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace emulator {

namespace {

// "N:FAULT"
std::pair<unsigned int, Fault> numbered_fault(std::string_view text) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos) {
        throw std::invalid_argument("a fault is given as N:FAULT");
    }
    const auto number = parse_count(text.substr(0, colon), 1, 1000);
    return {number, parse_fault(text.substr(colon + 1))};
}

void add_pad(Options& options, std::string_view value, PadKind kind) {
    options.pads.push_back(
        parse_pad_settings(value, static_cast<unsigned int>(options.pads.size() + 1), kind, options.added_ids));
}

constexpr std::array<VerbRow, 3> verbs{{
    {"run", Verb::run, "run [OPTIONS] -- COMMAND [ARGUMENTS...]",
     "for COMMAND alone, which sees them through libusb and hidapi as if they were real, without root and without a "
     "kernel module"},
    {"serve", Verb::serve, "serve [--listen ADDRESS[:PORT]] [OPTIONS] [-- COMMAND [ARGUMENTS...]]",
     "for any kernel, by USB/IP: \"usbip list -r HOST\" and \"usbip attach -r HOST -b 1-1\" plug pad 1 in there"},
    {"attach", Verb::attach, "attach [OPTIONS] [-- COMMAND [ARGUMENTS...]]",
     "into this machine's own kernel, without a network; needs root and the kernel module vhci-hcd"},
}};

constexpr std::array<OptionRow, 8> option_rows{{
    {"--pad", "KEY=VALUE,...", "plugs in a HID pad; may be repeated. Without it there is one pad with the defaults",
     [](Options& options, std::string_view value) { add_pad(options, value, PadKind::hid); }},
    {"--vcom", "KEY=VALUE,...",
     "plugs in a VCOM pad, which has bulk endpoints for its SSP stream. On the bus it has ids of VCOM pads, in its "
     "description those of its type",
     [](Options& options, std::string_view value) { add_pad(options, value, PadKind::vcom); }},
    {"--ids", "FILE",
     "a file or folder of USB ids in place of the usual ones, for the pads and for COMMAND (VXPADCOM_IDS): a pad that "
     "is given a line's vendor and id is of that line's type",
     [](Options& options, std::string_view value) {
         options.ids_path = std::filesystem::absolute(value);
         options.added_ids = read_added_ids(options.ids_path).ids;
     }},
    {"--fault", "N:FAULT", "makes transfers of pad N (1 is the first) go wrong; may be repeated",
     [](Options& options, std::string_view value) { options.faults.push_back(numbered_fault(value)); }},
    {"--listen", "ADDRESS[:PORT]",
     "where serve waits for kernels: an IPv4 or IPv6 address (with a port: [ADDRESS]:PORT); default: 127.0.0.1:3240; "
     "port 0: any free one. Whoever can connect can use the pads",
     [](Options& options, std::string_view value) { options.listen = parse_tcp_address(value); }, Verb::serve},
    {"--vhci", "DIRECTORY", "where attach finds the ports of vhci-hcd; default: /sys/devices/platform/vhci_hcd.0",
     [](Options& options, std::string_view value) { options.vhci_directory = value; }, Verb::attach},
    {"--control", "PATH", "where the control socket is; default: in a private directory",
     [](Options& options, std::string_view value) { options.control_path = value; }},
    {"--verbose", "", "traces all transfers to standard error",
     [](Options& options, std::string_view) { options.verbose = true; }},
}};

struct GivenOption {
    const OptionRow* row;
    std::optional<std::string_view> value;
};

// What pads are may depend on the ids, which may be given behind them.
void set_in_order(Options& options, std::vector<GivenOption>& given) {
    const auto tells_ids = [](const GivenOption& option) { return option.row->name == "--ids"; };
    if (std::ranges::none_of(given, tells_ids)) {
        options.added_ids = read_added_ids().ids;
    }
    std::stable_partition(given.begin(), given.end(), tells_ids);
    for (const GivenOption& option : given) {
        const std::string_view value = option.value.value_or("");
        try {
            option.row->set(options, value);
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(std::string{option.row->name} + " " + std::string{value} + ": " + error.what());
        }
    }
}

} // namespace

std::span<const VerbRow> all_verbs() {
    return verbs;
}

std::span<const OptionRow> all_options() {
    return option_rows;
}

Options parse_options(std::span<char* const> arguments) {
    Options options;
    if (arguments.empty()) {
        throw std::invalid_argument("nothing to do");
    }
    const std::string_view verb = arguments.front();
    if (verb == "--help" || verb == "-h" || verb == "help") {
        options.help = true;
        return options;
    }
    if (verb == "--version") {
        options.version = true;
        return options;
    }
    const auto* known = std::ranges::find(verbs, verb, &VerbRow::name);
    if (known == verbs.end()) {
        throw std::invalid_argument("unknown command '" + std::string{verb} + "'");
    }
    options.verb = known->verb;

    std::vector<GivenOption> given;
    std::size_t next = 1;
    for (; next < arguments.size() && std::string_view{arguments[next]}.starts_with("-"); ++next) {
        std::string_view name = arguments[next];
        if (name == "--") {
            ++next;
            break;
        }
        if (name == "--help" || name == "-h") {
            options.help = true;
            return options;
        }
        std::optional<std::string_view> value;
        if (const auto equals = name.find('='); equals != std::string_view::npos) {
            value = name.substr(equals + 1);
            name = name.substr(0, equals);
        }
        const auto* option = std::ranges::find(option_rows, name, &OptionRow::name);
        if (option == option_rows.end() || option->verb.value_or(options.verb) != options.verb ||
            (option->value.empty() && value)) {
            throw std::invalid_argument("unknown option '" + std::string{name} + "'");
        }
        if (!option->value.empty() && !value) {
            if (++next == arguments.size()) {
                throw std::invalid_argument(std::string{name} + " needs a value");
            }
            value = arguments[next];
        }
        given.push_back({option, value});
    }
    set_in_order(options, given);
    if (options.pads.empty()) {
        add_pad(options, "", PadKind::hid);
    }
    for (; next < arguments.size(); ++next) {
        options.command.emplace_back(arguments[next]);
    }
    if (options.command.empty() && options.verb == Verb::run) {
        throw std::invalid_argument("there is no COMMAND to run");
    }
    for (const auto& [number, fault] : options.faults) {
        if (number > options.pads.size()) {
            throw std::invalid_argument("there is no pad " + std::to_string(number) + " for the fault");
        }
    }
    return options;
}

} // namespace emulator
