// What the commands do.
#pragma once

#include "arguments.hpp"

#include <cstdio>

namespace vxpadctl {

// Writes the result to results and what went wrong to standard error. Returns whether all went well; throws what the
// library has to report and std::runtime_error for the rest.
bool run_command(const Arguments& arguments, std::FILE* results);

} // namespace vxpadctl
