#include "program/options.hpp"

#include "base/text.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace emulator {

const char* help_text() {
    return R"(Usage: vxpad-emulator run [OPTIONS] -- COMMAND [ARGUMENTS...]
       vxpad-emulator serve [--listen ADDRESS[:PORT]] [OPTIONS] [-- COMMAND [ARGUMENTS...]]
       vxpad-emulator attach [OPTIONS] [-- COMMAND [ARGUMENTS...]]

Plugs virtual USB signature pads in.
  run      for COMMAND alone, which sees them through libusb and hidapi as if they were real, without root and without
           a kernel module
  serve    for any kernel, by USB/IP: "usbip list -r HOST" and "usbip attach -r HOST -b 1-1" plug pad 1 in there
  attach   into this machine's own kernel, without a network; needs root and the kernel module vhci-hcd
With a COMMAND the exit status is COMMAND's, or 128 + signal. Without one the pads are there until INT or TERM comes.

Options:
  --pad KEY=VALUE,...   plugs in a HID pad; may be repeated. Without it there is one pad with the defaults:
      type=16             kind of pad: 1, 8 to 13, 15 to 17
      vendor=, id=        USB ids in hexadecimal; default: the first ones of the type
      interfaces=2        HID interfaces, 1 to 255
      maker=, product=, serial=
                          texts in UTF-8, at most 126 UTF-16 units; \, is a comma, \\ a backslash, \uXXXX any
                          UTF-16 unit; an empty one means that the pad has no such string
      version=1.2.3.4:VPAD  firmware version and its manufacturer
      mode-delay=0        status replies that still show the old mode after a mode was set
      unknown=refuse      unknown commands are answered with status 5; loop-back: what was written can be read back
      ssp=yes             the pad speaks SSP; default: of types 15 to 17 yes, else no
      components=5:11:3:1 component types, as the pad lists them; their places are their ids
      modes=0:5:6:13      types of the signpad's modes, likewise
      conf-busy=0         state queries that find a changed configuration still being applied
      conf-fail=no        yes: a changed configuration fails
      set-connection=silent  answered: setting the connection type is answered
      connection=0        connection type
      pen=follow          plays a signature as pen data while the program has it switched on; loop: always, also as
                          input reports of a HID pad; off: only on request
      pen-rate=100        packets of pen data in a second; 0: only on request
      pen-size=64         bytes in a record of pen data, 1 to 64
      pen-interface=0     interface of a HID pad on which pen data comes as input reports
      signature=FILE      what the pen writes: a line for each point, x y pressure; an empty line lifts the pen
      told-vendor=, told-id=, told-serial=
                          ids in hexadecimal and serial number in the pad's description; default: the pad's own
  --vcom KEY=VALUE,...  plugs in a VCOM pad, which has bulk endpoints for its SSP stream; the same keys but interfaces
                        and ssp. On the bus it has ids of VCOM pads, in its description those of its type; unknown
                        commands are looped back. One more key:
      named=no            yes: bus ids of the chip vendor whose devices are pads only by their maker's name
  --fault N:FAULT       makes transfers of pad N (1 is the first) go wrong; may be repeated
  --listen ADDRESS[:PORT]  where serve waits for kernels: an IPv4 or IPv6 address (with a port: [ADDRESS]:PORT); default:
                        127.0.0.1:3240; port 0: any free one. Whoever can connect can use the pads
  --vhci DIRECTORY      where attach finds the ports of vhci-hcd; default: /sys/devices/platform/vhci_hcd.0
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
  TRANSFER is get-feature, set-feature, input, bulk-in, bulk-out, bulk (both), string, descriptor or any (the default).
Faults of messages that the pad puts into its stream, on=ssp (replies, the default) or on=pen (pen data):
  split=BYTES           comes in pieces of at most so many bytes, each in a packet or report of its own
  merge                 waits and comes in one piece with the next bytes
  delay-reply=MILLISECONDS  comes late; later messages may overtake it
  twice                 comes a second time
  drop                  does not come
  wrong-component       component id is one too high; what is no base message looks like one
  wrong-result          result is one too high; of a carried report the second byte
  noise=BYTES[,seed=S]  so many random bytes before its token
  cut=BYTES             its part of the stream is cut off after so many bytes
  replace=HEX           another message comes instead
  junk[,seed=S]         from here on, until the pad is unplugged, only random bytes without a token come

The environment variable VXPAD_EMULATOR_CONTROL tells COMMAND the path of the control socket, VXPAD_EMULATOR_USBIP the
address and port of serve; without a COMMAND both are printed. A request is a line; an empty line ends the reply, which
begins with "ok" or "error":
  list                  the pads, a line each
  plug N, unplug N      puts a pad in, pulls it out; of serve: it can be imported again, its connection ends
  fault N FAULT         adds a fault
  clear-faults N        removes all faults of a pad
  input N INTERFACE HEX [COUNT]
                        queues an input report, COUNT times
  log N                 the reports that crossed the bus since the last time: direction, kind, interface, bytes
  state N               mode, signature rectangle and counters
  ssp N                 pen data on or off, last mode command, connection type, configuration variables and counters
  button N VALUE        the user has pressed a button
  pen N HEX             sends a record of pen data, also while it is off
  send N HEX            puts bytes into the pad's stream as they are
  play N [COUNT|once|loop] [RATE]
                        plays the signature now: so many packets, once (the default) or until it is stopped; as input
                        reports of a HID pad, as records in the stream of a VCOM pad
  stop N                ends the playing
  replay N FILE         plays a recording in the same way
  uploads N             what has been written that is no command: reports, gaps and duplicates in their numbers, checksum
  reset-uploads N       counts them from zero

Examples:
  vxpad-emulator run --pad type=11,serial=A1 --pad type=1,interfaces=1 --fault 1:stall,on=get-feature,count=2 -- lsusb
  vxpad-emulator run --vcom type=16,conf-busy=2 --fault 1:split=1 -- my-program
  vxpad-emulator serve --listen 192.0.2.7 --pad type=16 --vcom type=17
)";
}

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

} // namespace

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
    static constexpr std::array<std::pair<std::string_view, Verb>, 3> verbs{
        {{"run", Verb::run}, {"serve", Verb::serve}, {"attach", Verb::attach}}};
    const auto* known = std::ranges::find(verbs, verb, &std::pair<std::string_view, Verb>::first);
    if (known == verbs.end()) {
        throw std::invalid_argument("unknown command '" + std::string{verb} + "'");
    }
    options.verb = known->second;

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
        if (name == "--verbose") {
            options.verbose = true;
            continue;
        }
        std::optional<std::string_view> value;
        if (const auto equals = name.find('='); equals != std::string_view::npos) {
            value = name.substr(equals + 1);
            name = name.substr(0, equals);
        }
        const bool listens = name == "--listen" && options.verb == Verb::serve;
        const bool attaches = name == "--vhci" && options.verb == Verb::attach;
        if (name != "--pad" && name != "--vcom" && name != "--fault" && name != "--control" && !listens && !attaches) {
            throw std::invalid_argument("unknown option '" + std::string{name} + "'");
        }
        if (!value) {
            if (++next == arguments.size()) {
                throw std::invalid_argument(std::string{name} + " needs a value");
            }
            value = arguments[next];
        }
        try {
            if (name == "--pad" || name == "--vcom") {
                options.pads.push_back(parse_pad_settings(*value, static_cast<unsigned int>(options.pads.size() + 1),
                                                          name == "--vcom" ? PadKind::vcom : PadKind::hid));
            } else if (name == "--fault") {
                options.faults.push_back(numbered_fault(*value));
            } else if (listens) {
                options.listen = parse_tcp_address(*value);
            } else if (attaches) {
                options.vhci_directory = *value;
            } else {
                options.control_path = *value;
            }
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(std::string{name} + " " + std::string{*value} + ": " + error.what());
        }
    }
    for (; next < arguments.size(); ++next) {
        options.command.emplace_back(arguments[next]);
    }
    if (options.command.empty() && options.verb == Verb::run) {
        throw std::invalid_argument("there is no COMMAND to run");
    }
    if (options.pads.empty()) {
        options.pads.push_back(parse_pad_settings("", 1));
    }
    for (const auto& [number, fault] : options.faults) {
        if (number > options.pads.size()) {
            throw std::invalid_argument("there is no pad " + std::to_string(number) + " for the fault");
        }
    }
    return options;
}

} // namespace emulator
