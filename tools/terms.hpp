// The words in capitals of usages and options: what they stand for, and what a shell may offer in their place.
#pragma once

#include "manual/completion.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace vxpadctl {

struct Term {
    std::string_view name;
    std::string text; // empty where the name says it
    manual::Value value;
};

// As the help shows them.
std::vector<Term> all_terms();

// What stands in a usage or as an option's value: a term, or words to choose from with a | in between.
manual::Value value_of(std::string_view operand);

} // namespace vxpadctl
