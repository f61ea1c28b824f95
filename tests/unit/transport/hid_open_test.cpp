// Opening and closing one HID interface.
#include "core_test.hpp"

namespace core_test {
namespace {

using HidOpenTest = CoreTest;

TEST_F(HidOpenTest, OpensAtOnceAndMakesTheHandleBlocking) {
    bus().plug(pad_of_type(plain_type));
    hid_device_* const handle = hid_open_dev(path.c_str());
    EXPECT_NE(handle, nullptr);
    EXPECT_THAT(bus().log(), ElementsAre(opened(), blocking()));
    EXPECT_THAT(said(), Says("Going to open HID device " + path));
    hid_close_dev(handle);
}

TEST_F(HidOpenTest, NullPathIsRefusedWithoutACall) {
    EXPECT_EQ(hid_open_dev(nullptr), nullptr);
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_THAT(said(), Says("input parameter *patch == NULL"));
}

TEST_F(HidOpenTest, FailedTriesAreRepeatedAfterDoublingPauses) {
    bus().plug(pad_of_type(plain_type));
    bus().hooks.open_path = results({-1, -1, -1});
    hid_device_* const handle = hid_open_dev(path.c_str());
    EXPECT_NE(handle, nullptr);
    EXPECT_THAT(bus().log(),
                ElementsAre(opened(), paused(200), opened(), paused(400), opened(), paused(800), opened(), blocking()));
    EXPECT_EQ(times_said("failed"), 3);
    EXPECT_THAT(said(), Says("error: sleep_time: 200. elapsed_time: 0, time_out: 1000"));
    EXPECT_THAT(said(), Says("error: sleep_time: 800. elapsed_time: 1, time_out: 1000"));
    EXPECT_THAT(said(), Not(Says("exit by timeout")));
    hid_close_dev(handle);
}

TEST_F(HidOpenTest, GivesUpWhenThePausesHaveFilledASecond) {
    bus().hid_error_text = L"odd 100%s%n";
    EXPECT_EQ(hid_open_dev("gone"), nullptr);
    EXPECT_EQ(bus().pauses(), growing_pauses(tries_until_time_out));
    EXPECT_THAT(bus().log("hid_open_path"), SizeIs(tries_until_time_out));
    EXPECT_THAT(bus().log("hid_set_nonblocking"), IsEmpty());
    EXPECT_THAT(said(), Says("error: hid_open_path("));
    EXPECT_THAT(said(), Says("error: sleep_time: 819200. elapsed_time: 1638, time_out: 1000"));
    EXPECT_THAT(said(), Says("hid_open_path() return NULL"));
    EXPECT_THAT(said(), Says("exit by timeout: 1000 ms"));
    EXPECT_THAT(said(), Says("hid_open_path() failed and return NULL"));
}

// As in an application with an interval timer, whose signals end every pause.
TEST_F(HidOpenTest, SignalsDoNotMakeTheTriesMore) {
    bus().signals = true;
    EXPECT_EQ(hid_open_dev("gone"), nullptr);
    EXPECT_LE(bus().log("hid_open_path").size(), tries_until_time_out);
}

TEST_F(HidOpenTest, TimeSpentInsideTheCallsCounts) {
    bus().cost_us["hid_open_path"] = 400'000;
    EXPECT_EQ(hid_open_dev("gone"), nullptr);
    EXPECT_EQ(bus().pauses(), growing_pauses(3));
}

TEST_F(HidOpenTest, ClockThatIsSetBackDoesNotProlongTheTimeOut) {
    bus().hooks.usleep = [](unsigned int pause) {
        if (pause == 400) {
            bus().advance_us(-3'600'000'000);
        }
    };
    EXPECT_EQ(hid_open_dev("gone"), nullptr);
    EXPECT_LE(bus().pauses().size(), tries_until_time_out + 1);
}

TEST_F(HidOpenTest, PathWithPercentSignsIsLoggedVerbatim) {
    const std::string odd = "50%s%n%d";
    bus().plug(pad_of_type(plain_type, odd));
    hid_device_* const handle = hid_open_dev(odd.c_str());
    EXPECT_THAT(said(), Says("Going to open HID device " + odd));
    hid_close_dev(handle);
}

TEST_F(HidOpenTest, ClosingWaitsAMomentBeforeTheCall) {
    bus().plug(pad_of_type(plain_type));
    hid_device_* const handle = hid_open_dev(path.c_str());
    forget();
    hid_close_dev(handle);
    EXPECT_THAT(bus().log(), ElementsAre(paused(50), closed()));
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Going to call hid_close("), HasSubstr("done successful")));
}

TEST_F(HidOpenTest, ClosingNothingIsIgnored) {
    hid_close_dev(nullptr);
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_THAT(said(), IsEmpty());
}

} // namespace
} // namespace core_test
