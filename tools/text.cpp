#include "text.hpp"

#include "../emulator/base/text.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <system_error>
#include <utility>

namespace vxpadctl {

namespace {

constexpr char32_t replacement = 0xfffd;

bool is_continuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xc0) == 0x80;
}

void append_utf8(std::string& text, char32_t c) {
    const auto tail = [&](int shift) { text += static_cast<char>(0x80 | ((c >> shift) & 0x3f)); };
    if (c < 0x80) {
        text += static_cast<char>(c);
    } else if (c < 0x800) {
        text += static_cast<char>(0xc0 | (c >> 6));
        tail(0);
    } else if (c < 0x10000) {
        text += static_cast<char>(0xe0 | (c >> 12));
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xf0 | (c >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

char32_t next_character(std::string_view& utf8) {
    return emulator::take_character(utf8).value_or(replacement);
}

// Control characters, and those that reorder or hide what stands around them.
bool is_unsafe(char32_t c) {
    static constexpr std::array<std::pair<char32_t, char32_t>, 7> ranges{{
        {0x00, 0x1f},
        {0x7f, 0x9f},
        {0x061c, 0x061c},
        {0x200b, 0x200f},
        {0x2028, 0x202e},
        {0x2060, 0x206f},
        {0xfeff, 0xfeff},
    }};
    return std::ranges::any_of(ranges, [c](const auto& range) { return c >= range.first && c <= range.second; });
}

void append_escape(std::string& text, const char* format, char32_t c) {
    char escape[16];
    std::snprintf(escape, sizeof escape, format, static_cast<unsigned int>(c));
    text += escape;
}

} // namespace

std::string to_utf8(std::u16string_view units) {
    std::string text;
    units = units.substr(0, units.find(u'\0'));
    for (std::size_t i = 0; i < units.size(); ++i) {
        char32_t c = units[i];
        const bool high = c >= 0xd800 && c < 0xdc00;
        if (high && i + 1 < units.size() && units[i + 1] >= 0xdc00 && units[i + 1] < 0xe000) {
            c = 0x10000 + ((c - 0xd800) << 10) + (units[++i] - 0xdc00u);
        } else if ((c >= 0xd800 && c < 0xe000) || c == 0xffff) {
            c = replacement;
        }
        append_utf8(text, c);
    }
    return text;
}

std::string for_terminal(std::string_view utf8) {
    std::string text;
    while (!utf8.empty()) {
        const char32_t c = next_character(utf8);
        if (c == U'\\') {
            text += "\\\\";
        } else if (is_unsafe(c)) {
            append_escape(text, c < 0x100 ? "\\x%02x" : "\\u%04x", c);
        } else {
            append_utf8(text, c);
        }
    }
    return text;
}

std::string without_escapes(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        if (text.starts_with("\\\\")) {
            result += '\\';
            text.remove_prefix(2);
            continue;
        }
        const std::size_t digits = text.starts_with("\\x") ? 2 : text.starts_with("\\u") ? 4 : 0;
        const std::string_view number = text.substr(std::min<std::size_t>(2, text.size()), digits);
        unsigned int c = 0;
        const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), c, 16);
        if (digits > 0 && number.size() == digits && error == std::errc{} && end == number.data() + digits &&
            is_unsafe(c)) {
            append_utf8(result, c);
            text.remove_prefix(2 + digits);
        } else {
            result += text.front();
            text.remove_prefix(1);
        }
    }
    return result;
}

std::string xml_text(std::string_view utf8) {
    std::string text;
    const std::string safe = for_terminal(utf8);
    for (std::string_view left = safe; !left.empty();) {
        switch (const char32_t c = next_character(left)) {
        case U'&':
            text += "&amp;";
            break;
        case U'<':
            text += "&lt;";
            break;
        case U'>':
            text += "&gt;";
            break;
        case U'"':
            text += "&quot;";
            break;
        case 0xfffe:
        case 0xffff:
            append_utf8(text, replacement);
            break;
        default:
            append_utf8(text, c);
        }
    }
    return text;
}

std::string json_string(std::string_view utf8) {
    std::string text = "\"";
    while (!utf8.empty()) {
        const char32_t c = next_character(utf8);
        if (c == U'"' || c == U'\\') {
            text += '\\';
        }
        if (is_unsafe(c)) {
            append_escape(text, "\\u%04x", c);
        } else {
            append_utf8(text, c);
        }
    }
    return text + '"';
}

std::string decimal(double number, int places) {
    std::array<char, 400> digits; // enough for any number
    const auto end =
        std::to_chars(digits.data(), digits.data() + digits.size(), number, std::chars_format::fixed, places).ptr;
    return {digits.data(), end};
}

std::string counted(std::size_t number, std::string_view thing) {
    return std::to_string(number).append(" ").append(thing).append(number == 1 ? "" : "s");
}

std::size_t width(std::string_view utf8) {
    return static_cast<std::size_t>(std::ranges::count_if(utf8, [](char byte) { return !is_continuation(byte); }));
}

std::string cut(std::string_view utf8, std::size_t columns) {
    if (width(utf8) <= columns) {
        return std::string(utf8);
    }
    std::string text;
    for (std::size_t column = 1; column < columns; ++column) {
        append_utf8(text, next_character(utf8));
    }
    return text + "…";
}

std::string only_ascii(std::string_view bytes) {
    std::string text{bytes};
    std::ranges::replace_if(
        text, [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; }, '?');
    return text;
}

} // namespace vxpadctl
