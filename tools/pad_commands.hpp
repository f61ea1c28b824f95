// The commands that list pads and exchange reports with them.
#pragma once

#include "arguments.hpp"
#include "library.hpp"

#include <cstdio>

namespace vxpadctl {

bool list(const Session& session, const Arguments& arguments, std::FILE* results);
bool info(const Session& session, const Arguments& arguments, std::FILE* results);
bool feature_get(const Session& session, const Arguments& arguments, std::FILE* results);
bool feature_set(const Session& session, const Arguments& arguments, std::FILE* results);
bool report_read(const Session& session, const Arguments& arguments, std::FILE* results);
bool report_write(const Session& session, const Arguments& arguments, std::FILE* results);

} // namespace vxpadctl
