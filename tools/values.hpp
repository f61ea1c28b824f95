// The values that the words of a command line stand for. All of it throws UsageError, in which the name of what is read
// stands first.
#pragma once

#include "arguments.hpp"
#include "names.hpp"

#include <cstddef>
#include <string>
#include <string_view>

namespace vxpadctl {

std::string quoted(std::string_view text);

unsigned int parse_number(std::string_view what, std::string_view text, unsigned int least, unsigned int most);

// Above 0, with or without a fraction.
double parse_decimal(std::string_view what, std::string_view text, double most);

// A name, or the number for which it stands where only these numbers will do.
unsigned int parse_name(std::string_view what, std::string_view text, Names names);

ComponentChoice parse_component(std::string_view what, std::string_view text);

std::string parse_text(std::string_view what, std::string_view text, std::size_t least, std::size_t most);

} // namespace vxpadctl
