// Rows of text in aligned columns.
#pragma once

#include <string>
#include <vector>

namespace vxpadctl {

using Row = std::vector<std::string>;

// All rows have as many cells as the first one, in UTF-8 that is fit for a terminal. Long cells are cut.
std::string format_table(std::vector<Row> rows);

} // namespace vxpadctl
