#include "options.hpp"

#include "text.hpp"

#include <optional>
#include <string_view>

namespace emulator {

const char* help_text() {
    return R"(Usage: vxpad-emulator run [OPTIONS] -- COMMAND [ARGUMENTS...]

Runs COMMAND with virtual USB signature pads plugged in. COMMAND sees them through libusb and hidapi as if they
were real, without root and without a kernel module. Exits with COMMAND's exit status, or 128 + signal.

Options:
  --pad KEY=VALUE,...   plugs in a pad; may be repeated. Without it there is one pad with the defaults:
      type=16             kind of pad: 1, 8 to 13, 15 to 17
      vendor=, id=        USB ids in hexadecimal; default: the first ones of the type
      interfaces=2        HID interfaces, 1 to 255
      maker=, product=, serial=
                          texts in UTF-8, at most 126 UTF-16 units; \, is a comma, \\ a backslash, \uXXXX any
                          UTF-16 unit; an empty one means that the pad has no such string
      version=1.2.3.4:VPAD  firmware version and its manufacturer
      mode-delay=0        status replies that still show the old mode after a mode was set
      unknown=refuse      unknown commands are answered with status 5; loop-back: what was written can be read back
  --fault N:FAULT       makes transfers of pad N (1 is the first) go wrong; may be repeated
  --control PATH        where the control socket is; default: in a private directory
  --verbose             traces all transfers to standard error
  --help                shows this text

Faults: KIND[=VALUE][,on=TRANSFER][,count=HOW_OFTEN][,after=LET_THROUGH_FIRST]
  stall                 the pad refuses the transfer
  silence               the pad never answers
  garbage[,seed=S]      random bytes
  short=BYTES           cut off after so many bytes
  delay=MILLISECONDS    comes late
  wrong-command         first byte is one too high
  status=CODE           second byte is CODE
  unplug                the pad is pulled out
  TRANSFER is get-feature, set-feature, input, string, descriptor or any (the default).

The environment variable VXPAD_EMULATOR_CONTROL tells COMMAND the path of the control socket. A request is a line; an
empty line ends the reply, which begins with "ok" or "error":
  list                  the pads, a line each
  plug N, unplug N      puts a pad in, pulls it out
  fault N FAULT         adds a fault
  clear-faults N        removes all faults of a pad
  input N INTERFACE HEX [COUNT]
                        queues an input report, COUNT times
  log N                 the reports that crossed the bus since the last time: direction, kind, interface, bytes
  state N               mode, signature rectangle and counters

Example:
  vxpad-emulator run --pad type=11,serial=A1 --pad type=1,interfaces=1 --fault 1:stall,on=get-feature,count=2 -- lsusb
)";
}

namespace {

// "N:FAULT"
std::pair<unsigned, Fault> numbered_fault(std::string_view text) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos)
        throw std::invalid_argument("a fault is given as N:FAULT");
    const auto number = parse_number(text.substr(0, colon), 10, 1, 1000);
    return {static_cast<unsigned>(number), parse_fault(text.substr(colon + 1))};
}

} // namespace

Options parse_options(std::span<char* const> arguments) {
    Options options;
    if (arguments.empty())
        throw std::invalid_argument("nothing to do");
    const std::string_view verb = arguments.front();
    if (verb == "--help" || verb == "-h" || verb == "help") {
        options.help = true;
        return options;
    }
    if (verb != "run")
        throw std::invalid_argument("unknown command '" + std::string(verb) + "'");

    std::size_t next = 1;
    for (; next < arguments.size() && std::string_view(arguments[next]).starts_with("-"); ++next) {
        std::string_view name = arguments[next];
        if (name == "--") {
            ++next;
            break;
        }
        if (name == "--help" || name == "-h") {
            options.help = true;
            return options;
        }
        if (name == "--verbose") {
            options.verbose = true;
            continue;
        }
        std::optional<std::string_view> value;
        if (const auto equals = name.find('='); equals != std::string_view::npos) {
            value = name.substr(equals + 1);
            name = name.substr(0, equals);
        }
        if (name != "--pad" && name != "--fault" && name != "--control")
            throw std::invalid_argument("unknown option '" + std::string(name) + "'");
        if (!value) {
            if (++next == arguments.size())
                throw std::invalid_argument(std::string(name) + " needs a value");
            value = arguments[next];
        }
        try {
            if (name == "--pad")
                options.pads.push_back(parse_pad_settings(*value, unsigned(options.pads.size() + 1)));
            else if (name == "--fault")
                options.faults.push_back(numbered_fault(*value));
            else
                options.control_path = *value;
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(std::string(name) + " " + std::string(*value) + ": " + error.what());
        }
    }
    for (; next < arguments.size(); ++next)
        options.command.emplace_back(arguments[next]);
    if (options.command.empty())
        throw std::invalid_argument("there is no COMMAND to run");
    if (options.pads.empty())
        options.pads.push_back(parse_pad_settings("", 1));
    for (const auto& [number, fault] : options.faults)
        if (number > options.pads.size())
            throw std::invalid_argument("there is no pad " + std::to_string(number) + " for the fault");
    return options;
}

} // namespace emulator
