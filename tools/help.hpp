// What vxpadctl tells of itself, in its help, its page of the manual and the shells' completion: all from the tables of
// its commands, options and terms.
#pragma once

#include "manual/completion.hpp"
#include "manual/page.hpp"

#include <span>
#include <string>

namespace vxpadctl {

// Of everything, or of the command or the family that the words begin with.
std::string help_text(std::span<const std::string> words = {});

// Whether the words are the name of a command or of a family.
bool has_help(std::span<const std::string> words);

manual::Page manual_page();
manual::CompletedProgram completed_words();

} // namespace vxpadctl
