// Feature, output and input reports on a HID handle.
#include "core_test.hpp"

#include <numeric>

namespace core_test {
namespace {

Bytes counted(std::size_t size) {
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(1));
    return bytes;
}

class HidReportsTest : public CoreTest {
  protected:
    HidReportsTest() : pad(bus().plug(pad_of_type(plain_type))), handle(hid_open_dev(path.c_str())) { forget(); }

    void TearDown() override {
        hid_close_dev(handle);
        CoreTest::TearDown();
    }

    int read(Bytes& data) { return hid_feature_read(handle, data.data(), static_cast<unsigned int>(data.size())); }

    HidInterface& pad;
    hid_device_* handle;
};

// Arguments, for all four operations: length, then data, then handle.

struct Operation {
    const char* name;
    int (*run)(hid_device_* handle, void* data, unsigned int length);
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

class HidArgumentsTest : public HidReportsTest, public testing::WithParamInterface<Operation> {};

INSTANTIATE_TEST_SUITE_P(
    All, HidArgumentsTest,
    testing::Values(Operation{"feature_read", hid_feature_read},
                    Operation{"feature_write",
                              [](hid_device_* h, void* data, unsigned int n) { return hid_feature_write(h, data, n); }},
                    Operation{"output_write",
                              [](hid_device_* h, void* data, unsigned int n) { return hid_output_write(h, data, n); }},
                    Operation{"input_read", hid_input_read}),
    [](const auto& test) { return test.param.name; });

TEST_P(HidArgumentsTest, LengthIsCheckedFirst) {
    EXPECT_EQ(GetParam().run(nullptr, nullptr, 0), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: unsigned int len is 0")));
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_P(HidArgumentsTest, DataIsCheckedSecond) {
    EXPECT_EQ(GetParam().run(nullptr, nullptr, 64), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: void *data is ")));
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_P(HidArgumentsTest, HandleIsCheckedLast) {
    Bytes data(64, 0xee);
    EXPECT_EQ(GetParam().run(nullptr, data.data(), 64), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: hid_device *hid is NULL")));
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_THAT(data, Each(0xee));
}

// Feature read.

TEST_F(HidReportsTest, FeatureReadReturnsThePayloadWithoutTheReportId) {
    pad.feature_replies.push_back(counted(64));
    Bytes data(64, 0xee);
    EXPECT_EQ(read(data), 0);
    EXPECT_EQ(data, counted(64));
    EXPECT_THAT(bus().log(), ElementsAre(asked()));
    EXPECT_THAT(said(), Says("GET HID FEATURE REPORT: ["));
    EXPECT_THAT(said(), Says("report size: "));
}

TEST_F(HidReportsTest, FeatureReadWritesNotOneByteBeyondTheLength) {
    pad.feature_replies.push_back(counted(20));
    Bytes data(21, 0xee);
    EXPECT_EQ(hid_feature_read(handle, data.data(), 20), 0);
    EXPECT_EQ(data[19], 20);
    EXPECT_EQ(data[20], 0xee);
}

TEST_F(HidReportsTest, FailedFeatureReadIsRepeatedAfterDoublingPauses) {
    bus().hooks.get_feature = results({-1, -1, -1});
    pad.feature_replies.push_back(counted(64));
    Bytes data(64);
    EXPECT_EQ(read(data), 0);
    EXPECT_EQ(data, counted(64));
    EXPECT_THAT(bus().log(), ElementsAre(asked(), paused(200), asked(), paused(400), asked(), paused(800), asked()));
    EXPECT_EQ(times_said("error: hid_get_feature_report("), 3);
    EXPECT_THAT(said(), Says("error: sleep_time: 400. elapsed_time: 0, time_out: 1000"));
}

TEST_F(HidReportsTest, FeatureReadThatKeepsFailingEndsAfterOneSecond) {
    bus().hooks.get_feature = always{-1};
    bus().hid_error_text = L"odd 100%s%n";
    Bytes data(64, 0xee);
    EXPECT_EQ(read(data), -1);
    EXPECT_THAT(data, Each(0xee));
    EXPECT_EQ(bus().pauses(), growing_pauses(tries_until_time_out));
    EXPECT_THAT(bus().log("hid_get_feature_report"), SizeIs(tries_until_time_out));
    EXPECT_THAT(last(3, said()),
                ElementsAre(HasSubstr("hid_get_feature_report() return -1"), HasSubstr("exit by timeout: 1000 ms"),
                            HasSubstr("hidapi error: odd 100%s%n")));
    EXPECT_EQ(times_said("hidapi error: odd 100%s%n"), static_cast<int>(tries_until_time_out + 1));
}

TEST_F(HidReportsTest, TimeSpentInsideFailingReadsCounts) {
    bus().hooks.get_feature = always{-1};
    bus().cost_us["hid_get_feature_report"] = 600'000;
    Bytes data(64);
    EXPECT_EQ(read(data), -1);
    EXPECT_EQ(bus().pauses(), growing_pauses(2));
}

TEST_F(HidReportsTest, ShortReadIsRepeatedAtOnceAndNotAddedUp) {
    pad.feature_replies.push_back(Bytes(32, 0xaa));
    pad.feature_replies.push_back(Bytes(32, 0xbb)); // together as long as a whole report
    pad.feature_replies.push_back(counted(64));
    Bytes data(64);
    EXPECT_EQ(read(data), 0);
    EXPECT_EQ(data, counted(64));
    EXPECT_THAT(bus().log("hid_get_feature_report"), SizeIs(3));
    EXPECT_THAT(bus().pauses(), IsEmpty());
}

// Lengths that no honest pad gives; each must end with the time-out, though nothing fails.
class HidOddLengthTest : public HidReportsTest, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(All, HidOddLengthTest, testing::Values(0, 1, 64, 66, 200, 0x7fffffff));

TEST_P(HidOddLengthTest, ReadEndsWithTheTimeOutAndWithoutPauses) {
    bus().hooks.get_feature = always{GetParam()};
    bus().cost_us["hid_get_feature_report"] = 1000;
    Bytes data(64);
    EXPECT_EQ(read(data), -1);
    EXPECT_THAT(bus().log("hid_get_feature_report"), SizeIs(1000));
    EXPECT_THAT(bus().pauses(), IsEmpty());
    EXPECT_THAT(said(), Says("exit by timeout: 1000 ms"));
}

TEST_F(HidReportsTest, NoNegativeLengthIsTakenForACompleteRead) {
    bus().hooks.get_feature = always{-2};
    bus().cost_us["hid_get_feature_report"] = 1000;
    Bytes data(64);
    EXPECT_EQ(read(data), -1);
}

// Feature and output write: the same traffic, only the trace differs.

struct Writer {
    const char* name;
    int (*write)(hid_device_* handle, const void* data, unsigned int length);
    const char* trace;
};

void PrintTo(const Writer& writer, std::ostream* out) {
    *out << writer.name;
}

class HidWriteTest : public HidReportsTest, public testing::WithParamInterface<Writer> {
  protected:
    int write(const Bytes& data) {
        return GetParam().write(handle, data.data(), static_cast<unsigned int>(data.size()));
    }
};

INSTANTIATE_TEST_SUITE_P(All, HidWriteTest,
                         testing::Values(Writer{"feature", hid_feature_write, "SEND HID FEATURE REPORT: ["},
                                         Writer{"output", hid_output_write, "WRITE HID REPORT: ["}),
                         [](const auto& test) { return test.param.name; });

// Output reports too go as feature reports, not through the interrupt OUT pipe.
TEST_P(HidWriteTest, SendsOneFeatureReportWithIdZeroInFront) {
    EXPECT_EQ(write({0xf9, 0x00, 0xab}), 0);
    EXPECT_THAT(bus().log(), ElementsAre("hid_send_feature_report(" + path + ", 4: 00 f9 00 ab)"));
    EXPECT_THAT(said(), Says(GetParam().trace));
}

TEST_P(HidWriteTest, FailedWriteIsRepeatedAfterDoublingPauses) {
    bus().hooks.send_feature = results({-1, -1});
    EXPECT_EQ(write(counted(3)), 0);
    const std::string once = "hid_send_feature_report(" + path + ", 4: 00 01 02 03)";
    EXPECT_THAT(bus().log(), ElementsAre(once, paused(200), once, paused(400), once));
    EXPECT_EQ(times_said("error: hid_send_feature_report("), 2);
}

TEST_P(HidWriteTest, WriteThatKeepsFailingEndsAfterOneSecond) {
    bus().hooks.send_feature = always{-1};
    EXPECT_EQ(write(counted(64)), -1);
    EXPECT_EQ(bus().pauses(), growing_pauses(tries_until_time_out));
    EXPECT_THAT(bus().log("hid_send_feature_report"), SizeIs(tries_until_time_out));
    EXPECT_THAT(last(3, said()),
                ElementsAre(HasSubstr("hid_send_feature_report() return -1"), HasSubstr("exit by timeout: 1000 ms"),
                            HasSubstr("hidapi error: no text")));
    EXPECT_EQ(times_said("hidapi error: no text"), static_cast<int>(tries_until_time_out + 1));
}

TEST_P(HidWriteTest, RestOfAPartialWriteIsSentByTheNextCall) {
    bus().hooks.send_feature = results({3, -1, 1});
    EXPECT_EQ(write(counted(6)), 0);
    const std::string name = "hid_send_feature_report(" + path;
    EXPECT_THAT(bus().log(), ElementsAre(name + ", 7: 00 01 02 03 04 05 06)", name + ", 4: 03 04 05 06)", paused(200),
                                         name + ", 4: 03 04 05 06)", name + ", 3: 04 05 06)"));
}

TEST_P(HidWriteTest, WriteOfNothingForEverEndsWithTheTimeOut) {
    bus().hooks.send_feature = always{0};
    bus().cost_us["hid_send_feature_report"] = 1000;
    EXPECT_EQ(write(counted(64)), -1);
    EXPECT_THAT(bus().log("hid_send_feature_report"), SizeIs(1000));
    EXPECT_THAT(bus().pauses(), IsEmpty());
    EXPECT_THAT(said(), Says("exit by timeout: 1000 ms"));
}

TEST_P(HidWriteTest, MoreSentThanThereWasCountsAsDone) {
    bus().hooks.send_feature = always{200};
    EXPECT_EQ(write(counted(64)), 0);
    EXPECT_THAT(bus().log(), SizeIs(1));
}

TEST_P(HidWriteTest, NothingFromOutsideTheBufferIsEverSent) {
    std::size_t longest = 0;
    bus().hooks.send_feature = [&](HidInterface&, std::span<const unsigned char> report) {
        longest = std::max(longest, report.size());
        return std::optional(-2);
    };
    bus().cost_us["hid_send_feature_report"] = 1000;
    EXPECT_EQ(write(counted(64)), -1);
    EXPECT_LE(longest, 65U);
}

TEST_P(HidWriteTest, CallersDataStaysAsItIs) {
    const Bytes original = counted(64);
    Bytes data = original;
    EXPECT_EQ(write(data), 0);
    EXPECT_EQ(data, original);
    EXPECT_EQ(pad.last_request, original);
}

// Input read.

TEST_F(HidReportsTest, InputReadIsNonBlockingOnlyForTheOneCall) {
    pad.input_reports.push_back(counted(64));
    Bytes data(64);
    EXPECT_EQ(hid_input_read(handle, data.data(), 64), 64);
    EXPECT_EQ(data, counted(64));
    EXPECT_THAT(bus().log(), ElementsAre(nonblocking(), "hid_read(" + path + ", 64)", blocking()));
    EXPECT_THAT(said(), Says("READ HID REPORT: [ 01 02 "));
}

TEST_F(HidReportsTest, InputReadWithNothingWaitingIsSilentAndLeavesTheHandleBlocking) {
    Bytes data(64, 0xee);
    EXPECT_EQ(hid_input_read(handle, data.data(), 64), 0);
    EXPECT_THAT(data, Each(0xee));
    EXPECT_THAT(last(1, bus().log()), ElementsAre(blocking()));
    EXPECT_THAT(said(), Not(Says("error")));
    EXPECT_THAT(said(), Not(Says("READ HID REPORT")));
}

TEST_F(HidReportsTest, FailedInputReadIsNotRepeated) {
    bus().hooks.read = always{-1};
    Bytes data(64);
    EXPECT_EQ(hid_input_read(handle, data.data(), 64), -1);
    EXPECT_THAT(bus().log(), ElementsAre(nonblocking(), "hid_read(" + path + ", 64)", blocking()));
    EXPECT_THAT(said(), Says("hid_read() failed with return code -1"));
    EXPECT_THAT(said(), Says("hidapi error: no text"));
}

// A read that waits may wait for ever, with the pad's lock held.
TEST_F(HidReportsTest, InputReadThatWouldWaitIsNotMade) {
    bus().nonblocking_result = -1;
    pad.input_reports.push_back(counted(64));
    Bytes data(64);
    EXPECT_EQ(hid_input_read(handle, data.data(), 64), -1);
    EXPECT_THAT(bus().log("hid_read"), IsEmpty());
    EXPECT_THAT(said(), Says("hid_set_nonblocking() failed"));
}

// A report of another length is reported as a failure and yet returned.
TEST_F(HidReportsTest, InputReadReturnsOddLengthsAsTheyCome) {
    for (const int length : {20, 200}) {
        bus().hooks.read = results({length});
        Bytes data(64);
        EXPECT_EQ(hid_input_read(handle, data.data(), 64), length);
        EXPECT_THAT(said(), Says("hid_read() failed with return code " + std::to_string(length)));
        EXPECT_THAT(said(), Not(Says("READ HID REPORT")));
    }
}

} // namespace
} // namespace core_test
