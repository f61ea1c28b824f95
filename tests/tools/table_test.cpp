#include "table.hpp"

#include <gtest/gtest.h>

using vxpadctl::format_table;

TEST(Table, AlignsByCharactersWithoutTrailingBlanks) {
    EXPECT_EQ(format_table({{"#", "NAME", "ID"}, {"1", "éé", "a"}, {"10", "x", "bcd"}}), "#   NAME  ID\n"
                                                                                         "1   éé    a\n"
                                                                                         "10  x     bcd\n");
}

TEST(Table, CutsLongCells) {
    EXPECT_EQ(format_table({{std::string(255, 'x'), "y"}}), std::string(39, 'x') + "…  y\n");
}

TEST(Table, RowsMayEndWhole) {
    const std::string longest(255, 'x');
    EXPECT_EQ(format_table({{longest, longest}}, vxpadctl::RowEnd::whole),
              std::string(39, 'x') + "…  " + longest + "\n");
}

TEST(Table, MayBeEmpty) {
    EXPECT_EQ(format_table({}), "");
}
