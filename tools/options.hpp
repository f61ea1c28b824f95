// The options of all commands.
#pragma once

#include "arguments.hpp"

#include <span>
#include <string_view>

namespace vxpadctl {

struct Option {
    std::string_view name;
    std::string_view value; // how the help calls it: a term (terms.hpp), or words to choose from: "csv|json"
    std::string_view help;  // a line may begin with the commands that it is about: "monitor, record: ", or "{}: " for
                            // all that have the option; else a line end is a blank
    void (*set)(Arguments& arguments, unsigned int value) = nullptr;
    bool takes_value = false;
    unsigned int least = 0;
    unsigned int most = 0;
    void (*set_text)(Arguments& arguments, std::string_view value) = nullptr; // for a value that is no number
};

// As the help shows them.
std::span<const Option> all_options();

// Null where there is none of that name.
const Option* find_option(std::string_view name);

// Throws UsageError. The value is empty for an option that takes none.
void store_option(const Option& option, std::string_view value, Arguments& arguments);

} // namespace vxpadctl
