#include "program/options.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using bridge::parse_options;
using bridge::UsageError;
using testing::ElementsAre;
using testing::HasSubstr;
using Words = std::vector<const char*>;

TEST(Options, AreTaken) {
    const auto options = parse_options(Words{"--port", "0", "--listen=::1", "--allow-origin", "https://a.example",
                                             "--allow-origin=http://localhost:1", "--layout=x=1:u8,y=2:i16be",
                                             "--token-file=t", "--address-file", "a"});
    EXPECT_EQ(options.port, 0);
    EXPECT_THAT(options.addresses, ElementsAre("::1"));
    EXPECT_THAT(options.origins, ElementsAre("https://a.example", "http://localhost:1"));
    EXPECT_EQ(options.layout, "x=1:u8,y=2:i16be");
    EXPECT_EQ(options.token_file, "t");
    EXPECT_EQ(options.address_file, "a");
    EXPECT_EQ(parse_options(Words{}).port, 7429);
    EXPECT_EQ(parse_options(Words{"--layout=@" VIRTUAL_PAD_LAYOUT}).layout,
              "x=2:u16le,y=4:u16le,pressure=6:u16le,number=8:u32le");
}

TEST(Options, ThatAreWrongAreRefused) {
    for (const Words& words :
         {Words{"--nothing"}, Words{"word"}, Words{"--port"}, Words{"--port=65536"}, Words{"--port=x"},
          Words{"--port="}, Words{"--help=yes"}, Words{"--listen=0.0.0.0"}, Words{"--listen=127.0.0.2"},
          Words{"--listen=::"}, Words{"--allow-origin=*"}, Words{"--allow-origin=http://a.example"}, Words{"--layout="},
          Words{"--layout=@/nothing"}, Words{""}}) {
        EXPECT_THROW(parse_options(words), UsageError) << words[0];
    }
}

TEST(Options, AreAllTold) {
    const std::string help = bridge::help_text();
    for (const bridge::Option& option : bridge::option_table()) {
        EXPECT_THAT(help, HasSubstr("\n  " + std::string{option.name}));
        EXPECT_FALSE(option.help.empty());
    }
}

} // namespace
