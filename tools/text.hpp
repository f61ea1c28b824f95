// Text that comes from a pad or names a file, and the ways to show it. Bytes that are no UTF-8 are shown as U+FFFD.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vxpadctl {

// UTF-8 up to the first NUL. What is no character becomes U+FFFD, the library's mark 0xffff for bytes that it could
// not convert included.
std::string to_utf8(std::u16string_view units);

// The same text without anything that a terminal acts on: such characters and the backslash are written as escapes.
std::string for_terminal(std::string_view utf8);

// What for_terminal() was given; what it does not write is left as it is.
std::string without_escapes(std::string_view text);

// The text of an element or an attribute, with the escapes of for_terminal(): a control character has no place in XML.
std::string xml_text(std::string_view utf8);

// A quoted JSON string, harmless for terminals as well.
std::string json_string(std::string_view utf8);

// With so many digits behind the point.
std::string decimal(double number, int places);

// "1 packet", "2 packets"
std::string counted(std::size_t number, std::string_view thing);

// Columns that a text without control characters takes.
std::size_t width(std::string_view utf8);

// At most so many columns; a text that was cut ends in an ellipsis.
std::string cut(std::string_view utf8, std::size_t columns);

// With "?" for every byte of other characters, of texts that may be no UTF-8.
std::string only_ascii(std::string_view bytes);

} // namespace vxpadctl
