#include "arguments.hpp"

#include <gmock/gmock.h>
#include <string>
#include <vector>

using namespace vxpadctl;
using testing::HasSubstr;

namespace {

Arguments parsed(std::vector<std::string> words) {
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    return parse_arguments(pointers);
}

// What the usage error says.
std::string refusal(const std::vector<std::string>& words) {
    try {
        parsed(words);
    } catch (const UsageError& error) {
        return error.what();
    }
    return "(accepted)";
}

} // namespace

TEST(Arguments, ListTakesOptionsOnEitherSide) {
    EXPECT_EQ(parsed({"list"}).command, Command::list);
    EXPECT_FALSE(parsed({"list"}).json);
    EXPECT_TRUE(parsed({"list", "--json"}).json);
    const Arguments arguments = parsed({"--trace", "--json", "list"});
    EXPECT_TRUE(arguments.json);
    EXPECT_TRUE(arguments.trace);
}

TEST(Arguments, FeatureSetCollectsBytes) {
    const Arguments arguments = parsed({"feature", "set", "2", "--interface", "1", "01", "--fill", "0203", "--reply"});
    EXPECT_EQ(arguments.command, Command::feature_set);
    EXPECT_EQ(arguments.pad, 2U);
    EXPECT_EQ(arguments.interface, 1U);
    EXPECT_TRUE(arguments.fill);
    EXPECT_TRUE(arguments.reply);
    EXPECT_EQ(arguments.bytes, (Bytes{1, 2, 3}));
}

TEST(Arguments, ValuesMayFollowAnEqualsSign) {
    const Arguments arguments = parsed({"report", "read", "1", "--wait=0", "--count=3", "--interface=8"});
    EXPECT_EQ(arguments.command, Command::report_read);
    EXPECT_EQ(arguments.wait, 0U);
    EXPECT_EQ(arguments.count, 3U);
    EXPECT_EQ(arguments.interface, 8U);
    EXPECT_EQ(parsed({"feature", "get", "1", "--length=20"}).length, 20U);
}

TEST(Arguments, HelpAndVersionNeedNothingElse) {
    EXPECT_EQ(parsed({"--help"}).command, Command::help);
    EXPECT_EQ(parsed({"feature", "-h"}).command, Command::help);
    EXPECT_EQ(parsed({"--version"}).command, Command::version);
}

TEST(Arguments, WrongCommandsAreRefused) {
    EXPECT_EQ(refusal({}), "there is no command");
    EXPECT_EQ(refusal({"lst"}), "there is no command 'lst'");
    EXPECT_EQ(refusal({"feature"}), "'feature' needs to be told what to do");
    EXPECT_EQ(refusal({"report", "set", "1"}), "there is no command 'report set'");
    EXPECT_EQ(refusal({"list", "1"}), "'list' cannot make sense of '1'");
    EXPECT_EQ(refusal({"info", "1", "2"}), "'info' cannot make sense of '2'");
}

TEST(Arguments, WrongPadNumbersAreRefused) {
    EXPECT_THAT(refusal({"info"}), HasSubstr("'info' needs the number of a pad"));
    for (const char* pad : {"0", "x", "1x", "256", "99999999999999999999", "", "+1"})
        EXPECT_THAT(refusal({"info", pad}), HasSubstr("PAD takes a number from 1 to 255")) << pad;
}

TEST(Arguments, WrongOptionsAreRefused) {
    EXPECT_EQ(refusal({"list", "--jsno"}), "there is no option '--jsno'");
    EXPECT_EQ(refusal({"list", "--json=1"}), "there is no option '--json=1'");
    EXPECT_EQ(refusal({"list", "--wait", "1"}), "'list' has no option --wait");
    EXPECT_EQ(refusal({"feature", "get", "1", "--fill"}), "'feature get' has no option --fill");
    EXPECT_EQ(refusal({"feature", "get", "1", "--length"}), "--length needs a value");
    EXPECT_THAT(refusal({"feature", "get", "1", "--length", "0"}), HasSubstr("--length takes a number from 1"));
    EXPECT_THAT(refusal({"report", "read", "1", "--count=-1"}), HasSubstr("--count takes a number"));
    EXPECT_THAT(refusal({"report", "read", "1", "--interface=4294967296"}), HasSubstr("--interface takes a number"));
}

TEST(Arguments, WrongBytesAreRefused) {
    EXPECT_EQ(refusal({"feature", "set", "1"}), "the bytes to send are missing");
    EXPECT_THAT(refusal({"feature", "set", "1", "xy"}), HasSubstr("'xy' is not hexadecimal"));
    EXPECT_THAT(refusal({"report", "write", "1", std::string(2 * 4097, '0')}), HasSubstr("at most 4096 bytes"));
}

TEST(Arguments, HelpNamesEveryOption) {
    for (const char* name : {"--json", "--interface", "--length", "--reply", "--fill", "--wait", "--count", "--trace",
                             "--help", "--version", "Exit status"})
        EXPECT_THAT(help_text(), HasSubstr(name));
}
