#include "base/text.hpp"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <stdexcept>
#include <system_error>

namespace emulator {

namespace {

constexpr std::string_view hex_digits = "0123456789abcdef";

// Decodes one UTF-8 sequence and removes it from the text.
char32_t take_code_point(std::string_view& text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t length = lead < 0x80 ? 1 : lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc2 ? 2 : 0;
    if (length == 0 || lead > 0xf4 || text.size() < length) {
        throw std::invalid_argument("text is not UTF-8");
    }
    char32_t code_point = length == 1 ? lead : lead & (0x7fU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xc0) != 0x80) {
            throw std::invalid_argument("text is not UTF-8");
        }
        code_point = code_point << 6 | (next & 0x3fU);
    }
    text.remove_prefix(length);
    return code_point;
}

} // namespace

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
        const auto code_point = take_code_point(text);
        if (code_point < 0x10000) {
            result += static_cast<char16_t>(code_point);
        } else {
            result += static_cast<char16_t>(0xd800 + ((code_point - 0x10000) >> 10));
            result += static_cast<char16_t>(0xdc00 + ((code_point - 0x10000) & 0x3ff));
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
