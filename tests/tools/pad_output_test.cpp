#include "pad_output.hpp"

#include <gmock/gmock.h>

using namespace vxpadctl;
using testing::EndsWith;
using testing::HasSubstr;

TEST(PadOutput, MissingTextsShowAsADash) {
    const std::vector<Pad> pads{{1, "", "", "P", "", {0x1, 0x2}, 1, 64}};
    EXPECT_EQ(pad_table(pads), "#  TRANSPORT  MAKER  PRODUCT  SERIAL  ID         INTERFACES\n"
                               "1  -          -      P        -       0001:0002  1\n");
    EXPECT_THAT(pad_details(pads[0], std::nullopt), HasSubstr("Maker:          -\n"));
    EXPECT_THAT(pad_info_json(pads[0], std::nullopt), HasSubstr("\"maker\": \"\""));
}

TEST(PadOutput, NoPadsAreAnEmptyList) {
    EXPECT_EQ(pad_list_json({}), "[]\n");
}

TEST(PadOutput, PadsWithoutSspHaveNoFactsAboutIt) {
    const Pad pad{1, "HID", "M", "P", "S", {0x1, 0x2}, 1, 64};
    EXPECT_THAT(pad_details(pad, std::nullopt), EndsWith("SSP:            no\n"));
    EXPECT_THAT(pad_info_json(pad, std::nullopt), EndsWith(", \"ssp\": null}"));
}

TEST(PadOutput, WhatAPadDidNotTellIsLeftOut) {
    const Pad pad{1, "HID", "M", "P", "S", {0x1, 0x2}, 1, 64};
    EXPECT_THAT(pad_details(pad, SspFacts{}), EndsWith("SSP:            yes\n"));
    EXPECT_THAT(pad_info_json(pad, SspFacts{}),
                EndsWith("\"ssp\": {\"packet_bytes\": null, \"input_bytes\": null, \"description\": null, "
                         "\"connection\": null}}"));
}

TEST(PadOutput, DescriptionsAreFitForATerminal) {
    const PadDescription description{{0x1, 0x2}, "1.2.3.4 \x1b[1m", "S\a"};
    EXPECT_EQ(description_details(description), "Signpad id:     0001:0002\n"
                                                "Firmware:       1.2.3.4 \\x1b[1m\n"
                                                "Signpad serial: S\\x07\n");
    EXPECT_EQ(description_json(description), R"({"vendor_id": "0001", "product_id": "0002", )"
                                             R"("version": "1.2.3.4 \u001b[1m", "serial": "S\u0007"})");
}

TEST(PadOutput, TypesWithoutANameShowADash) {
    const std::vector<std::uint32_t> types{11, 200};
    EXPECT_EQ(type_table(types, component_types, "COMPONENT"), "ID  TYPE  COMPONENT\n"
                                                               "0   11    signpad\n"
                                                               "1   200   -\n");
    EXPECT_EQ(type_list_json(types, component_types), "[{\"id\": 0, \"type\": 11, \"name\": \"signpad\"},\n"
                                                      " {\"id\": 1, \"type\": 200, \"name\": \"\"}]\n");
    EXPECT_EQ(type_list_json({}, component_types), "[]\n");
}
