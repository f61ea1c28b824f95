// The command that uploads a file to a pad.
#pragma once

#include "arguments.hpp"
#include "library.hpp"

#include <cstddef>
#include <cstdio>
#include <string>

namespace vxpadctl {

bool upload(const Session& session, const Arguments& arguments, std::FILE* results);

// "[####----]  50 %  12.3 KB/s  4 s left", of so many seconds.
std::string progress_line(std::size_t sent, std::size_t size, double seconds);

} // namespace vxpadctl
