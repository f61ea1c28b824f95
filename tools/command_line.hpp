// The command line: from words to arguments, and the help.
#pragma once

#include "arguments.hpp"

#include <span>
#include <string>

namespace vxpadctl {

// Throws UsageError.
Arguments parse_arguments(std::span<char* const> words);

std::string help_text();

} // namespace vxpadctl
