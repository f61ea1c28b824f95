// The command that tells of pads which come and go.
#pragma once

#include "arguments.hpp"

#include <cstdio>

namespace vxpadctl {

bool watch(const Arguments& arguments, std::FILE* results);

} // namespace vxpadctl
