// Rows of text in aligned columns.
#pragma once

#include <string>
#include <vector>

namespace vxpadctl {

using Row = std::vector<std::string>;

// All rows have as many cells as the first one, in UTF-8 that is fit for a terminal. Long cells are cut, but for the
// last ones of rows that are to end whole.
enum class RowEnd { cut, whole };
std::string format_table(std::vector<Row> rows, RowEnd end = RowEnd::cut);

} // namespace vxpadctl
