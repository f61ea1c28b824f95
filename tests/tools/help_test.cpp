// What people are told has the shape that people are promised, and nothing lacks its place.
#include "commands.hpp"
#include "help.hpp"
#include "options.hpp"
#include "terms.hpp"

#include <algorithm>
#include <gmock/gmock.h>
#include <set>
#include <string>
#include <vector>

using namespace vxpadctl;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

std::string help_of(std::string_view command) {
    return help_text(manual::split(command, " "));
}

std::vector<std::string> lines_of(const std::string& text) {
    auto lines = manual::split(text, "\n");
    lines.pop_back();
    return lines;
}

void expect_narrow(const std::string& text) {
    for (const std::string& line : lines_of(text)) {
        EXPECT_LE(line.size(), 100U) << line;
        EXPECT_FALSE(line.ends_with(' ')) << line;
    }
}

std::vector<std::string> options_of(const Command& command) {
    std::vector<std::string> options = manual::split(std::string(command.options) + " --trace", " ");
    std::erase(options, "");
    return options;
}

std::string head_in_man(const std::string& option) {
    std::string text;
    for (const char c : option) {
        text += c == '-' ? std::string("\\-") : std::string(1, c);
    }
    return "\n.TP\n\\fB" + text + "\\fR";
}

} // namespace

TEST(Help, OfACommandFitsAScreen) {
    std::set<std::string> names;
    for (const Command& command : all_commands()) {
        names.emplace(command.name);
        names.emplace(command.family());
    }
    for (const std::string& name : names) {
        const std::string text = help_of(name);
        EXPECT_THAT(text, StartsWith("Usage: vxpadctl " + name + " "));
        EXPECT_LE(lines_of(text).size(), 24U) << text;
        expect_narrow(text);
    }
}

TEST(Help, OfEverythingIsNarrow) {
    expect_narrow(help_text());
}

TEST(Help, OfACommandHasItsOptionsAndNoOthers) {
    for (const Command& command : all_commands()) {
        const std::string text = help_of(command.name);
        for (const Option& option : all_options()) {
            const auto mine = options_of(command);
            const bool has = std::ranges::find(mine, option.name) != mine.end();
            const std::string head =
                std::string(option.name) + (option.value.empty() ? "" : " ") + std::string(option.value);
            EXPECT_EQ(has, text.find("\n  " + head + (option.help.empty() ? "\n" : " ")) != std::string::npos)
                << command.name << head << "\n"
                << text;
        }
    }
}

TEST(Help, EveryOptionHasItsText) {
    for (const Option& option : all_options()) {
        EXPECT_NE(option.help, "") << option.name;
        EXPECT_EQ(option.takes_value, !option.value.empty()) << option.name;
        EXPECT_TRUE(std::ranges::any_of(all_commands(), [&](const Command& each) {
            return each.has_option(option.name);
        })) << option.name;
    }
}

TEST(Help, EveryCommandHasItsText) {
    for (const Command& command : all_commands()) {
        for (const Usage& usage : command.usages) {
            EXPECT_TRUE(usage.operands.empty() || !usage.does.empty()) << command.name;
        }
    }
}

TEST(Help, TellsWhatAnOptionMeansToTheCommand) {
    EXPECT_THAT(help_of("record"),
                AllOf(HasSubstr("--count C      ends after so many packets\n"),
                      HasSubstr("--interface K  interface of the pad, counted from 0 (default 0)\n")));
    EXPECT_THAT(help_of("report read"), HasSubstr("number of reports or messages (default 1)\n"));
    EXPECT_THAT(help_of("ssp send"), HasSubstr("with --reply: how long to wait for each message (default 1000)\n"));
    EXPECT_THAT(help_of("ssp receive"), HasSubstr(" how long to wait for each message (default 1000)\n"));
    EXPECT_THAT(help_text(), HasSubstr("report read, ssp receive: number of reports or messages (default 1);\n"));
}

TEST(Help, TellsTheTermsOfTheCommandAndNoOthers) {
    EXPECT_THAT(help_of("button event"),
                AllOf(HasSubstr("\n  MODE  signature, doc-view or doc-sign, or its type (0, 5, 6)"),
                      Not(HasSubstr("\n  HEX ")), Not(HasSubstr("\n  BUTTON "))));
    EXPECT_THAT(help_of("plot"), AllOf(HasSubstr("\n  LAYOUT  "), Not(HasSubstr("\n  PAD "))));
    EXPECT_THAT(help_of("feature set"), HasSubstr("\n  HEX  "));
}

TEST(Help, OfAFamilyHasItsCommands) {
    EXPECT_THAT(help_of("button"), AllOf(HasSubstr("\n  button event PAD MODE"), HasSubstr("\n  button input PAD"),
                                         HasSubstr("\n  button set PAD MODE"), HasSubstr("\n  button refresh PAD"),
                                         Not(HasSubstr("ssp"))));
}

TEST(Help, OfWhatIsNoCommandIsOfEverything) {
    EXPECT_EQ(help_of("lst"), help_text());
    EXPECT_EQ(help_of("feature gte"), help_of("feature"));
    EXPECT_EQ(help_of("feature get 1"), help_of("feature get"));
}

TEST(ManualPage, HasEveryCommandAndOption) {
    const std::string page = manual::as_man(manual_page(), "libvxpadcom 1");
    for (const Command& command : all_commands()) {
        EXPECT_THAT(page, HasSubstr(head_in_man(std::string(command.name)).substr(0, 8))) << command.name;
        EXPECT_THAT(page, HasSubstr("\n.TP\n\\fB" + manual::split(command.name, " ").front())) << command.name;
    }
    for (const Option& option : all_options()) {
        EXPECT_THAT(page, HasSubstr(head_in_man(std::string(option.name)))) << option.name;
    }
}

TEST(Completion, HasEveryCommandWithItsOptions) {
    const manual::CompletedProgram program = completed_words();
    for (const Command& command : all_commands()) {
        const auto completed = std::ranges::find(program.commands, command.name, &manual::CompletedCommand::name);
        ASSERT_NE(completed, program.commands.end()) << command.name;
        std::vector<std::string> names;
        for (const manual::CompletedOption& option : completed->options) {
            names.push_back(option.name);
            EXPECT_EQ(option.value.has_value(), find_option(option.name)->takes_value) << option.name;
            EXPECT_NE(option.text, "") << option.name;
        }
        EXPECT_EQ(names, options_of(command)) << command.name;
    }
}

TEST(Completion, KnowsWhatStandsAtAPlace) {
    const auto operands = [](std::string_view name) {
        const auto program = completed_words();
        return std::ranges::find(program.commands, name, &manual::CompletedCommand::name)->operands;
    };
    using Kind = manual::Value::Kind;
    const auto button = operands("button set");
    ASSERT_EQ(button.size(), 5U);
    EXPECT_EQ(button[0].kind, Kind::anything);
    EXPECT_THAT(button[1].words, testing::ElementsAre("signature", "doc-view", "doc-sign"));
    EXPECT_THAT(button[2].words, testing::Contains("rotate-180"));
    EXPECT_THAT(operands("ssp connection")[1].words, testing::ElementsAre("get", "set"));
    EXPECT_EQ(operands("replay").at(0).kind, Kind::files);
    EXPECT_EQ(operands("replay").size(), 1U);
    EXPECT_EQ(operands("record").size(), 1U);
    EXPECT_EQ(operands("list").size(), 0U);
}

TEST(Completion, TakesSmallLettersAsTheyAre) {
    EXPECT_THAT(value_of("csv|json|inkml").words, testing::ElementsAre("csv", "json", "inkml"));
    EXPECT_EQ(value_of("K").kind, manual::Value::Kind::anything);
    EXPECT_EQ(value_of("FILE").kind, manual::Value::Kind::files);
}
