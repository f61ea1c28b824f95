#include "terms.hpp"

#include "layout.hpp"
#include "names.hpp"

#include <algorithm>
#include <cctype>

namespace vxpadctl {

namespace {

using Kind = manual::Value::Kind;

manual::Value one_of(Names names) {
    manual::Value value{.kind = Kind::words};
    for (const Name& name : names) {
        value.words.emplace_back(name.name);
    }
    return value;
}

std::string field_types() {
    std::string types = list_field_types();
    return types.replace(types.rfind(", "), 2, " and ");
}

} // namespace

std::vector<Term> all_terms() {
    return {
        {"PAD", "the number of a pad, as vxpadctl list tells it", {}},
        {"PLACE", "the number of a pad on the bus, as vxpadctl doctor tells it, its port (1-4) or its device file", {}},
        {"HEX",
         "one or more bytes of two digits each: 1f 00 2a, 1f002a or 1f:00:2a; reports are given and shown "
         "without the report-id byte",
         {}},
        {"COMPONENT", list_names(component_types) + ", or the id that ssp components shows", one_of(component_types)},
        {"MODE", list_names(button_modes) + ", or its type (" + list_values(button_modes) + ")", one_of(button_modes)},
        {"BUTTON", list_names(buttons) + ", or its code", one_of(buttons)},
        {"LAYOUT",
         "a list NAME=OFFSET:TYPE,... with offsets in bytes from 0 and the types " + field_types() +
             ": x=2:u16le,y=4:u16le,pressure=6:u16le is that of virtual pads, which comes as virtual-pad.layout; @FILE "
             "reads one from a file, and vxpadcom-recording(5) tells more",
         {.kind = Kind::at_files}},
        {"FILE", "", {.kind = Kind::files}},
        {"RECORDING", "", {.kind = Kind::files}},
        {"DIRECTORY", "", {.kind = Kind::directories}},
    };
}

manual::Value value_of(std::string_view operand) {
    const std::vector<Term> terms = all_terms();
    const auto term = std::ranges::find(terms, operand, &Term::name);
    if (term != terms.end()) {
        return term->value;
    }
    const bool is_literal = std::ranges::none_of(operand, [](unsigned char c) { return std::isupper(c) != 0; });
    return is_literal && !operand.empty() ? manual::Value{Kind::words, manual::split(operand, "|")} : manual::Value{};
}

} // namespace vxpadctl
