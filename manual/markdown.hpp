// Pages of the manual that are documents of the tree as well.
#pragma once

#include "page.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace manual {

// The sections of a document: headings, paragraphs, lists, tables, and lines that are indented or between ```. What
// stands in front of the first heading of the second rank is the description. Of a table the first column becomes a
// head and the rest its text. Links lose their targets, unless these are addresses.
std::vector<Section> read_markdown(std::string_view text);

} // namespace manual
