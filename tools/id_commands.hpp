// Commands for the USB ids that are looked for. They need no pads.
#pragma once

#include "arguments.hpp"

#include <cstdio>

namespace vxpadctl {

bool ids(const Arguments& arguments, std::FILE* results);
bool ids_add(const Arguments& arguments, std::FILE* results);

} // namespace vxpadctl
