#include "hex.hpp"

#include <gtest/gtest.h>
#include <stdexcept>

using namespace vxpadctl;

namespace {

Bytes bytes_of(std::string_view text) {
    Bytes bytes;
    parse_hex(text, bytes);
    return bytes;
}

} // namespace

TEST(ParseHex, TakesEveryWayOfWritingBytes) {
    const Bytes expected{0x1f, 0x00, 0xab};
    for (const char* text : {"1f00ab", "1F00AB", "0x1f00ab", "1f:00:ab", "1f 00 ab", "0x1f,0x00,0xab"}) {
        EXPECT_EQ(bytes_of(text), expected) << text;
    }
}

TEST(ParseHex, Appends) {
    Bytes bytes{1};
    parse_hex("02", bytes);
    EXPECT_EQ(bytes, (Bytes{1, 2}));
}

TEST(ParseHex, RefusesEverythingElse) {
    for (const char* text : {"", "1", "1f0", "0x", "zz", "1g", "+1", "-1", "1f::2a", "1f:", " 1f"}) {
        EXPECT_THROW(bytes_of(text), std::invalid_argument) << text;
    }
}

TEST(HexId, HasFourDigits) {
    EXPECT_EQ(hex_id(0x1a), "001a");
}

TEST(HexLine, SeparatesBytes) {
    EXPECT_EQ(hex_line(Bytes{0x1b, 0x00, 0xff}), "1b 00 ff");
    EXPECT_EQ(hex_line({}), "");
}

TEST(HexDump, ShowsOffsetsBytesAndCharacters) {
    Bytes bytes(18, 0);
    bytes[0] = 0x1b;
    bytes[1] = 'A';
    bytes[8] = 0x7f;
    bytes[17] = '~';
    EXPECT_EQ(hex_dump(bytes), "0000  1b 41 00 00 00 00 00 00  7f 00 00 00 00 00 00 00  |.A..............|\n"
                               "0010  00 7e                                             |.~|\n");
    EXPECT_EQ(hex_dump({}), "");
}
