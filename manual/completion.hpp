// What a shell may offer behind a program's name, and the functions for bash and zsh that do.
#pragma once

#include "page.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace manual {

// What a word may be.
struct Value {
    enum class Kind {
        anything, // nobody knows
        words,
        files,
        at_files, // @FILE
        directories,
        keys,   // KEY=VALUE,...
        faults, // N:KIND,KEY=VALUE,...
        command // another program with its own words, up to the end
    };
    Kind kind = Kind::anything;
    std::vector<std::string> words = {}; // of words, keys and faults
};

struct CompletedOption {
    std::string name;
    std::string text;
    std::optional<Value> value = {}; // nothing: it takes none
};

struct CompletedCommand {
    std::string name; // a word, or some with blanks in between
    std::string text;
    std::vector<CompletedOption> options;
    std::vector<Value> operands;
};

struct CompletedProgram {
    std::string name;
    std::vector<CompletedOption> options; // that need no command
    std::vector<CompletedCommand> commands;
};

std::string for_bash(const CompletedProgram& program);
std::string for_zsh(const CompletedProgram& program);

} // namespace manual
