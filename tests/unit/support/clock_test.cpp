#include "support/clock.hpp"

#include "standins.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

using standins::bus;

class Clock : public testing::Test {
  protected:
    Clock() { bus().reset(); }
    ~Clock() override { bus().reset(); }
};

TEST_F(Clock, TellsTheTimeThatHasPassed) {
    Stopwatch stopwatch;
    bus().advance_us(1'234'567);
    EXPECT_EQ(stopwatch.elapsed_ms(), 1234);
    EXPECT_EQ(stopwatch.elapsed_us(), 1'234'567);
}

TEST_F(Clock, ThatIsSetBackGoesOn) {
    Stopwatch stopwatch;
    bus().advance_us(5000);
    EXPECT_EQ(stopwatch.elapsed_ms(), 5);
    bus().advance_us(-1'000'000'000);
    EXPECT_EQ(stopwatch.elapsed_ms(), 5);
    bus().advance_us(2000);
    EXPECT_EQ(stopwatch.elapsed_ms(), 7);
}

// As when a machine without a battery hears the time from the network: more milliseconds than an int holds.
TEST_F(Clock, ThatIsSetAheadByYearsEndsATimeOut) {
    for (const std::int64_t days : {20, 30, 60, 20'000}) {
        Stopwatch stopwatch;
        bus().advance_us(days * 24 * 3600 * 1'000'000);
        EXPECT_GT(stopwatch.elapsed_ms(), 1'000'000'000) << days;
    }
}

TEST_F(Clock, ThatCannotBeReadEndsATimeOut) {
    Stopwatch stopwatch;
    bus().gettimeofday_result = -1;
    EXPECT_EQ(stopwatch.elapsed_ms(), std::numeric_limits<int>::max() / 2);
    bus().gettimeofday_result = 0;
    bus().advance_us(3000);
    EXPECT_EQ(stopwatch.elapsed_ms(), 3) << "once it can be read again all is as before";
}

TEST_F(Clock, ThatCouldNotBeReadAtTheStartEndsATimeOut) {
    bus().gettimeofday_result = -1;
    Stopwatch stopwatch;
    bus().gettimeofday_result = 0;
    EXPECT_EQ(stopwatch.elapsed_ms(), std::numeric_limits<int>::max() / 2);
}

} // namespace
