// Strings of pads, from the command line and back.
#include "base/text.hpp"

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

using emulator::parse_string;
using emulator::utf8;

namespace {

TEST(Text, OfEveryLengthInUtf8ComesBackAsItWas) {
    for (const char* text :
         {"", "A", "\u00e9\u0416", "\u20ac\uffff", "\U0001f600 \U0010ffff", "a\u00e9\u20ac\U0001f600"}) {
        EXPECT_EQ(utf8(parse_string(text)), text);
    }
    EXPECT_EQ(parse_string("\U0001f600"), u"\xd83d\xde00");
    EXPECT_EQ(utf8(u"\xd83d\xde00"), "\U0001f600");
}

TEST(Text, HalvesOfAPairStandForThemselves) {
    EXPECT_EQ(parse_string("\\ud83dx"), u"\xd83dx");
    EXPECT_EQ(utf8(u"\xd83dx").size(), 4U);
    EXPECT_EQ(utf8(u"\xd83d").size(), 3U);
    EXPECT_EQ(utf8(u"\xde00\xd83d").size(), 6U);
}

TEST(Text, BackslashTakesTheMeaningOfTheNextCharacter) {
    EXPECT_EQ(parse_string("a\\,b\\\\c"), u"a,b\\c");
    EXPECT_EQ(parse_string("\\"), u"\\");
    EXPECT_EQ(parse_string("\\u00e9"), u"\u00e9");
}

TEST(Text, ThatIsNotUtf8IsRefused) {
    for (const char* text :
         {"\xff", "\x80", "\xc1\x81", "\xc3(", "\xe2\x82", "\xe2(\xac", "\xf5\x80\x80\x80", "\xf0\x9f\x98"}) {
        EXPECT_THROW(parse_string(text), std::invalid_argument) << text;
    }
    EXPECT_THROW(parse_string("\\uzzzz"), std::invalid_argument);
}

TEST(Text, HexadecimalDigitsComeInPairs) {
    EXPECT_EQ(emulator::hex(emulator::parse_hex("00aaFF")), "00aaff");
    for (const char* text : {"0", "0g", "xx"}) {
        EXPECT_THROW(emulator::parse_hex(text), std::invalid_argument) << text;
    }
}

} // namespace
