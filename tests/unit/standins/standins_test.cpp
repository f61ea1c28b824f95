// The stand-ins themselves: without them the other tests would wait, or look for real pads.
#include "core_test.hpp"

#include <chrono>

namespace core_test {
namespace {

using StandinsTest = CoreTest;

TEST_F(StandinsTest, LibraryCallsTheStandInsOfLibusbAndHidapi) {
    core_initialize();
    EXPECT_THAT(bus().log(), ElementsAre("libusb_init()"));
    core_uninitialize();
    EXPECT_THAT(bus().log(), ElementsAre("libusb_init()", "hid_exit()"));
}

TEST_F(StandinsTest, LibraryReadsTheFakeClockAndItsPausesOnlyMoveIt) {
    const auto really_started = std::chrono::steady_clock::now();
    const auto started = bus().now_us();
    EXPECT_EQ(hid_open_dev("nowhere"), nullptr);
    EXPECT_GE(bus().now_us() - started, 1'000'000);
    EXPECT_LT(std::chrono::steady_clock::now() - really_started, std::chrono::milliseconds(900));
}

} // namespace
} // namespace core_test
