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
}
