// Lines of ids that an administrator adds, and how a file is cut into them.
#include "support/id_lines.hpp"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

using id_lines::Transport;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

namespace {

std::string complaint(std::string_view text) {
    const id_lines::Line line = id_lines::parse(text);
    return line.complaint != nullptr ? line.complaint : line.is_id ? "(an id)" : "(nothing)";
}

TEST(IdLine, TellsVendorProductTransportTypeAndName) {
    const id_lines::Line line = id_lines::parse("1234 abcd vcom 17 Counter pad, 2nd floor");
    ASSERT_TRUE(line.is_id);
    EXPECT_EQ(line.complaint, nullptr);
    EXPECT_EQ(line.id.vendor_id, 0x1234);
    EXPECT_EQ(line.id.product_id, 0xabcd);
    EXPECT_EQ(line.id.transport, Transport::vcom);
    EXPECT_EQ(line.id.pad_type, 17U);
    EXPECT_STREQ(line.id.name, "Counter pad, 2nd floor");
}

TEST(IdLine, MayHaveBlanksAllOverAndAForeignLineEnd) {
    const id_lines::Line line = id_lines::parse(" \t0x1\t 0XfF   hid\t8  Pad \t \r");
    ASSERT_TRUE(line.is_id) << line.complaint;
    EXPECT_EQ(line.id.vendor_id, 1);
    EXPECT_EQ(line.id.product_id, 0xff);
    EXPECT_EQ(line.id.transport, Transport::hid);
    EXPECT_EQ(line.id.pad_type, 8U);
    EXPECT_STREQ(line.id.name, "Pad");
}

TEST(IdLine, NeedsNoName) {
    const id_lines::Line line = id_lines::parse("1234 5678 hid 16");
    ASSERT_TRUE(line.is_id);
    EXPECT_STREQ(line.id.name, "");
}

TEST(IdLine, NamesAreAnyText) {
    EXPECT_STREQ(id_lines::parse("1234 5678 hid 16 Zähler # 1 \"a\tb\"").id.name, "Zähler # 1 \"a\tb\"");
    const std::string longest(id_lines::longest_name, 'n');
    EXPECT_EQ(id_lines::parse("1234 5678 hid 16 " + longest).id.name, longest);
    EXPECT_EQ(complaint("1234 5678 hid 16 n" + longest), "the name is longer than 63 bytes");
}

TEST(IdLine, CommentsAndEmptyLinesAreNothing) {
    for (const char* text : {"", " ", "\t\r", "#", "  # 1234 5678 hid 16", "#\x01\xff"}) {
        EXPECT_EQ(complaint(text), "(nothing)") << text;
    }
    EXPECT_EQ(complaint("#" + std::string(10000, 'x')), "(nothing)");
}

TEST(IdLine, KnowsEveryPadType) {
    for (unsigned int type = 0; type < 300; ++type) {
        const bool known = type == 1 || (type >= 8 && type <= 13) || (type >= 15 && type <= 17);
        EXPECT_EQ(id_lines::parse("1234 5678 hid " + std::to_string(type)).is_id, known) << type;
    }
}

TEST(IdLine, WhatIsWrongIsSaid) {
    const std::pair<const char*, const char*> wrong[] = {
        {"12345 5678 hid 16", "the vendor id"},
        {"0000 5678 hid 16", "the vendor id"},
        {"0x 5678 hid 16", "the vendor id"},
        {"12g4 5678 hid 16", "the vendor id"},
        {"-123 5678 hid 16", "the vendor id"},
        {"1234:5678 hid 16", "the vendor id"},
        {"1234", "the product id"},
        {"1234 0 hid 16", "the product id"},
        {"1234 hid 16", "the product id"},
        {"1234 00005678 hid 16", "the product id"},
        {"1234 5678", "the transport"},
        {"1234 5678 HID 16", "the transport"},
        {"1234 5678 hidvcom 16", "the transport"},
        {"1234 5678 hid", "the pad type"},
        {"1234 5678 hid 0x10", "the pad type"},
        {"1234 5678 hid 16a", "the pad type"},
        {"1234 5678 hid -1", "the pad type"},
        {"1234 5678 hid 99999999999999999999", "the pad type"},
        {"1234 5678 hid 16 a\x1b[31mb", "no text"},
        {"1234 5678 hid 16 a\x7f", "no text"},
        {"1234 5678 hid 16 a\rb", "no text"},
    };
    for (const auto& [text, part] : wrong) {
        EXPECT_THAT(complaint(text), HasSubstr(part)) << text;
    }
    EXPECT_THAT(complaint(std::string_view("1234 5678 hid 16 a\0b", 20)), HasSubstr("no text"));
    EXPECT_THAT(complaint("1234 5678 hid 16" + std::string(240, ' ')), HasSubstr("longer than 255 bytes"));
    EXPECT_EQ(complaint("1234 5678 hid 16" + std::string(239, ' ')), "(an id)");
}

using Lines = std::vector<std::pair<std::string, unsigned int>>;

Lines cut(const std::vector<std::string>& pieces) {
    Lines lines;
    const auto take = [&](std::string_view text, unsigned int number) { lines.emplace_back(text, number); };
    id_lines::Cutter cutter;
    for (const std::string& piece : pieces) {
        cutter.put(piece, take);
    }
    cutter.end(take);
    return lines;
}

TEST(IdLineCutter, NumbersLinesWhateverThePieces) {
    const auto expected = ElementsAre(Pair("one", 1U), Pair("", 2U), Pair("three", 3U));
    EXPECT_THAT(cut({"one\n\nthree"}), expected);
    EXPECT_THAT(cut({"o", "ne", "\n", "\nthr", "", "ee"}), expected);
    EXPECT_THAT(cut({"one\n\nthree\n"}), expected);
    EXPECT_THAT(cut({}), IsEmpty());
    EXPECT_THAT(cut({"\n"}), ElementsAre(Pair("", 1U)));
}

TEST(IdLineCutter, KeepsOneByteTooManyOfALineThatIsTooLong) {
    const std::string longest(id_lines::longest_line, 'a');
    EXPECT_THAT(cut({longest + "\n" + longest + "bcd", "efg\nnext"}),
                ElementsAre(Pair(longest, 1U), Pair(longest + "b", 2U), Pair("next", 3U)));
}

} // namespace
