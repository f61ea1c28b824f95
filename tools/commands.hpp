// The commands: a row for each is all that the command line, its help, the manual, the shells' completion and its
// running know of them. That is why there is no library for command lines here: one would know the options, but neither
// write the manual nor the completion.
#pragma once

#include "arguments.hpp"
#include "operands.hpp"

#include <array>
#include <cstdio>
#include <span>
#include <string_view>

namespace vxpadctl {

// Under which heading the help shows a command.
enum class Section { reports, pen, ssp };

// A way to write what follows a command's name, and what the command does then. Capitals are terms (terms.hpp), small
// letters stand for themselves. A line end in a text is a blank.
struct Usage {
    std::string_view operands;
    std::string_view does;
};

struct Command {
    std::string_view name; // one word or two
    Section section;
    std::array<Usage, 2> usages; // as many as there are
    std::array<void (*)(Operands& operands, Arguments& arguments), 4> take;
    std::string_view options; // with blanks in between; besides, all have --trace

    // Writes the result to results and what went wrong to standard error. Returns whether all went well; throws what
    // the library has to report and std::runtime_error for the rest.
    bool (*run)(const Arguments& arguments, std::FILE* results);

    std::string_view more = {}; // sentences behind what it does; its help has 24 lines in all

    std::string_view family() const; // the first word of the name
    bool has_option(std::string_view option) const;
};

std::span<const Command> all_commands();

} // namespace vxpadctl
