// Message bytes that a pad hands out in feature reports.
#include "core_test.hpp"

namespace core_test {
namespace {

constexpr unsigned char write_framebuf_data = 249;

Bytes frame(unsigned char command, unsigned char status, unsigned char first = 1) {
    Bytes bytes(64);
    bytes[0] = command;
    bytes[1] = status;
    for (std::size_t i = 2; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(first + i - 2);
    }
    return bytes;
}

Bytes data_of(const Bytes& frame, std::ptrdiff_t size) {
    return {frame.begin() + 2, frame.begin() + 2 + size};
}

class HidSspDataTest : public CoreTest {
  protected:
    HidSspDataTest() : pad(bus().plug(pad_of_type(plain_type))), handle(hid_open_dev(path.c_str())) { forget(); }

    void TearDown() override {
        hid_close_dev(handle);
        CoreTest::TearDown();
    }

    int read(Bytes& data, unsigned int time_out = 100, unsigned char request = 0) {
        return hid_read_ssp_data(handle, data.data(), static_cast<unsigned int>(data.size()), time_out, request);
    }

    HidInterface& pad;
    hid_device_* handle;
};

TEST_F(HidSspDataTest, CopiesAtMost62Bytes) {
    pad.feature_replies.push_back(frame(write_framebuf_data, 0));
    Bytes data(100, 0xee);
    EXPECT_EQ(read(data), 62);
    EXPECT_EQ(Bytes(data.begin(), data.begin() + 62), data_of(frame(write_framebuf_data, 0), 62));
    EXPECT_THAT(Bytes(data.begin() + 62, data.end()), Each(0xee));
    EXPECT_THAT(bus().log(), ElementsAre(asked()));
    EXPECT_THAT(said(), Says("time_out: 100"));
}

TEST_F(HidSspDataTest, CopiesNoMoreThanWasAskedFor) {
    pad.feature_replies.push_back(frame(write_framebuf_data, 0));
    Bytes data(11, 0xee);
    EXPECT_EQ(hid_read_ssp_data(handle, data.data(), 10, 100, 0), 10);
    EXPECT_EQ(Bytes(data.begin(), data.begin() + 10), data_of(frame(write_framebuf_data, 0), 10));
    EXPECT_EQ(data[10], 0xee);
}

TEST_F(HidSspDataTest, RequestsBeforeEveryReadWhenToldTo) {
    pad.feature_replies.push_back(frame(write_framebuf_data, 7));
    pad.feature_replies.push_back(frame(write_framebuf_data, 0));
    bus().cost_us["hid_get_feature_report"] = 2000;
    Bytes data(62);
    EXPECT_EQ(read(data, 100, 1), 62);
    EXPECT_THAT(bus().log(), ElementsAre(sent("f9"), asked(), sent("f9"), asked()));
}

TEST_F(HidSspDataTest, ArgumentsAreCheckedInOrderHandleSizeData) {
    Bytes data(10, 0xee);
    EXPECT_EQ(hid_read_ssp_data(nullptr, nullptr, 0, 100, 1), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: hid_device *hid is NULL")));
    forget();
    EXPECT_EQ(hid_read_ssp_data(handle, nullptr, 0, 100, 1), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: unsigned int data_size is 0")));
    forget();
    EXPECT_EQ(hid_read_ssp_data(handle, nullptr, 10, 100, 1), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: void *data is ")));
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(HidSspDataTest, PadWithAnErrorStatusIsAskedAgainAtOnce) {
    for (const unsigned char status : Bytes{7, 255, 1}) {
        pad.feature_replies.push_back(frame(write_framebuf_data, status));
    }
    pad.feature_replies.push_back(frame(write_framebuf_data, 0));
    Bytes data(62);
    EXPECT_EQ(read(data), 62);
    EXPECT_THAT(bus().log(), ElementsAre(asked(), asked(), asked(), asked()));
    EXPECT_EQ(times_said("dev_error != VX_HID_DEV_RETVAL_SUCCESS, try again...."), 3);
}

TEST_F(HidSspDataTest, EmptyAndForeignReportsAreToldApartAndAskedAgain) {
    pad.feature_replies.push_back(Bytes(64, 0));
    pad.feature_replies.push_back(frame(0x11, 0));
    Bytes almost_empty(64, 0);
    almost_empty[63] = 1;
    pad.feature_replies.push_back(almost_empty);
    pad.feature_replies.push_back(frame(write_framebuf_data, 0));
    Bytes data(62);
    EXPECT_EQ(read(data), 62);
    EXPECT_EQ(times_said("hid_feature_read return zerro array, try again...."), 1);
    EXPECT_EQ(times_said("error: command in in_report_general not VX_CMD_WRITE_FRAMEBUF_DATA"), 2);
    EXPECT_THAT(bus().pauses(), IsEmpty());
}

// Whatever the pad answers, it does so for the time-out only.
TEST_F(HidSspDataTest, EveryUselessAnswerEndsInTheTimeOut) {
    for (const Bytes& useless : {frame(write_framebuf_data, 5), Bytes(64, 0), frame(0x27, 0)}) {
        bus().take_log();
        bus().hooks.get_feature = [&](HidInterface&, std::span<unsigned char> report) {
            std::copy(useless.begin(), useless.end(), report.begin() + 1);
            return std::optional(65);
        };
        bus().cost_us["hid_get_feature_report"] = 1000;
        Bytes data(62, 0xee);
        EXPECT_EQ(read(data, 50), -1);
        EXPECT_THAT(bus().log(), SizeIs(50));
        EXPECT_THAT(data, Each(0xee));
    }
}

TEST_F(HidSspDataTest, FailedReadIsTriedAgainWhileTimeIsLeft) {
    bus().hooks.get_feature = always{-1};
    Bytes data(62);
    EXPECT_EQ(read(data, 3000), -1); // one failing read takes 1638 ms
    EXPECT_THAT(bus().log("hid_get_feature_report"), SizeIs(2 * tries_until_time_out));
    EXPECT_EQ(times_said("error: hid_feature_read() failed with return code -1, try again..."), 2);
    EXPECT_THAT(said(), Says("elapsed_time: 1638, time_out: 3000"));
}

TEST_F(HidSspDataTest, FailedRequestEndsTheCallWithoutARead) {
    bus().hooks.send_feature = always{-1};
    Bytes data(62);
    EXPECT_EQ(read(data, 60'000, 1), -1);
    EXPECT_THAT(said(), Says("hid_feature_write() return: -1"));
    EXPECT_THAT(bus().log("hid_get_feature_report"), IsEmpty());
    EXPECT_THAT(bus().log("hid_send_feature_report"), SizeIs(tries_until_time_out));
}

TEST_F(HidSspDataTest, TimeOutOfZeroMovesNothing) {
    Bytes data(62);
    EXPECT_EQ(read(data, 0, 1), -1);
    EXPECT_THAT(bus().log(), IsEmpty());
}

// On standard output the kind of these lines stands behind the function's name.
TEST_F(HidSspDataTest, LinesNameTheFunctionBeforeTheirKind) {
    const EnvironmentGuard debug("LIBVXPADCOM_DEBUG", "1");
    pad.feature_replies.push_back(Bytes(64, 0));
    pad.feature_replies.push_back(frame(write_framebuf_data, 5));
    pad.feature_replies.push_back(frame(write_framebuf_data, 0));
    Bytes data(62);
    const standins::OutputCapture output(1);
    read(data);
    EXPECT_THAT(output.text(), HasSubstr("hid_read_ssp_data(): info: time_out: 100"));
    EXPECT_THAT(output.text(),
                HasSubstr("hid_read_ssp_data(): info: hid_feature_read return zerro array, try again...."));
    EXPECT_THAT(output.text(),
                HasSubstr("hid_read_ssp_data(): info: dev_error != VX_HID_DEV_RETVAL_SUCCESS, try again...."));
}

} // namespace
} // namespace core_test
