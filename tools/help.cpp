#include "help.hpp"

#include "commands.hpp"
#include "options.hpp"
#include "terms.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace vxpadctl {

namespace {

using manual::Block;
using manual::Entry;

constexpr std::pair<Section, const char*> headings[]{
    {Section::reports, "Commands"},
    {Section::pen, "Commands for what a pad sends by itself while a person writes, and for large uploads"},
    {Section::ssp, "Commands for pads that speak SSP"},
};

// What is no option of the table.
const std::array<Entry, 3> general_options{{
    {"--help", "this text; behind a command or in vxpadctl help COMMAND that command's"},
    {"--version", "the version"},
    {"--", "what follows is no option"},
}};

const std::array<Entry, 4> exit_status{{
    {"0", "done"},
    {"1", "failed: no such pad, no permission, no answer, nothing in time, refused, pulled out, sent in part only"},
    {"2", "wrong usage"},
    {"130", "interrupted, with the pad left in order and what was recorded complete"},
}};

std::string joined(std::string_view first, std::string_view second) {
    return second.empty() ? std::string(first) : std::string(first).append(" ").append(second);
}

std::vector<Usage> usages_of(const Command& command) {
    std::vector<Usage> usages;
    for (const Usage& usage : command.usages) {
        if (!usage.operands.empty() || !usage.does.empty()) {
            usages.push_back(usage);
        }
    }
    return usages;
}

// Rows are written in lines that are as long as they may be there.
std::string in_one_line(std::string_view text) {
    std::string line{text};
    std::ranges::replace(line, '\n', ' ');
    return line;
}

std::string sentence(std::string text) {
    if (!text.empty()) {
        text.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
        text += text.back() == '.' ? "" : ".";
    }
    return text;
}

// By name, or by their first words where all that begin with one have the option.
std::vector<std::string> commands_with(std::string_view option) {
    std::vector<std::string> names;
    for (const Command& command : all_commands()) {
        if (!command.has_option(option)) {
            continue;
        }
        const bool all = std::ranges::all_of(all_commands(), [&](const Command& other) {
            return other.family() != command.family() || other.has_option(option);
        });
        const std::string name{all ? command.family() : command.name};
        if (names.empty() || names.back() != name) {
            names.push_back(name);
        }
    }
    return names;
}

// What an option means to some commands, or to all that have it.
struct Meaning {
    std::vector<std::string> commands; // none: all
    std::string text;
};

bool is_name(std::string_view words) {
    const std::string_view name = words.substr(0, words.find(" -"));
    return std::ranges::any_of(all_commands(),
                               [&](const Command& each) { return each.name == name || each.family() == name; });
}

// "monitor, record: ...", or "{}: ..." for all commands that have the option.
std::optional<Meaning> meaning_to_some(const Option& option, const std::string& text) {
    const std::size_t colon = text.find(": ");
    const std::string names = text.substr(0, colon);
    const std::vector<std::string> list = names == "{}" ? commands_with(option.name) : manual::split(names, ", ");
    if (colon == std::string::npos || (names != "{}" && !std::ranges::all_of(list, is_name))) {
        return std::nullopt;
    }
    return Meaning{list, text.substr(colon + 2)};
}

// What an option's help says, line by line or with a ; in between.
std::vector<Meaning> meanings(const Option& option) {
    std::vector<Meaning> result;
    for (const std::string& line : manual::split(option.help, "\n")) {
        const char* separator = " ";
        for (const std::string& part : manual::split(line, "; ")) {
            if (const auto meaning = meaning_to_some(option, part)) {
                result.push_back(*meaning);
            } else if (result.empty()) {
                result.push_back({{}, part});
            } else {
                result.back().text += separator + part;
            }
            separator = "; ";
        }
    }
    return result;
}

std::string joined(const std::vector<std::string>& words, std::string_view separator) {
    std::string text;
    for (const std::string& word : words) {
        text.append(text.empty() ? "" : separator).append(word);
    }
    return text;
}

Entry option_entry(const Option& option) {
    std::string text;
    for (const Meaning& meaning : meanings(option)) {
        text += text.empty() ? "" : "; ";
        text += meaning.commands.empty() ? meaning.text : joined(meaning.commands, ", ") + ": " + meaning.text;
    }
    return {joined(option.name, option.value), text};
}

// What it means to one command.
Entry option_entry(const Option& option, const Command& command) {
    Entry entry{joined(option.name, option.value), ""};
    for (const Meaning& meaning : meanings(option)) {
        const auto whose = std::ranges::find_if(meaning.commands, [&](const std::string& name) {
            const std::string plain = name.substr(0, name.find(" -"));
            return plain == command.name || plain == command.family();
        });
        if (!meaning.commands.empty() && whose == meaning.commands.end()) {
            continue;
        }
        const std::size_t other = meaning.commands.empty() ? std::string::npos : whose->find(" -");
        entry.text += entry.text.empty() ? "" : "; ";
        entry.text += (other == std::string::npos ? "" : "with " + whose->substr(other + 1) + ": ") + meaning.text;
    }
    return entry;
}

std::vector<const Option*> options_of(const Command& command) {
    std::vector<const Option*> options;
    for (const std::string& name : manual::split(joined(command.options, "--trace"), " ")) {
        if (const Option* option = find_option(name)) {
            options.push_back(option);
        }
    }
    return options;
}

Block command_entries(const Command& command) {
    Block block;
    for (const Usage& usage : usages_of(command)) {
        block.entries.push_back({joined(command.name, usage.operands), in_one_line(usage.does)});
    }
    if (!command.more.empty() && !block.entries.empty()) {
        block.entries.back().text += ". " + sentence(in_one_line(command.more));
    }
    return block;
}

// The capitals of a usage or of an option's value.
std::vector<std::string> capitals(std::string_view text) {
    std::vector<std::string> words(1);
    for (const char c : text) {
        if (std::isupper(static_cast<unsigned char>(c)) != 0) {
            words.back() += c;
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    return words;
}

Block terms_of(const Command& command) {
    std::vector<std::string> used;
    const auto use = [&](std::string_view text) { std::ranges::copy(capitals(text), std::back_inserter(used)); };
    for (const Usage& usage : usages_of(command)) {
        use(usage.operands);
    }
    for (const Option* option : options_of(command)) {
        use(option->value);
    }
    Block block;
    for (const Term& term : all_terms()) {
        if (!term.text.empty() && std::ranges::find(used, term.name) != used.end()) {
            block.entries.push_back({std::string(term.name), term.text});
        }
    }
    return block;
}

// A command may have others whose names begin with its own.
Block commands_behind(const Command& command) {
    Block block;
    for (const Command& other : all_commands()) {
        if (other.name.size() > command.name.size() && other.family() == command.name) {
            std::ranges::copy(command_entries(other).entries, std::back_inserter(block.entries));
        }
    }
    return block;
}

std::string help_of(const Command& command) {
    const std::vector<Usage> usages = usages_of(command);
    std::vector<std::string> lines;
    Block ways;
    for (const Usage& usage : usages) {
        lines.push_back("vxpadctl " + joined(command.name, usage.operands) + " [OPTIONS]");
        ways.entries.push_back({std::string(usage.operands), in_one_line(usage.does)});
    }
    const std::string more = sentence(in_one_line(command.more));
    std::string text = manual::usage_lines(lines) + "\n";
    if (usages.size() == 1) {
        text += manual::as_help(Block{.text = joined(sentence(ways.entries.front().text), more)});
    } else {
        text += manual::as_help(ways) + (more.empty() ? "" : "\n" + manual::as_help(Block{.text = more}));
    }
    Block options;
    for (const Option* option : options_of(command)) {
        options.entries.push_back(option_entry(*option, command));
    }
    text += "\n" + manual::as_help(options);
    const Block terms = terms_of(command);
    text += terms.entries.empty() ? "" : "\n" + manual::as_help(terms);
    const Block others = commands_behind(command);
    return text + (others.entries.empty() ? "" : "\n" + manual::as_help(others));
}

std::string help_of_family(std::string_view family) {
    std::string text = manual::usage_lines({"vxpadctl " + std::string(family) + " COMMAND [OPTIONS]"}) + "\n";
    Block commands;
    for (const Command& command : all_commands()) {
        if (command.family() == family) {
            for (const Usage& usage : usages_of(command)) {
                commands.entries.push_back({joined(command.name, usage.operands), in_one_line(usage.does)});
            }
        }
    }
    text += manual::as_help(commands) + "\n";
    return text + manual::as_help(Block{.text = "vxpadctl help " + std::string(family) +
                                                " COMMAND tells the options of one of them."});
}

struct Topic {
    const Command* command; // null: the family
    std::string family;
};

// Of the words that it begins with.
std::optional<Topic> topic_of(std::span<const std::string> words) {
    for (std::size_t size = std::min<std::size_t>(words.size(), 2); size > 0; --size) {
        const std::string name = size == 2 ? words[0] + " " + words[1] : words[0];
        for (const Command& command : all_commands()) {
            if (command.name == name) {
                return Topic{&command, {}};
            }
        }
    }
    if (!words.empty() && std::ranges::any_of(all_commands(), [&](const Command& command) {
            return command.family() == words.front();
        })) {
        return Topic{nullptr, words.front()};
    }
    return std::nullopt;
}

// What a usage says to stand at a place behind the command's name.
void add_operands(const Usage& usage, std::vector<manual::Value>& operands) {
    std::size_t place = 0;
    bool is_value = false;
    for (std::string word : manual::split(usage.operands, " ")) {
        std::erase_if(word, [](char c) { return c == '[' || c == ']' || c == '.'; });
        if (word.starts_with('-')) {
            const Option* option = find_option(word);
            is_value = option != nullptr && option->takes_value;
            continue;
        }
        if (word.empty() || std::exchange(is_value, false)) {
            continue;
        }
        const manual::Value value = value_of(word);
        operands.resize(std::max(operands.size(), place + 1));
        manual::Value& here = operands[place++];
        if (value.kind != manual::Value::Kind::anything) {
            here.kind = value.kind;
        }
        std::ranges::copy_if(value.words, std::back_inserter(here.words), [&](const std::string& each) {
            return std::ranges::find(here.words, each) == here.words.end();
        });
    }
}

manual::CompletedOption completed(const Option& option, std::string text) {
    manual::CompletedOption result{std::string(option.name), std::move(text)};
    if (option.takes_value) {
        result.value = value_of(option.value);
    }
    return result;
}

} // namespace

manual::Page manual_page() {
    manual::Page page{"vxpadctl",
                      '1',
                      "finds USB signature pads, talks to them and records what they send",
                      {"vxpadctl COMMAND [OPTIONS]", "vxpadctl help [COMMAND]"},
                      {}};
    page.sections.push_back({"",
                             {{.text = "Finds USB signature pads, exchanges reports and SSP messages with them, and "
                                       "records what they send."}}});
    for (const auto& [section, heading] : headings) {
        Block block;
        for (const Command& command : all_commands()) {
            if (command.section == section) {
                std::ranges::copy(command_entries(command).entries, std::back_inserter(block.entries));
            }
        }
        page.sections.push_back({heading, {block}});
    }
    Block options;
    for (const Option& option : all_options()) {
        if (!option.help.empty()) {
            options.entries.push_back(option_entry(option));
        }
    }
    std::ranges::copy(general_options, std::back_inserter(options.entries));
    page.sections.push_back({"Options", {options}});
    Block terms;
    for (const Term& term : all_terms()) {
        if (!term.text.empty()) {
            terms.entries.push_back({std::string(term.name), term.text});
        }
    }
    page.sections.push_back(
        {"Operands and values", {terms, {.text = "Other numbers are decimal, or hexadecimal behind 0x."}}});
    page.sections.push_back(
        {"Notes",
         {{.text = "Every run of vxpadctl talks to the pads on its own account before and after the command: an answer "
                   "must be read by the run that has asked. Without --trace the library's own error lines go to the "
                   "system log."}}});
    page.sections.push_back({"Exit status", {{.entries = {exit_status.begin(), exit_status.end()}}}});
    page.sections.push_back(
        {"See also", {{.text = "vxpad-emulator(1), vxpadcom-recording(5), vxpadcom-ids(5), libvxpadcom(7)"}}, true});
    return page;
}

std::string help_text(std::span<const std::string> words) {
    const std::optional<Topic> topic = topic_of(words);
    if (!topic) {
        return manual::as_help(manual_page());
    }
    return topic->command != nullptr ? help_of(*topic->command) : help_of_family(topic->family);
}

bool has_help(std::span<const std::string> words) {
    const std::optional<Topic> topic = topic_of(words);
    return topic && (topic->command == nullptr ? words.size() == 1
                                               : topic->command->name == joined({words.begin(), words.end()}, " "));
}

manual::CompletedProgram completed_words() {
    manual::CompletedProgram program{"vxpadctl", {}, {}};
    manual::CompletedCommand help{"help", "tells about a command", {}, {{.kind = manual::Value::Kind::words}}};
    for (const Entry& option : general_options) {
        program.options.push_back({option.head, option.text});
    }
    for (const Command& command : all_commands()) {
        const std::vector<Usage> usages = usages_of(command);
        manual::CompletedCommand each{
            std::string(command.name), usages.empty() ? "" : in_one_line(usages.back().does), {}, {}};
        for (const Option* option : options_of(command)) {
            each.options.push_back(completed(*option, option_entry(*option, command).text));
        }
        for (const Usage& usage : usages) {
            add_operands(usage, each.operands);
        }
        std::vector<std::string>& families = help.operands.front().words;
        if (families.empty() || families.back() != command.family()) {
            families.emplace_back(command.family());
        }
        program.commands.push_back(std::move(each));
    }
    program.commands.push_back(std::move(help));
    return program;
}

} // namespace vxpadctl
