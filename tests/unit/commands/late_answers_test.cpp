// Requests to components of pads that answer late, twice, or what nobody reads.
#include "timed_pad.hpp"

namespace core_test {
namespace {

class LateAnswersTest : public CoreTest {
  protected:
    void SetUp() override {
        CoreTest::SetUp();
        pad.attach();
        pad.answers[Bytes{0, 0, 0, 0x10}] = base(0, {0x10, 1, 4, 5, 11, 3, 1});
        pad.answers[Bytes{2, 0, 0, 0x10}] = base(2, {0x10, 1, 3});
        pad.answers[Bytes{3, 2, 0, 0x10, 0, 0}] = base(3, {0x10, 1, 7});
        pad.answers[Bytes{3, 2, 0, 0x11, 4, 0}] = base(3, {0x11, 1});
        EXPECT_EQ(ssp_common_components_id_initialize_table(device()), 0);
    }
    void TearDown() override {
        record.reset();
        CoreTest::TearDown();
    }
    vx_device* device() { return record->get(); }
    int connection() { return ssp_common_ct_communication_get_current_connection(device()); }
    int state() { return ssp_common_get_conf_state(device()); }

    UsbDevice& usb = bus().plug(vcom_pad());
    TimedPad pad;
    std::optional<OpenVcomRecord> record{std::in_place, usb, 15};
};

TEST_F(LateAnswersTest, OneLateReplyFailsNoLaterRequest) {
    for (const std::int64_t latency : {1100 * ms, 1500 * ms}) {
        pad.latency = latency;
        EXPECT_EQ(connection(), -1);
        pad.latency = 0;
        for (int i = 0; i < 20; ++i) {
            bus().advance_us(50 * ms);
            EXPECT_EQ(state(), 3);
            EXPECT_EQ(connection(), 7);
        }
    }
}

TEST_F(LateAnswersTest, LateRepliesInTimeAreTheirOwnRequests) {
    for (const std::int64_t latency : {1 * ms, 10 * ms, 100 * ms, 900 * ms}) {
        pad.latency = latency;
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(state(), 3);
            EXPECT_EQ(connection(), 7);
        }
    }
}

TEST_F(LateAnswersTest, AnswerToSettingTheConnectionIsNobodyElses) {
    for (const std::int64_t latency : {0 * ms, 10 * ms, 900 * ms}) {
        pad.latency = latency;
        EXPECT_EQ(ssp_common_ct_communication_set_current_connection(device(), 4), 0);
        pad.latency = 0;
        EXPECT_EQ(connection(), 7) << latency;
        EXPECT_EQ(state(), 3);
        EXPECT_EQ(connection(), 7);
    }
}

TEST_F(LateAnswersTest, SettingTheConnectionMayBeLeftUnanswered) {
    pad.answers.erase(Bytes{3, 2, 0, 0x11, 4, 0});
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(ssp_common_ct_communication_set_current_connection(device(), 4), 0);
        EXPECT_EQ(connection(), 7);
        EXPECT_EQ(state(), 3);
    }
    EXPECT_LE(device()->replies_due, 5);
}

// The first request that is not answered by its own answer fails, no other.
TEST_F(LateAnswersTest, PadThatAnswersEverythingTwiceIsSeenThrough) {
    pad.copies = 2;
    EXPECT_EQ(state(), 3);
    EXPECT_EQ(connection(), -1);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(state(), 3);
        EXPECT_EQ(connection(), 7);
        unsigned char report[64] = {static_cast<unsigned char>(i)};
        EXPECT_EQ(core_feature_write(device(), report, 64), 0);
        EXPECT_EQ(core_feature_read(device(), report, 64), 0);
        EXPECT_EQ(report[0], i);
    }
    // A pad that does so no longer is not suspected for ever.
    pad.copies = 1;
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(state(), 3);
    }
    EXPECT_EQ(device()->sends_unasked, 0);
}

TEST_F(LateAnswersTest, OldReplyInOneTransferWithTheAnswerIsPassedOver) {
    const Bytes asked{2, 0, 0, 0x10};
    const Bytes answer = pad.answers[asked];
    pad.answers.erase(asked);
    bus().hooks.bulk_out = [this, inner = bus().hooks.bulk_out, asked,
                            answer](UsbDevice& device, std::span<const unsigned char> data, int& transferred) {
        if (unframed(Bytes(data.begin(), data.end())) == asked) {
            pad.leave_in_stream(framed({base(3, {0x11, 1}), answer}));
        }
        return inner(device, data, transferred);
    };
    EXPECT_EQ(state(), 3);
}

TEST_F(LateAnswersTest, HealthyRequestsHaveNoTransferMore) {
    pad.transfers = 0;
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(state(), 3);
        EXPECT_EQ(connection(), 7);
    }
    EXPECT_EQ(pad.transfers, 40);
}

} // namespace
} // namespace core_test
