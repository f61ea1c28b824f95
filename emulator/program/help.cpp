#include "program/help.hpp"

#include "control/requests.hpp"
#include "pad/faults.hpp"
#include "pad/pad_settings.hpp"
#include "program/options.hpp"

#include <array>
#include <cstddef>
#include <utility>
#include <vector>

namespace emulator {

namespace {

using manual::Block;
using manual::Entry;
using Kind = manual::Value::Kind;

const std::array<Entry, 3> environment{{
    {"VXPAD_EMULATOR_CONTROL", "path of the control socket, for COMMAND; without a COMMAND it is printed"},
    {"VXPAD_EMULATOR_USBIP", "address and port of serve, likewise"},
    {"LD_PRELOAD", "run puts its libraries in front of what COMMAND is to have preloaded"},
}};

const std::array<Entry, 5> exit_status{{
    {"N", "that of COMMAND, or 128 + signal; 0 without one"},
    {"1", "the help could not be written"},
    {"2", "wrong options"},
    {"125", "trouble of its own"},
    {"126, 127", "COMMAND cannot be run, there is none"},
}};

std::string listed(const std::vector<std::string_view>& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        text.append(i == 0 ? "" : i + 1 == names.size() ? " or " : ", ").append(names[i]);
    }
    return text;
}

Block verb_entries() {
    Block block;
    for (const auto& verb : all_verbs()) {
        block.entries.push_back({std::string(verb.name), std::string(verb.does)});
    }
    return block;
}

Block option_entries() {
    Block block;
    for (const auto& option : all_options()) {
        block.entries.push_back(
            {std::string(option.name) + (option.value.empty() ? "" : " ") + std::string(option.value),
             std::string(option.help)});
    }
    block.entries.push_back({"--help", "shows this text"});
    block.entries.push_back(
        {"--version", "shows the versions of this program and of the libraries that pads are reached through"});
    return block;
}

Block key_entries() {
    Block block;
    for (const auto& key : pad_keys()) {
        block.entries.push_back({std::string(key.name) + "=" + std::string(key.usual), std::string(key.help)});
    }
    return block;
}

Block fault_entries(bool of_messages) {
    Block block;
    for (const auto& fault : fault_usages(of_messages)) {
        block.entries.push_back({std::string(fault.name) + std::string(fault.parameters), std::string(fault.does)});
    }
    return block;
}

Block request_entries() {
    Block block;
    for (const auto& request : all_requests()) {
        block.entries.push_back({std::string(request.usage), std::string(request.does)});
    }
    return block;
}

manual::Value fault_value(Kind kind) {
    manual::Value value{.kind = kind};
    for (const bool of_messages : {false, true}) {
        for (const auto& fault : fault_usages(of_messages)) {
            const bool takes_value = fault.parameters.starts_with('=');
            value.words.push_back(std::string(fault.name) + (takes_value ? "=" : ""));
        }
    }
    for (const auto key : fault_keys()) {
        value.words.push_back(std::string(key) + "=");
    }
    return value;
}

manual::Value completed_value(std::string_view name) {
    manual::Value value;
    if (name == "KEY=VALUE,...") {
        value.kind = Kind::keys;
        for (const auto& key : pad_keys()) {
            value.words.push_back(std::string(key.name) + "=");
        }
    } else if (name == "N:FAULT") {
        value = fault_value(Kind::faults);
    } else if (name == "FAULT") {
        value = fault_value(Kind::keys);
    } else if (name == "DIRECTORY") {
        value.kind = Kind::directories;
    } else if (name == "PATH" || name == "FILE") {
        value.kind = Kind::files;
    } else if (name.starts_with("[COUNT|")) {
        value = {Kind::words, {"once", "loop"}};
    }
    return value;
}

const char* const see_also = "vxpadctl(1), vxpadcom-recording(5), vxpadcom-ids(5), libvxpadcom(7)";

} // namespace

manual::Page manual_page() {
    manual::Page page{"vxpad-emulator", '1', "plugs virtual USB signature pads in", {}, {}};
    for (const auto& verb : all_verbs()) {
        page.usages.push_back("vxpad-emulator " + std::string(verb.usage));
    }
    page.sections.push_back(
        {"",
         {{.text = "Plugs virtual USB signature pads in."},
          verb_entries(),
          {.text = "With a COMMAND the exit status is COMMAND's, or 128 + signal. Without one the pads are there until "
                   "INT or TERM comes."}}});
    page.sections.push_back({"Options", {option_entries()}});
    page.sections.push_back({"Keys of --pad and --vcom, with their defaults", {key_entries()}});
    page.sections.push_back(
        {"Faults",
         {{.text = "KIND[=VALUE][,on=TRANSFER][,count=HOW_OFTEN][,after=LET_THROUGH_FIRST], where TRANSFER is " +
                   listed(fault_targets(false)) + ". That is the default, and bulk is both."},
          fault_entries(false)}});
    page.sections.push_back({"Faults of messages that the pad puts into its stream",
                             {{.text = "on=ssp (replies, the default) or on=pen (pen data)"}, fault_entries(true)}});
    page.sections.push_back(
        {"Requests on the control socket",
         {{.text = "A request is a line; an empty line ends the reply, which begins with \"ok\" or \"error\". "
                   "vxpad-emulator-control sends one."},
          request_entries()}});
    page.sections.push_back({"Environment", {{.entries = {environment.begin(), environment.end()}}}});
    page.sections.push_back({"Exit status", {{.entries = {exit_status.begin(), exit_status.end()}}}, true});
    page.sections.push_back(
        {"Examples",
         {{.lines = {"vxpad-emulator run --pad type=11,serial=A1 --fault 1:stall,on=get-feature,count=2 -- lsusb",
                     "vxpad-emulator run --vcom type=16,conf-busy=2 --fault 1:split=1 -- my-program",
                     "vxpad-emulator serve --listen 192.0.2.7 --pad type=16 --vcom type=17"}}}});
    page.sections.push_back({"See also", {{.text = std::string("vxpad-emulator-control(1), ") + see_also}}, true});
    return page;
}

manual::Page manual_page_of_control() {
    manual::Page page{"vxpad-emulator-control",
                      '1',
                      "asks something of the virtual pads among which it runs",
                      {"vxpad-emulator-control REQUEST..."},
                      {}};
    page.sections.push_back(
        {"",
         {{.text = "Sends a request to the vxpad-emulator(1) under which it runs, or whose control socket "
                   "VXPAD_EMULATOR_CONTROL names, and prints the answer."}}});
    page.sections.push_back({"Requests", {request_entries()}});
    page.sections.push_back({"Exit status",
                             {{.entries = {{"0", "done"},
                                           {"1", "the request was refused, or there is no emulator"},
                                           {"2", "there is no request"}}}}});
    page.sections.push_back({"See also", {{.text = std::string("vxpad-emulator(1), ") + see_also}}});
    return page;
}

std::string help_text() {
    return manual::as_help(manual_page());
}

manual::CompletedProgram completed_words() {
    manual::CompletedProgram program{
        "vxpad-emulator", {{"--help", "shows the help"}, {"--version", "shows versions"}}, {}};
    for (const auto& verb : all_verbs()) {
        manual::CompletedCommand command{std::string(verb.name), std::string(verb.does), {}, {{.kind = Kind::command}}};
        for (const auto& option : all_options()) {
            if (option.verb.value_or(verb.verb) != verb.verb) {
                continue;
            }
            command.options.push_back({std::string(option.name), std::string(option.help)});
            if (!option.value.empty()) {
                command.options.back().value = completed_value(option.value);
            }
        }
        program.commands.push_back(std::move(command));
    }
    return program;
}

manual::CompletedProgram completed_words_of_control() {
    manual::CompletedProgram program{"vxpad-emulator-control", {}, {}};
    for (const auto& request : all_requests()) {
        manual::CompletedCommand command{std::string(request.name), std::string(request.does), {}, {}};
        const auto words = manual::split(request.usage, " ");
        for (std::size_t i = 1; i < words.size(); ++i) {
            command.operands.push_back(completed_value(words[i]));
        }
        program.commands.push_back(std::move(command));
    }
    return program;
}

} // namespace emulator
