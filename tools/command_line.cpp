#include "command_line.hpp"

#include "commands.hpp"
#include "help.hpp"
#include "operands.hpp"
#include "options.hpp"
#include "values.hpp"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vxpadctl {

namespace {

std::string joined(std::string_view first, std::string_view second) {
    return second.empty() ? std::string(first) : std::string(first).append(" ").append(second);
}

struct SplitWords {
    std::vector<std::string_view> plain;
    std::vector<std::string_view> options;
};

// Sorts the words into options, which are stored at once, and the rest.
SplitWords split(std::span<char* const> words, Arguments& arguments) {
    SplitWords result;
    bool ended = false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string_view word = words[i];
        if (ended || !word.starts_with("-") || word == "-") {
            result.plain.push_back(word);
        } else if (word == "--") {
            ended = true;
        } else if (word == "--help" || word == "-h") {
            arguments.help = true;
        } else if (word == "--version") {
            arguments.version = true;
        } else {
            const std::string_view name = word.substr(0, word.find('='));
            const Option* option = find_option(name);
            if (option == nullptr || (!option->takes_value && name != word)) {
                throw UsageError("there is no option " + quoted(word));
            }
            std::string_view value;
            if (option->takes_value) {
                if (name == word && ++i == words.size()) {
                    throw UsageError(std::string(name) + " needs a value");
                }
                value = name == word ? std::string_view(words[i]) : word.substr(name.size() + 1);
            }
            store_option(*option, value, arguments);
            result.options.push_back(name);
        }
    }
    return result;
}

// Takes the command's name off the words.
const Command& take_command(std::span<const std::string_view>& words) {
    if (words.empty()) {
        throw UsageError("there is no command");
    }
    const std::string_view family = words.front();
    const auto commands = all_commands();
    const auto is_command = [&](const std::string& name) {
        return std::ranges::find(commands, name, &Command::name) != commands.end();
    };
    const bool is_known = std::ranges::find(commands, family, &Command::family) != commands.end();
    // A command of one word may have others beside it that begin with that word.
    const bool has_second = words.size() > 1 && !words[1].empty() && is_command(joined(family, words[1]));
    const bool is_whole = is_command(std::string(family)) && !has_second;
    if (is_known && !is_whole && words.size() == 1) {
        throw UsageError(quoted(family) + " needs to be told what to do");
    }
    const std::string name = joined(family, is_known && !is_whole ? words[1] : "");
    const auto command = std::ranges::find(commands, name, &Command::name);
    if (command == commands.end()) {
        throw UsageError("there is no command " + quoted(name));
    }
    words = words.subspan(is_whole ? 1 : 2);
    return *command;
}

void expect_help(const std::vector<std::string>& topic) {
    if (topic.empty() || has_help(topic)) {
        return;
    }
    std::string name = topic.front();
    for (const std::string& word : std::span(topic).subspan(1)) {
        name += " " + word;
    }
    throw UsageError("there is no command " + quoted(name));
}

} // namespace

Arguments parse_arguments(std::span<char* const> words) {
    Arguments arguments;
    const SplitWords given = split(words, arguments);
    if (arguments.help || arguments.version) {
        arguments.help_topic.assign(given.plain.begin(), given.plain.end());
        return arguments;
    }
    if (!given.plain.empty() && given.plain.front() == "help") {
        arguments.help = true;
        arguments.help_topic.assign(given.plain.begin() + 1, given.plain.end());
        expect_help(arguments.help_topic);
        return arguments;
    }
    std::span<const std::string_view> words_left{given.plain};
    const Command& command = take_command(words_left);
    arguments.command = &command;
    for (const std::string_view option : given.options) {
        if (!command.has_option(option)) {
            throw UsageError(quoted(command.name) + " has no option " + std::string(option));
        }
    }
    Operands operands{std::string(command.name), words_left};
    for (const auto take : command.take) {
        if (take != nullptr) {
            take(operands, arguments);
        }
    }
    operands.expect_end();
    return arguments;
}

} // namespace vxpadctl
