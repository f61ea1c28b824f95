#include "text.hpp"

#include <gtest/gtest.h>

using namespace std::string_literals;
using namespace vxpadctl;

TEST(ToUtf8, ConvertsEveryLength) {
    EXPECT_EQ(to_utf8(u"aé€😀"), "aé€😀");
}

TEST(ToUtf8, EndsAtNul) {
    EXPECT_EQ(to_utf8(std::u16string_view(u"ab\0cd", 5)), "ab");
}

TEST(ToUtf8, ReplacesWhatIsNoCharacter) {
    EXPECT_EQ(to_utf8(u"a\xffff"), "a\ufffd");
    EXPECT_EQ(to_utf8(u"\xd83d"), "\ufffd");
    EXPECT_EQ(to_utf8(u"\xd83dx"), "\ufffdx");
    EXPECT_EQ(to_utf8(u"\xde00\xd83d"), "\ufffd\ufffd");
}

TEST(ForTerminal, EscapesWhatATerminalActsOn) {
    EXPECT_EQ(for_terminal("\x1b[31m\a\n\x7f"), R"(\x1b[31m\x07\x0a\x7f)");
    EXPECT_EQ(for_terminal("\u009b1m"), R"(\x9b1m)");
    EXPECT_EQ(for_terminal("a\u202eb\u200fc\ufeff"), R"(a\u202eb\u200fc\ufeff)");
}

TEST(ForTerminal, LeavesTheRestAndStaysUnambiguous) {
    EXPECT_EQ(for_terminal("aé€😀 %s\""), "aé€😀 %s\"");
    EXPECT_EQ(for_terminal(R"(\x1b)"), R"(\\x1b)");
}

TEST(ForTerminal, ReplacesWhatIsNoUtf8) {
    EXPECT_EQ(for_terminal("a\xff\xfe b"), "a\ufffd\ufffd b");
    EXPECT_EQ(for_terminal("\xc0\x80"), "\ufffd\ufffd") << "longer than needed";
    EXPECT_EQ(for_terminal("\xe0\x9f\xbf"), "\ufffd\ufffd\ufffd");
    EXPECT_EQ(for_terminal("\xf0\x8f\xbf\xbf"), "\ufffd\ufffd\ufffd\ufffd");
    EXPECT_EQ(for_terminal("\xed\xa0\x80"), "\ufffd\ufffd\ufffd") << "half of a pair";
    EXPECT_EQ(for_terminal("\xf4\x90\x80\x80"), "\ufffd\ufffd\ufffd\ufffd") << "beyond the last";
    EXPECT_EQ(for_terminal("\xe2\x82x"), "\ufffdx") << "cut short is one";
    EXPECT_EQ(for_terminal("\xe2\x82"), "\ufffd");
    EXPECT_EQ(for_terminal("\xf1\x80\x80\xe2\x82\xac"), "\ufffd€");
    EXPECT_EQ(for_terminal("\x80\xbf"), "\ufffd\ufffd");
    EXPECT_EQ(for_terminal("\xed\x9f\xbf\xee\x80\x80\xf4\x8f\xbf\xbf"), "\xed\x9f\xbf\xee\x80\x80\xf4\x8f\xbf\xbf");
}

TEST(WithoutEscapes, IsWhatForTerminalWasGiven) {
    for (const char* text :
         {"", "plain", "\x1b[31m\a\n\x7f", "\u009b1m", "a\u202eb\u200fc\ufeff", R"(\x1b)", R"(\\)", "é€😀"}) {
        EXPECT_EQ(without_escapes(for_terminal(text)), text);
    }
}

TEST(WithoutEscapes, LeavesWhatNobodyEscapes) {
    for (const char* text :
         {R"(\)", R"(\x)", R"(\x1)", R"(\x41)", R"(\xzz)", R"(\u20)", R"(\u0041)", R"(\n)", R"(\x+1)"}) {
        EXPECT_EQ(without_escapes(text), text);
    }
}

TEST(XmlText, FitsElementsAndAttributes) {
    EXPECT_EQ(xml_text("<a b=\"&\">é"), "&lt;a b=&quot;&amp;&quot;&gt;é");
    EXPECT_EQ(xml_text("\x1b\n\x01"), R"(\x1b\x0a\x01)");
    EXPECT_EQ(xml_text("\xff\ufffe\uffff"), "\ufffd\ufffd\ufffd");
}

TEST(JsonString, IsUtf8WhateverItWas) {
    EXPECT_EQ(json_string("\xff\"\xe2\x82"), "\"\ufffd\\\"\ufffd\"");
}

TEST(JsonString, EscapesWhatJsonAndTerminalsNeed) {
    EXPECT_EQ(json_string(R"(a"b\c/)"), R"("a\"b\\c/")");
    EXPECT_EQ(json_string("\x1b\n\t\u0085é"), R"("\u001b\u000a\u0009\u0085é")");
    EXPECT_EQ(json_string(""), R"("")");
}

TEST(Decimal, HasAsManyPlacesAsAsked) {
    EXPECT_EQ(decimal(1.25, 1), "1.2");
    EXPECT_EQ(decimal(-1.251, 2), "-1.25");
    EXPECT_EQ(decimal(99.9, 0), "100");
    EXPECT_EQ(decimal(1e21, 1), "1000000000000000000000.0");
}

TEST(Counted, SaysOneAndMany) {
    EXPECT_EQ(counted(0, "packet"), "0 packets");
    EXPECT_EQ(counted(1, "byte"), "1 byte");
    EXPECT_EQ(counted(2, "byte"), "2 bytes");
}

TEST(Cut, CountsCharactersNotBytes) {
    EXPECT_EQ(width("é€😀"), 3U);
    EXPECT_EQ(cut("éééé", 4), "éééé");
    EXPECT_EQ(cut("ééééé", 4), "ééé…");
    EXPECT_EQ(cut("éé", 1), "…");
    EXPECT_EQ(cut("\xe2", 1), "\xe2");
}
