// The commands for what a pad sends by itself, and for recordings of it.
#pragma once

#include "arguments.hpp"

#include <cstdio>

namespace vxpadctl {

// All of them begin and end a session of their own, where they need one.
bool monitor(const Arguments& arguments, std::FILE* results);
bool record(const Arguments& arguments, std::FILE* results);
bool replay(const Arguments& arguments, std::FILE* results);
bool plot(const Arguments& arguments, std::FILE* results);
bool export_recording(const Arguments& arguments, std::FILE* results);

} // namespace vxpadctl
