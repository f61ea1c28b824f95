#include "base/text.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <stdexcept>
#include <system_error>

namespace emulator {

namespace {

constexpr std::string_view hex_digits = "0123456789abcdef";

} // namespace

std::optional<char32_t> take_character(std::string_view& utf8) {
    struct Lead {
        unsigned int first, last;     // bytes that a character may begin with
        std::size_t size;             // bytes of the character
        unsigned int lowest, highest; // its second byte
    };
    static constexpr std::array<Lead, 9> leads{{
        {0x00, 0x7f, 1, 0, 0},
        {0xc2, 0xdf, 2, 0x80, 0xbf},
        {0xe0, 0xe0, 3, 0xa0, 0xbf},
        {0xe1, 0xec, 3, 0x80, 0xbf},
        {0xed, 0xed, 3, 0x80, 0x9f}, // the rest are halves of UTF-16 pairs
        {0xee, 0xef, 3, 0x80, 0xbf},
        {0xf0, 0xf0, 4, 0x90, 0xbf},
        {0xf1, 0xf3, 4, 0x80, 0xbf},
        {0xf4, 0xf4, 4, 0x80, 0x8f},
    }};
    const auto byte = [&](std::size_t i) { return static_cast<unsigned int>(static_cast<unsigned char>(utf8[i])); };
    const unsigned int first = byte(0);
    const auto* lead = std::ranges::find_if(leads, [&](const Lead& l) { return first >= l.first && first <= l.last; });
    std::size_t taken = 1;
    char32_t character = first;
    if (lead != leads.end() && lead->size > 1) {
        character = first & (0x7fU >> lead->size);
        for (; taken < std::min(lead->size, utf8.size()); ++taken) {
            const unsigned int next = byte(taken);
            if (next < (taken == 1 ? lead->lowest : 0x80U) || next > (taken == 1 ? lead->highest : 0xbfU)) {
                break;
            }
            character = character << 6 | (next & 0x3fU);
        }
    }
    const bool is_whole = lead != leads.end() && taken == lead->size;
    utf8.remove_prefix(taken);
    return is_whole ? std::optional(character) : std::nullopt;
}

std::string hex(std::span<const std::uint8_t> bytes) {
    std::string result;
    result.reserve(bytes.size() * 2);
    for (const auto byte : bytes) {
        result += hex_digits[byte >> 4];
        result += hex_digits[byte & 15];
    }
    return result;
}

unsigned long parse_number(std::string_view digits, int base, unsigned long lowest, unsigned long highest) {
    unsigned long number = 0;
    const auto* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number, base);
    if (digits.empty() || error != std::errc{} || stop != end || number < lowest || number > highest) {
        throw std::invalid_argument("'" + std::string{digits} + "' is not a " + (base == 16 ? "hexadecimal " : "") +
                                    "number" + " from " + std::to_string(lowest) + " to " + std::to_string(highest));
    }
    return number;
}

unsigned int parse_count(std::string_view digits, unsigned int lowest, unsigned int highest) {
    return static_cast<unsigned int>(parse_number(digits, 10, lowest, highest));
}

std::vector<std::uint8_t> parse_hex(std::string_view digits) {
    if (digits.size() % 2 != 0) {
        throw std::invalid_argument("'" + std::string{digits} + "' has an odd number of hexadecimal digits");
    }
    std::vector<std::uint8_t> bytes;
    for (; !digits.empty(); digits.remove_prefix(2)) {
        bytes.push_back(static_cast<std::uint8_t>(parse_number(digits.substr(0, 2), 16, 0, 255)));
    }
    return bytes;
}

std::vector<std::pair<std::string, std::string>> parse_list(std::string_view text) {
    std::vector<std::pair<std::string, std::string>> list;
    while (!text.empty()) {
        std::size_t end = 0;
        while (end < text.size() && text[end] != ',') {
            end += text[end] == '\\' ? 2 : 1;
        }
        end = std::min(end, text.size());
        const auto item = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const auto equals = std::min(item.find('='), item.size());
        list.emplace_back(item.substr(0, equals), item.substr(std::min(equals + 1, item.size())));
    }
    return list;
}

std::u16string parse_string(std::string_view text) {
    std::u16string result;
    while (!text.empty()) {
        if (text.front() == '\\' && text.size() >= 6 && text[1] == 'u') {
            result += static_cast<char16_t>(parse_number(text.substr(2, 4), 16, 0, 0xffff));
            text.remove_prefix(6);
            continue;
        }
        if (text.front() == '\\' && text.size() > 1) {
            text.remove_prefix(1);
        }
        const auto character = take_character(text);
        if (!character) {
            throw std::invalid_argument("text is not UTF-8");
        }
        if (*character < 0x10000) {
            result += static_cast<char16_t>(*character);
        } else {
            result += static_cast<char16_t>(0xd800 + ((*character - 0x10000) >> 10));
            result += static_cast<char16_t>(0xdc00 + ((*character - 0x10000) & 0x3ff));
        }
    }
    return result;
}

std::string utf8(std::u16string_view text) {
    std::string result;
    const auto put = [&](unsigned int bits) { result += static_cast<char>(bits); };
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned int code_point = text[i];
        if (code_point >= 0xd800 && code_point < 0xdc00 && i + 1 < text.size() && (text[i + 1] & 0xfc00) == 0xdc00) {
            code_point = 0x10000 + ((code_point & 0x3ff) << 10) + (text[++i] & 0x3ffU);
        }
        if (code_point < 0x80) {
            put(code_point);
        } else if (code_point < 0x800) {
            put(0xc0 | code_point >> 6);
            put(0x80 | (code_point & 0x3f));
        } else if (code_point < 0x10000) {
            put(0xe0 | code_point >> 12);
            put(0x80 | (code_point >> 6 & 0x3f));
            put(0x80 | (code_point & 0x3f));
        } else {
            put(0xf0 | code_point >> 18);
            put(0x80 | (code_point >> 12 & 0x3f));
            put(0x80 | (code_point >> 6 & 0x3f));
            put(0x80 | (code_point & 0x3f));
        }
    }
    return result;
}

} // namespace emulator
