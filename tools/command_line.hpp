// The command line: from words to arguments.
#pragma once

#include "arguments.hpp"

#include <span>

namespace vxpadctl {

// Throws UsageError.
Arguments parse_arguments(std::span<char* const> words);

} // namespace vxpadctl
