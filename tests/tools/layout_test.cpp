#include "layout.hpp"
#include "scratch.hpp"

#include <gmock/gmock.h>

using namespace vxpadctl;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::vector<std::uint8_t> one_packet{0x80, 0x01, 0x02, 0xff, 0xfe};

std::optional<std::int64_t> value(const std::string& field) {
    return parse_layout("f=" + field).at(0).read(one_packet);
}

template <typename Parse> std::string layout_refusal(Parse parse) {
    try {
        parse();
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "(accepted)";
}

std::string refused(const std::string& text) {
    return layout_refusal([&] { parse_layout(text); });
}

class LayoutFile : public vxpadctl_test::Scratch {};

TEST(Layout, HasFieldsWithNames) {
    const Layout layout = parse_layout("x=2:u16le,pen_2-up=4095:i8");
    ASSERT_EQ(layout.size(), 2U);
    ASSERT_NE(find_field(layout, "pen_2-up"), nullptr);
    EXPECT_EQ(find_field(layout, "pen_2-up")->offset, 4095U);
    EXPECT_EQ(find_field(layout, "y"), nullptr);
}

TEST(Layout, ReadsNumbersOfEveryType) {
    EXPECT_EQ(value("0:u8"), 0x80);
    EXPECT_EQ(value("0:i8"), -0x80);
    EXPECT_EQ(value("1:i8"), 1);
    EXPECT_EQ(value("0:u16le"), 0x0180);
    EXPECT_EQ(value("0:u16be"), 0x8001);
    EXPECT_EQ(value("3:i16le"), -257);
    EXPECT_EQ(value("3:i16be"), -2);
    EXPECT_EQ(value("1:i16be"), 0x0102);
    EXPECT_EQ(value("1:u32le"), 0xfeff0201);
    EXPECT_EQ(value("0:u32be"), 0x800102ff);
    EXPECT_EQ(value("1:i32le"), std::int64_t{0xfeff0201} - (std::int64_t{1} << 32));
    EXPECT_EQ(value("0:i32be"), std::int64_t{0x800102ff} - (std::int64_t{1} << 32));
}

TEST(Layout, TellsThatAPacketIsTooShort) {
    EXPECT_EQ(value("4:u8"), 0xfe);
    for (const char* field : {"5:u8", "4:u16le", "2:i32be", "4095:u32le"}) {
        EXPECT_EQ(value(field), std::nullopt) << field;
    }
}

TEST(Layout, RefusesWhatIsNone) {
    for (const char* text : {"x", "x=2", "=2:u8:", "x:2=u8", ",x=2:u8", "x=2:u8,,y=3:u8", " "}) {
        EXPECT_THAT(refused(text), StartsWith("'")) << text;
    }
    for (const char* text : {"X=2:u8", "2=2:u8", "=2:u8", "x y=2:u8"}) {
        EXPECT_THAT(refused(text), HasSubstr("a name consists of")) << text;
    }
    for (const char* offset : {"", "-1", "4096", "0x2", "2 ", "99999999999999999999"}) {
        EXPECT_THAT(refused("x=" + std::string(offset) + ":u8"), HasSubstr("a number from 0 to 4095")) << offset;
    }
    for (const char* type : {"", "u16", "u64le", "U8", "u8 "}) {
        EXPECT_THAT(refused("x=2:" + std::string(type)),
                    HasSubstr("the types are u8, i8, u16le, u16be, i16le, i16be, u32le, u32be, i32le, i32be"))
            << type;
    }
    EXPECT_THAT(refused("x=2:u8,x=4:u8"), AllOf(StartsWith("'x=4:u8'"), HasSubstr("of that name already")));
    EXPECT_THAT(refused(""), HasSubstr("at least one field"));
}

TEST_F(LayoutFile, HasFieldsInLinesAndComments) {
    const Layout layout =
        read_layout(write("pad.layout", "# Pad 100, x=9:u8\n\n  x=2:u16le, y=4:u16le,\npressure=6:u8\n"));
    ASSERT_EQ(layout.size(), 3U);
    EXPECT_EQ(find_field(layout, "y")->offset, 4U);
    EXPECT_EQ(find_field(layout, "pressure")->type->name, "u8");
}

TEST_F(LayoutFile, TellsTheLineThatIsWrong) {
    EXPECT_THAT(layout_refusal([&] { read_layout(write("pad.layout", "x=2:u8\n# a comment\ny=4:u9\n")); }),
                HasSubstr("pad.layout:3: 'y=4:u9'"));
    EXPECT_THAT(layout_refusal([&] { read_layout(write("pad.layout", "# nothing\n")); }), HasSubstr("no field at all"));
    EXPECT_THAT(layout_refusal([&] { read_layout(directory_ / "missing"); }), HasSubstr("No such file"));
}

TEST(Layout, OfVirtualPadsComesAsAFile) {
    const Layout layout = read_layout(VIRTUAL_PAD_LAYOUT);
    for (const Field& field : parse_layout("x=2:u16le,y=4:u16le,pressure=6:u16le,number=8:u32le")) {
        const Field* found = find_field(layout, field.name);
        ASSERT_NE(found, nullptr) << field.name;
        EXPECT_EQ(found->offset, field.offset) << field.name;
        EXPECT_EQ(found->type, field.type) << field.name;
    }
}

} // namespace

TEST(Layout, FieldsLieWithinThePackets) {
    const Layout layout = parse_layout("y=4:u16le");
    EXPECT_NO_THROW(expect_within(layout[0], 6));
    try {
        expect_within(layout[0], 5);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "the field y lies beyond the packets: it ends with byte 5, counted from 0, and the "
                                   "longest packet has 5 bytes");
    }
}
