// Where the numbers are in the packets of a pad: "x=2:u16le,y=4:u16le,pressure=6:u16le".
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vxpadctl {

struct FieldType {
    std::string_view name;
    std::size_t size; // bytes
    bool is_signed;
    bool big_endian;
};

struct Field {
    std::string name;
    std::size_t offset;
    const FieldType* type;

    // Nothing where the packet is too short for it.
    std::optional<std::int64_t> read(std::span<const std::uint8_t> packet) const;
};

using Layout = std::vector<Field>;

// Both throw std::invalid_argument. A file has such fields in its lines, with commas or blanks in between, and comments
// in lines that begin with #.
Layout parse_layout(std::string_view text);
Layout read_layout(const std::string& file);

// Null where there is none of that name.
const Field* find_field(const Layout& layout, std::string_view name);

// Throws std::runtime_error where the longest packet is too short for the field.
void expect_within(const Field& field, std::size_t longest_packet);

// "u8, i8, u16le ..."
std::string list_field_types();

} // namespace vxpadctl
