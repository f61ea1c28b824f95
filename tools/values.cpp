#include "values.hpp"

#include "text.hpp"

#include <charconv>
#include <optional>
#include <system_error>

namespace vxpadctl {

namespace {

constexpr double least_decimal = 0.001;
constexpr unsigned int most_component_id = 127;

std::optional<unsigned int> number_in(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = text.substr(hexadecimal ? 2 : 0);
    unsigned int number = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), number, hexadecimal ? 16 : 10);
    if (error != std::errc{} || end != digits.data() + digits.size()) {
        return std::nullopt;
    }
    return number;
}

} // namespace

std::string quoted(std::string_view text) {
    return "'" + std::string(text) + "'";
}

unsigned int parse_number(std::string_view what, std::string_view text, unsigned int least, unsigned int most) {
    const auto number = number_in(text);
    if (!number || *number < least || *number > most) {
        throw UsageError(std::string(what) + " takes a number from " + std::to_string(least) + " to " +
                         std::to_string(most) + ", not " + quoted(text));
    }
    return *number;
}

double parse_decimal(std::string_view what, std::string_view text, double most) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    if (error != std::errc{} || end != text.data() + text.size() || !(number >= least_decimal && number <= most)) {
        throw UsageError(std::string(what) + " takes a number from " + decimal(least_decimal, 3) + " to " +
                         decimal(most, 0) + ", not " + quoted(text));
    }
    return number;
}

unsigned int parse_name(std::string_view what, std::string_view text, Names names) {
    if (const auto value = value_of(names, text)) {
        return *value;
    }
    const auto number = number_in(text);
    if (!number || name_of(names, *number).empty()) {
        throw UsageError(std::string(what) + " is " + list_names(names) + ", not " + quoted(text));
    }
    return *number;
}

ComponentChoice parse_component(std::string_view what, std::string_view text) {
    if (const auto type = value_of(component_types, text)) {
        return {ComponentChoice::By::type, *type};
    }
    const auto id = number_in(text);
    if (!id || *id > most_component_id) {
        throw UsageError(std::string(what) + " takes " + list_names(component_types) + ", or an id from 0 to " +
                         std::to_string(most_component_id) + ", not " + quoted(text));
    }
    return {ComponentChoice::By::id, *id};
}

std::string parse_text(std::string_view what, std::string_view text, std::size_t least, std::size_t most) {
    if (text.size() < least || text.size() > most) {
        throw UsageError(std::string(what) + " has from " + std::to_string(least) + " to " + std::to_string(most) +
                         " bytes, not " + std::to_string(text.size()));
    }
    return std::string(text);
}

} // namespace vxpadctl
