#include "layout.hpp"

#include "text.hpp"

#include "../emulator/base/text_file.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace vxpadctl {

namespace {

constexpr std::size_t last_offset = 4095;
constexpr std::size_t longest_name = 40;

constexpr std::array<FieldType, 10> types{{
    {"u8", 1, false, false},
    {"i8", 1, true, false},
    {"u16le", 2, false, false},
    {"u16be", 2, false, true},
    {"i16le", 2, true, false},
    {"i16be", 2, true, true},
    {"u32le", 4, false, false},
    {"u32be", 4, false, true},
    {"i32le", 4, true, false},
    {"i32be", 4, true, true},
}};

[[noreturn]] void refuse(std::string_view text, const std::string& why) {
    throw std::invalid_argument("'" + std::string(text) + "': " + why);
}

bool is_name(std::string_view text) {
    const auto is_letter = [](char c) { return c >= 'a' && c <= 'z'; };
    const auto fits = [&](char c) { return is_letter(c) || (c >= '0' && c <= '9') || c == '-' || c == '_'; };
    return !text.empty() && text.size() <= longest_name && is_letter(text.front()) && std::ranges::all_of(text, fits);
}

Field parse_field(std::string_view text) {
    const auto equals = text.find('=');
    const auto colon = text.find(':', equals);
    if (equals == std::string_view::npos || colon == std::string_view::npos) {
        refuse(text, "a field is given as NAME=OFFSET:TYPE");
    }
    const std::string_view name = text.substr(0, equals);
    if (!is_name(name)) {
        refuse(text, "a name consists of lower-case letters, digits, - and _");
    }
    const std::string_view digits = text.substr(equals + 1, colon - equals - 1);
    std::size_t offset = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), offset);
    if (error != std::errc{} || end != digits.data() + digits.size() || offset > last_offset) {
        refuse(text, "an offset is a number from 0 to " + std::to_string(last_offset));
    }
    const auto type = std::ranges::find(types, text.substr(colon + 1), &FieldType::name);
    if (type == types.end()) {
        refuse(text, "the types are " + list_field_types());
    }
    return {std::string(name), offset, &*type};
}

void add_fields(Layout& layout, std::string_view text) {
    while (!text.empty()) {
        const auto end = std::min(text.find(','), text.size());
        Field field = parse_field(text.substr(0, end));
        if (find_field(layout, field.name) != nullptr) {
            refuse(text.substr(0, end), "there is a field of that name already");
        }
        layout.push_back(std::move(field));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

} // namespace

std::optional<std::int64_t> Field::read(std::span<const std::uint8_t> packet) const {
    if (packet.size() < offset || packet.size() - offset < type->size) {
        return std::nullopt;
    }
    std::int64_t number = 0;
    for (std::size_t i = 0; i < type->size; ++i) {
        number = number << 8 | packet[offset + (type->big_endian ? i : type->size - 1 - i)];
    }
    const std::int64_t beyond = std::int64_t{1} << 8 * type->size;
    return type->is_signed && number >= beyond / 2 ? number - beyond : number;
}

Layout parse_layout(std::string_view text) {
    Layout layout;
    add_fields(layout, text);
    if (layout.empty()) {
        throw std::invalid_argument("a layout has at least one field, NAME=OFFSET:TYPE");
    }
    return layout;
}

Layout read_layout(const std::string& file) {
    Layout layout;
    emulator::read_lines(file, [&](const emulator::Words& words) {
        if (words.empty() || words.front().starts_with('#')) {
            return;
        }
        for (const std::string_view word : words) {
            add_fields(layout, word);
        }
    });
    if (layout.empty()) {
        throw std::invalid_argument(file + ": no field at all");
    }
    return layout;
}

const Field* find_field(const Layout& layout, std::string_view name) {
    const auto found = std::ranges::find(layout, name, &Field::name);
    return found == layout.end() ? nullptr : &*found;
}

void expect_within(const Field& field, std::size_t longest_packet) {
    const std::size_t end = field.offset + field.type->size;
    if (end > longest_packet) {
        throw std::runtime_error("the field " + field.name + " lies beyond the packets: it ends with byte " +
                                 std::to_string(end - 1) + ", counted from 0, and the longest packet has " +
                                 counted(longest_packet, "byte"));
    }
}

std::string list_field_types() {
    std::string text;
    for (const FieldType& type : types) {
        text.append(text.empty() ? "" : ", ").append(type.name);
    }
    return text;
}

} // namespace vxpadctl
