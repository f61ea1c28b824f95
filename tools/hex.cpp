#include "hex.hpp"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <system_error>

namespace vxpadctl {

namespace {

constexpr std::size_t bytes_per_line = 16;

void append_hex(std::string& text, const char* format, unsigned int value) {
    char digits[16];
    std::snprintf(digits, sizeof digits, format, value);
    text += digits;
}

void parse_group(std::string_view group, Bytes& bytes) {
    std::string_view digits = group;
    if (digits.starts_with("0x") || digits.starts_with("0X")) {
        digits.remove_prefix(2);
    }
    if (digits.empty() || digits.size() % 2 != 0) {
        throw std::invalid_argument("'" + std::string(group) + "' is not hexadecimal bytes of two digits each");
    }
    for (; !digits.empty(); digits.remove_prefix(2)) {
        std::uint8_t byte = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + 2, byte, 16);
        if (error != std::errc{} || end != digits.data() + 2) {
            throw std::invalid_argument("'" + std::string(group) + "' is not hexadecimal bytes of two digits each");
        }
        bytes.push_back(byte);
    }
}

} // namespace

void parse_hex(std::string_view text, Bytes& bytes) {
    for (;;) {
        const auto end = text.find_first_of(" ,:");
        parse_group(text.substr(0, end), bytes);
        if (end == std::string_view::npos) {
            return;
        }
        text.remove_prefix(end + 1);
    }
}

std::string hex_id(std::uint32_t value) {
    std::string text;
    append_hex(text, "%04x", value);
    return text;
}

std::string hex_line(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        append_hex(text, text.empty() ? "%02x" : " %02x", byte);
    }
    return text;
}

std::string hex_dump(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (std::size_t offset = 0; offset < bytes.size(); offset += bytes_per_line) {
        const auto line = bytes.subspan(offset, std::min(bytes_per_line, bytes.size() - offset));
        std::string characters;
        append_hex(text, "%04x ", static_cast<unsigned int>(offset));
        for (std::size_t i = 0; i < bytes_per_line; ++i) {
            if (i == bytes_per_line / 2) {
                text += ' ';
            }
            if (i >= line.size()) {
                text += "   ";
                continue;
            }
            append_hex(text, " %02x", line[i]);
            characters += line[i] >= 0x20 && line[i] < 0x7f ? static_cast<char>(line[i]) : '.';
        }
        text += "  |" + characters + "|\n";
    }
    return text;
}

} // namespace vxpadctl
