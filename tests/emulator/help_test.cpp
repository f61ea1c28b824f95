// Nothing that can be said to the emulator lacks its place in the help, the manual and the shells' completion.
#include "control/requests.hpp"
#include "pad/faults.hpp"
#include "pad/pad_settings.hpp"
#include "program/help.hpp"
#include "program/options.hpp"

#include <algorithm>
#include <gmock/gmock.h>
#include <set>
#include <string>
#include <string_view>
#include <vector>

using namespace emulator;
using testing::HasSubstr;

namespace {

struct Told {
    std::string head;
    std::string text;
};

std::vector<Told> everything() {
    std::vector<Told> told;
    for (const auto& option : all_options()) {
        told.push_back({std::string(option.name) + (option.value.empty() ? "" : " ") + std::string(option.value),
                        std::string(option.help)});
    }
    for (const auto& key : pad_keys()) {
        told.push_back({std::string(key.name) + "=" + std::string(key.usual), std::string(key.help)});
    }
    for (const bool of_messages : {false, true}) {
        for (const auto& fault : fault_usages(of_messages)) {
            told.push_back({std::string(fault.name) + std::string(fault.parameters), std::string(fault.does)});
        }
    }
    for (const auto& request : all_requests()) {
        told.push_back({std::string(request.usage), std::string(request.does)});
    }
    return told;
}

// As troff shows it, without fonts.
std::string plain(const std::string& page) {
    std::string text;
    for (std::size_t i = 0; i < page.size(); ++i) {
        if (page.substr(i, 2) == "\\f") {
            i += 2;
        } else if (page.substr(i, 2) == "\\&" || page.substr(i, 2) == "\\-") {
            text += page[++i] == '-' ? "-" : "";
        } else {
            text += page[i];
        }
    }
    return text;
}

// The first key behind an = that is not known is told with all that are.
std::set<std::string> keys_of_settings() {
    try {
        parse_pad_settings("nonsense=1", 1);
    } catch (const std::invalid_argument& error) {
        const std::string text = error.what();
        const auto names = manual::split(text.substr(text.find("there are ") + 10), ", ");
        return {names.begin(), names.end()};
    }
    return {};
}

} // namespace

TEST(EmulatorHelp, TellsEverything) {
    const auto help = help_text();
    for (const auto& [head, text] : everything()) {
        EXPECT_THAT(help, HasSubstr("\n  " + head + (head.size() > 24 ? "\n" : " ")));
        EXPECT_NE(text, "") << head;
    }
    for (const auto& line : manual::split(help, "\n")) {
        EXPECT_LE(line.size(), 100U) << line;
    }
    for (const auto& verb : all_verbs()) {
        EXPECT_THAT(help, HasSubstr(" vxpad-emulator " + std::string(verb.usage) + "\n"));
        EXPECT_THAT(help, HasSubstr("\n  " + std::string(verb.name) + " "));
    }
}

TEST(EmulatorManual, TellsEverything) {
    const auto page = plain(manual::as_man(manual_page(), "v"));
    for (const auto& each : everything()) {
        EXPECT_THAT(page, HasSubstr("\n.TP\n" + each.head + "\n"));
    }
    const auto control = plain(manual::as_man(manual_page_of_control(), "v"));
    for (const auto& request : all_requests()) {
        EXPECT_THAT(control, HasSubstr("\n.TP\n" + std::string(request.usage) + "\n"));
    }
}

TEST(EmulatorHelp, HasTheKeysThatAreRead) {
    const auto keys = keys_of_settings();
    EXPECT_EQ(keys.size(), pad_keys().size());
    for (const auto& key : pad_keys()) {
        EXPECT_TRUE(keys.contains(std::string(key.name))) << key.name;
    }
}

// What is told as usual is what a pad has when nothing is said.
TEST(EmulatorHelp, TellsTheDefaults) {
    for (const auto& key : pad_keys()) {
        if (key.usual.empty()) {
            continue;
        }
        const auto kind = key.name == "named" ? PadKind::vcom : PadKind::hid;
        const auto pad = parse_pad_settings(std::string(key.name) + "=" + std::string(key.usual), 1, kind);
        const auto usual = parse_pad_settings("", 1, kind);
        EXPECT_EQ(pad.type, usual.type);
        EXPECT_EQ(pad.interfaces, usual.interfaces);
        EXPECT_EQ(pad.version.numbers, usual.version.numbers);
        EXPECT_EQ(pad.version.manufacturer, usual.version.manufacturer);
        EXPECT_EQ(pad.mode_delay, usual.mode_delay);
        EXPECT_EQ(pad.loop_back, usual.loop_back);
        EXPECT_EQ(pad.named, usual.named);
        EXPECT_EQ(pad.ssp.components, usual.ssp.components);
        EXPECT_EQ(pad.ssp.modes, usual.ssp.modes);
        EXPECT_EQ(pad.ssp.conf_busy, usual.ssp.conf_busy);
        EXPECT_EQ(pad.ssp.conf_fails, usual.ssp.conf_fails);
        EXPECT_EQ(pad.ssp.connection, usual.ssp.connection);
        EXPECT_EQ(pad.ssp.answers_set_connection, usual.ssp.answers_set_connection);
        EXPECT_EQ(pad.pen.mode, usual.pen.mode);
        EXPECT_EQ(pad.pen.rate, usual.pen.rate);
        EXPECT_EQ(pad.pen.size, usual.pen.size);
        EXPECT_EQ(pad.pen.interface, usual.pen.interface);
    }
}

TEST(EmulatorCompletion, HasEveryOptionKeyFaultAndRequest) {
    const auto program = completed_words();
    for (const auto& verb : all_verbs()) {
        const auto command = std::ranges::find(program.commands, verb.name, &manual::CompletedCommand::name);
        ASSERT_NE(command, program.commands.end());
        for (const auto& option : all_options()) {
            const auto completed = std::ranges::find(command->options, option.name, &manual::CompletedOption::name);
            EXPECT_EQ(completed != command->options.end(), option.verb.value_or(verb.verb) == verb.verb) << option.name;
            if (completed == command->options.end()) {
                continue;
            }
            EXPECT_EQ(completed->value.has_value(), !option.value.empty()) << option.name;
            if (option.name == "--pad" || option.name == "--vcom") {
                EXPECT_EQ(completed->value->words.size(), pad_keys().size());
            }
            if (option.name == "--fault") {
                const auto faults = fault_usages(false).size() + fault_usages(true).size();
                EXPECT_EQ(completed->value->words.size(), faults + fault_keys().size());
            }
        }
    }
    EXPECT_EQ(completed_words_of_control().commands.size(), all_requests().size());
}

// A fault is told among those of transfers or among those of messages, and its parameter as it is read.
TEST(EmulatorHelp, TellsFaultsAsTheyAreRead) {
    for (const bool of_messages : {false, true}) {
        for (const auto& fault : fault_usages(of_messages)) {
            const bool takes_value = fault.parameters.starts_with('=');
            const bool takes_seed = fault.parameters.find("seed=S") != std::string_view::npos;
            const auto name = std::string(fault.name);
            EXPECT_NO_THROW(parse_fault(name + (takes_value ? "=10" : "") + (takes_seed ? ",seed=3" : "")));
            if (!takes_value) {
                EXPECT_THROW(parse_fault(name + "=10"), std::invalid_argument);
            }
            for (const auto target : fault_targets(of_messages)) {
                EXPECT_NO_THROW(parse_fault(name + (takes_value ? "=10" : "") + ",on=" + std::string(target)));
            }
            for (const auto target : fault_targets(!of_messages)) {
                EXPECT_THROW(parse_fault(name + (takes_value ? "=10" : "") + ",on=" + std::string(target)),
                             std::invalid_argument);
            }
        }
    }
}
