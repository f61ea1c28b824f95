#include "pad_output.hpp"

#include <gmock/gmock.h>

using namespace vxpadctl;
using testing::HasSubstr;

TEST(PadOutput, MissingTextsShowAsADash) {
    const std::vector<Pad> pads{{1, "", "", "P", "", {0x1, 0x2}, 1, 64}};
    EXPECT_EQ(pad_table(pads), "#  TRANSPORT  MAKER  PRODUCT  SERIAL  ID         INTERFACES\n"
                               "1  -          -      P        -       0001:0002  1\n");
    EXPECT_THAT(pad_details(pads[0]), HasSubstr("Maker:          -\n"));
    EXPECT_THAT(pad_json(pads[0]), HasSubstr("\"maker\": \"\""));
}

TEST(PadOutput, NoPadsAreAnEmptyList) {
    EXPECT_EQ(pad_list_json({}), "[]\n");
}
