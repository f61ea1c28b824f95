// Results on their way out.
#pragma once

#include "arguments.hpp"

#include <chrono>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>

namespace vxpadctl {

void print(std::FILE* file, const std::string& text);

void print_sent(const Arguments& arguments, std::size_t size, std::FILE* results);

// Prints what take() brings, as often as the arguments say. It is asked again and again until the time for each is up.
// Throws then, and when interrupted: leaving in order gives the pad back to the system.
void print_as_it_comes(const Arguments& arguments, std::chrono::milliseconds wait, const char* what,
                       const std::function<std::optional<Bytes>()>& take, std::FILE* results);

} // namespace vxpadctl
