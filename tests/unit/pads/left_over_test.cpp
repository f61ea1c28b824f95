// What is left over on a pad before a search.
#include "ssp_test.hpp"

namespace core_test {
namespace {

class LeftOverTest : public CoreTest {
  protected:
    LeftOverTest() {
        bus().cost_us["libusb_bulk_transfer"] = 1000;
        bus().cost_us["hid_get_feature_report"] = 1000;
    }
    void TearDown() override {
        pads.reset();
        CoreTest::TearDown();
    }

    std::optional<OwnRegistry> pads{std::in_place};
};

TEST_F(LeftOverTest, VcomPadIsFoundWhateverAProgramBeforeHasLeft) {
    const std::vector<std::vector<Bytes>> left{
        {pen({1, 2})},
        {pen({1, 2}), pen({3, 4})},
        {base(2, {0x10, 1, 3})},
        {base(1, {0x10, 1}), base(2, {0x10, 1, 3}), base(0, {0x10})},
        {legacy(Bytes(64, 9))},
        {legacy(Bytes(64, 1)), pen({1}), legacy(Bytes(64, 1)), base(0, {0x10, 1, 1, 2})},
        {base(2, counting(700))},
    };
    for (const auto& waiting : left) {
        UsbDevice& pad = bus().plug(vcom_pad());
        SspPad model = described_as(15);
        model.attach(pad);
        std::size_t records = 0;
        for (const Bytes& message : waiting) {
            pad.incoming.push_back(framed(message));
            records += message[0] >= 0xC0 ? 1 : 0;
        }
        EXPECT_EQ(search_vcom_devices(pads->get()), 1) << describe(waiting[0]);
        EXPECT_EQ(queued(pads->get()->devices[0].ssp_input_read), static_cast<int>(records)) << "pen data is kept";
        core_close_all_devs_clear_mem(pads->get());
        bus().reset();
        bus().cost_us["libusb_bulk_transfer"] = 1000;
    }
}

TEST_F(LeftOverTest, VcomPadThatSendsPenDataAllTheTimeIsFound) {
    UsbDevice& pad = bus().plug(vcom_pad());
    SspPad model = described_as(15);
    pad.answer = [&](UsbDevice& device, const Bytes& sent) {
        device.incoming.push_back(framed(pen({1})));
        for (const Bytes& reply : model.answer(unframed(sent))) {
            device.incoming.push_back(framed(reply));
        }
    };
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(search_vcom_devices(pads->get()), 1);
        core_close_all_devs_clear_mem(pads->get());
    }
}

TEST_F(LeftOverTest, SilentVcomPadIsGivenUpAtOnce) {
    UsbDevice& pad = bus().plug(vcom_pad());
    EXPECT_EQ(search_vcom_devices(pads->get()), -1);
    // The mode three times with a request for its report each, and the components.
    EXPECT_EQ(pad.outgoing.size(), 7U);
}

// A HID pad keeps an answer that nobody fetched over the end of the session.
class LeftOverHidTest : public CoreTest {
  protected:
    LeftOverHidTest() { bus().cost_us["hid_get_feature_report"] = 1000; }

    void start() {
        core_initialize();
        ASSERT_EQ(core_looking_for_devices(), 1);
    }
    static int send(Bytes message) {
        return core_send_ssp_message(0, message.data(), static_cast<int>(message.size()));
    }
    static Bytes received() {
        Bytes data(200);
        unsigned int size = 200;
        return core_receive_ssp_message(0, data.data(), &size, 100) == 0 ? part(data, 0, size) : Bytes{};
    }
    void answer(const Bytes& message) {
        for (const Bytes& report : ssp_reports(framed(message))) {
            waiting.push_back(report);
        }
    }

    HidInterface& pad = bus().plug(pad_of_type(15));
    std::deque<Bytes> waiting;
    std::deque<Bytes> late; // waits from late_until_us on
    std::int64_t late_until_us = 0;
    unsigned char nothing = 0; // what a report begins with that has no data
    bool streams = false;

    void SetUp() override {
        CoreTest::SetUp();
        bus().hooks.send_feature = [this](HidInterface&, std::span<const unsigned char> report) {
            if (report.size() > 1 && report[1] == 0xF8) {
                answer(base(5, {report[5]})); // the message's first byte, as a number
            }
            streams = report.size() > 1 && report[1] == 0xF9;
            return std::optional<int>();
        };
        bus().hooks.get_feature = [this](HidInterface&, std::span<unsigned char> report) -> std::optional<int> {
            if (!streams) {
                return std::nullopt;
            }
            if (!late.empty() && bus().now_us() >= late_until_us) {
                waiting.insert(waiting.begin(), late.begin(), late.end());
                late.clear();
            }
            std::fill(report.begin(), report.end(), static_cast<unsigned char>(0));
            report[1] = nothing;
            if (!waiting.empty()) {
                std::copy(waiting.front().begin(), waiting.front().end(), report.begin() + 1);
                waiting.pop_front();
            }
            return static_cast<int>(report.size());
        };
        start();
    }
};

TEST_F(LeftOverHidTest, AnswerThatNobodyFetchedShiftsNoLaterOne) {
    EXPECT_EQ(send({1, 0, 0, 1}), 0);
    start();
    for (unsigned char i = 2; i < 10; ++i) {
        EXPECT_EQ(send({i, 0, 0, 1}), 0);
        EXPECT_EQ(received(), base(5, {i}));
    }
}

// An answer without data costs 0.2 ms where a look is to take 1.
TEST_F(LeftOverHidTest, PadThatAnswersAtOnceThatItHasNothingIsWaitedForAsLong) {
    bus().cost_us["hid_get_feature_report"] = 200;
    nothing = 0xF9;
    for (const int late_ms : {20, 50, 90}) {
        start();
        EXPECT_EQ(send({1, 0, 0, 1}), 0);
        late = std::exchange(waiting, {});
        late_until_us = bus().now_us() + late_ms * 1000;
        start();
        for (unsigned char i = 2; bus().now_us() < late_until_us + 2000; ++i) {
            EXPECT_EQ(send({i, 0, 0, 1}), 0);
            ASSERT_EQ(received(), base(5, {i})) << late_ms;
        }
    }
}

TEST_F(LeftOverHidTest, TwoSendsAndTwoReceivesAreLeftAlone) {
    for (unsigned char i = 2; i < 5; ++i) {
        bus().take_log();
        EXPECT_EQ(send({i, 0, 0, 1}), 0);
        EXPECT_EQ(send({7, 0, 0, 1}), 0);
        EXPECT_EQ(bus().log("hid_send_feature_report").size(), 2U);
        EXPECT_EQ(received(), base(5, {i}));
        EXPECT_EQ(received(), base(5, {7}));
        EXPECT_EQ(bus().log("hid_get_feature_report").size(), 2U);
    }
}

} // namespace
} // namespace core_test
