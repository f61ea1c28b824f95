// Examines every pad on the bus, whether the library can use it or not.
#pragma once

#include "arguments.hpp"
#include "operands.hpp"

#include <cstdio>

namespace vxpadctl {

// Nothing, the number of a pad on the bus, its device file or its port.
void take_bus_pad(Operands& operands, Arguments& arguments);

bool doctor(const Arguments& arguments, std::FILE* results);

} // namespace vxpadctl
