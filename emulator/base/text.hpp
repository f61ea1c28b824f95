// Small text tools of the options and the control socket. All parsers throw std::invalid_argument.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace emulator {

// Takes the first character off a text that is not empty. Nothing where the bytes are none: then as many have been
// taken as could have begun one, and at least one.
std::optional<char32_t> take_character(std::string_view& utf8);

std::string hex(std::span<const std::uint8_t> bytes);
std::vector<std::uint8_t> parse_hex(std::string_view digits);

unsigned long parse_number(std::string_view digits, int base, unsigned long lowest, unsigned long highest);
unsigned int parse_count(std::string_view digits, unsigned int lowest, unsigned int highest); // decimal

// "a=1,b=two\, three" -> {a, 1}, {b, two\, three}; a backslash keeps the character after it from being special.
std::vector<std::pair<std::string, std::string>> parse_list(std::string_view text);

// UTF-8 to UTF-16; \\ and \, stand for the second character, \uXXXX for any UTF-16 unit.
std::u16string parse_string(std::string_view text);

std::string utf8(std::u16string_view text);

} // namespace emulator
