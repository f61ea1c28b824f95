#pragma once

#include "base/fd.hpp"

#include <string>

namespace emulator {

// A listening Unix socket, not blocking.
Fd listen_at(const std::string& path);

} // namespace emulator
