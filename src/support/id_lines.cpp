#include "support/id_lines.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <optional>
#include <system_error>

namespace id_lines {
namespace {

constexpr std::string_view blanks = " \t\r";

// Not by substr() or what uses it: that may throw.
std::string_view first(std::size_t count, std::string_view text) {
    return {text.data(), std::min(count, text.size())};
}

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return first(text.find_last_not_of(blanks) + 1, text);
}

// Takes the first word off a trimmed text.
std::string_view take_word(std::string_view& text) {
    const std::string_view word = first(text.find_first_of(blanks), text);
    text.remove_prefix(word.size());
    text = trimmed(text);
    return word;
}

bool is_text(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c == '\t' || (c >= ' ' && c != 0x7f); });
}

std::optional<unsigned int> number_in(std::string_view digits, int base) {
    unsigned int number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
    if (error != std::errc{} || end != digits.data() + digits.size()) {
        return std::nullopt;
    }
    return number;
}

// 0 is none: to hidapi it stands for any id.
std::optional<std::uint16_t> id_in(std::string_view word) {
    constexpr std::size_t most_digits = 4;
    if (first(2, word) == "0x" || first(2, word) == "0X") {
        word.remove_prefix(2);
    }
    const auto number = word.size() <= most_digits ? number_in(word, 16) : std::nullopt;
    if (!number || *number == 0) {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(*number);
}

Line bad(const char* complaint) {
    return {.complaint = complaint};
}

} // namespace

Line parse(std::string_view line) {
    std::string_view text = trimmed(line);
    if (text.empty() || text.front() == '#') {
        return {};
    }
    if (line.size() > longest_line) {
        return bad("the line is longer than 255 bytes");
    }
    if (!is_text(text)) {
        return bad("there are bytes that are no text");
    }
    const auto vendor = id_in(take_word(text));
    if (!vendor) {
        return bad("the vendor id is not 1 to 4 hexadecimal digits above 0");
    }
    const auto product = id_in(take_word(text));
    if (!product) {
        return bad("the product id is not 1 to 4 hexadecimal digits above 0");
    }
    const auto* const transport = std::find(transport_names.begin(), transport_names.end(), take_word(text));
    if (transport == transport_names.end()) {
        return bad("the transport is neither hid nor vcom");
    }
    const auto type = number_in(take_word(text), 10);
    if (!type || std::find(pad_types.begin(), pad_types.end(), *type) == pad_types.end()) {
        return bad("the pad type is none of 1, 8 to 13 and 15 to 17");
    }
    if (text.size() > longest_name) {
        return bad("the name is longer than 63 bytes");
    }
    Line good{.is_id = true};
    good.id.vendor_id = *vendor;
    good.id.product_id = *product;
    good.id.transport = static_cast<Transport>(std::distance(transport_names.begin(), transport));
    good.id.pad_type = *type;
    std::memcpy(good.id.name, text.data(), text.size());
    return good;
}

} // namespace id_lines
