// The library's pauses and time-outs by the real clock, on a pad that misbehaves on request.
#include "pad_test.hpp"

using namespace pads;

namespace {

constexpr int pad = 1;

class TimeOuts : public InitializedPads {
  protected:
    static double seconds_with(const std::string& fault, const std::function<int()>& call) {
        to_pad("fault", pad, fault);
        int result = 0;
        const auto start = std::chrono::steady_clock::now();
        result = call();
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        EXPECT_EQ(failure(result).code, static_cast<unsigned int>(VXPCEC_INVALID_HANDLE));
        to_pad("clear-faults", pad);
        EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
        return took.count();
    }
};

TEST_F(TimeOuts, EndAWriteThatStalls) {
    const auto seconds = seconds_with("stall,on=set-feature", [] { return set_feature(1, 0, report(65, 0x80)); });
    EXPECT_GE(seconds, 1);
    EXPECT_LT(seconds, patience(3)) << "the last of the doubled pauses begins before the time-out";
}

TEST_F(TimeOuts, EndAReadThatStaysSilent) {
    const auto seconds = seconds_with("silence,on=get-feature", [] { return read(GetFeature, 1, 0).result; });
    EXPECT_GE(seconds, 1);
    EXPECT_LT(seconds, patience(2));
}

TEST_F(TimeOuts, EndAReadThatStaysShort) {
    const auto seconds = seconds_with("short=1,on=get-feature", [] { return read(GetFeature, 1, 0).result; });
    EXPECT_GE(seconds, 1);
    EXPECT_LT(seconds, patience(2));
}

TEST_F(TimeOuts, EndTheReadOfAPadThatHasGone) {
    to_pad("unplug", pad);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(failure(read(GetFeature, 1, 0).result),
              invalid_handle("GetFeature", "Error of read HID feature for device: 1"));
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took.count(), 2) << "a time-out for the read and one for opening the pad again";
    EXPECT_LT(took.count(), patience(6));
}

TEST_F(TimeOuts, DoNotDelayWhatSucceeds) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::duration<double>(patience(2)));
}

} // namespace
