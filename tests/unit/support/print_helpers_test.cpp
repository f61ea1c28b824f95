#include "support/lines.hpp"

#include "standins.hpp"
#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <ctime>
#include <string>
#include <vector>

using standins::EnvironmentGuard;
using testing::ElementsAre;

namespace {

using Bytes = std::vector<unsigned char>;

std::string bytes_text(const Bytes& bytes) {
    return print_bytes(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

std::string repeated(std::string_view text, int times) {
    std::string result;
    for (int i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

TEST(PrintBits, ShowsTheLowEightBitsMostSignificantFirst) {
    const struct {
        int value;
        const char* text;
    } cases[] = {{0, "00000000"},     {5, "00000101"},  {0x80, "10000000"}, {0x1FF, "11111111"},
                 {0x100, "00000000"}, {-1, "11111111"}, {0xA6, "10100110"}};
    for (const auto& one : cases) {
        EXPECT_STREQ(print_bits(one.value), one.text);
    }
}

TEST(PrintBits, KeepsItsTextUntilTheNextCall) {
    const char* text = print_bits(1);
    EXPECT_STREQ(text, "00000001");
    EXPECT_EQ(print_bits(2), text);
    EXPECT_STREQ(text, "00000010");
}

TEST(PrintBytes, ShowsUpperCaseHexWithABlankAfterEachByte) {
    EXPECT_EQ(bytes_text({0x01, 0xAB}), "[ 01 AB ]");
    EXPECT_EQ(bytes_text({0xFF}), "[ FF ]");
    EXPECT_EQ(bytes_text({0, 0, 0x0C}), "[ 00 00 0C ]");
}

TEST(PrintBytes, OfNothingIsAnEmptyPairOfBrackets) {
    EXPECT_STREQ(print_bytes(nullptr, 0), "[ ]");
    EXPECT_EQ(bytes_text({}), "[ ]");
}

TEST(PrintBytes, DropsWhatDoesNotFitAndFrom340BytesOnTheClosingBracket) {
    EXPECT_EQ(bytes_text(Bytes(338, 0x5A)), "[ " + repeated("5A ", 338) + "]");
    EXPECT_EQ(bytes_text(Bytes(339, 0x5A)), "[ " + repeated("5A ", 339) + "]");
    for (const std::size_t size : {340U, 341U, 1000U, 100000U}) {
        EXPECT_EQ(bytes_text(Bytes(size, 0x5A)), "[ " + repeated("5A ", 340)) << size;
    }
}

TEST(PrintBytes, LeavesNothingOfALongerTextBehind) {
    bytes_text(Bytes(340, 1));
    EXPECT_EQ(bytes_text({2}), "[ 02 ]");
}

TEST(IsItZeroArray, IsTrueWhenAllBytesAreZero) {
    const Bytes zero(64, 0);
    EXPECT_TRUE(is_it_zero_array(zero.data(), zero.size()));
    EXPECT_TRUE(is_it_zero_array(zero.data(), 0));
    const unsigned char one = 1;
    EXPECT_TRUE(is_it_zero_array(&one, 0));
    for (const std::size_t position : {0U, 1U, 31U, 63U}) {
        Bytes bytes(64, 0);
        bytes[position] = 0x80;
        EXPECT_FALSE(is_it_zero_array(bytes.data(), bytes.size())) << position;
        EXPECT_TRUE(is_it_zero_array(bytes.data(), position)) << position;
    }
}

class PrintCurrentTime : public testing::Test {
  protected:
    void SetUp() override {
        tzset();
        standins::bus().reset();
        standins::bus().advance_us(1'700'000'000'007'999 - standins::bus().now_us());
    }

    lines::AllSwitchesOff off_;
    const EnvironmentGuard zone_{"TZ", "TST-3"};
};

TEST_F(PrintCurrentTime, PrintsLocalDateAndTimeAsInformation) {
    const EnvironmentGuard on(lines::debug_switch, "1");
    const std::string printed = lines::written(STDOUT_FILENO, print_current_time);
    EXPECT_THAT(lines::texts(lines::parse_output(printed), lines::green),
                ElementsAre("info: print_current_time(): 2023/11/15 01:13:20.007"));
}

TEST_F(PrintCurrentTime, PrintsNothingWithTheSwitchOff) {
    EXPECT_EQ(lines::written(STDOUT_FILENO, print_current_time), "");
    EXPECT_EQ(lines::written(STDERR_FILENO, print_current_time), "");
}

} // namespace
