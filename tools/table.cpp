#include "table.hpp"

#include "text.hpp"

#include <algorithm>
#include <cstddef>

namespace vxpadctl {

namespace {

constexpr std::size_t widest_cell = 40;
constexpr std::size_t gap = 2;

} // namespace

std::string format_table(std::vector<Row> rows, RowEnd end_of_rows) {
    std::vector<std::size_t> widths(rows.empty() ? 0 : rows.front().size());
    for (Row& row : rows) {
        for (std::size_t column = 0; column < widths.size(); ++column) {
            if (column + 1 < widths.size() || end_of_rows == RowEnd::cut) {
                row[column] = cut(row[column], widest_cell);
            }
            widths[column] = std::max(widths[column], width(row[column]));
        }
    }
    std::string text;
    for (const Row& row : rows) {
        std::string line;
        std::size_t end = 0;
        for (std::size_t column = 0; column < widths.size(); ++column) {
            line.append(end - width(line), ' ');
            line += row[column];
            end += widths[column] + gap;
        }
        text += line + '\n';
    }
    return text;
}

} // namespace vxpadctl
