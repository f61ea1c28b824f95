// The engine over feature reports.
#include "ssp_test.hpp"

namespace core_test {
namespace {

class SspEngineHidTest : public CoreTest {
  protected:
    SspEngineHidTest() { bus().cost_us["hid_get_feature_report"] = 1000; }

    void TearDown() override {
        record.reset();
        CoreTest::TearDown();
    }

    int send(Bytes message) {
        return __send_ssp_message(record->get(), message.data(), static_cast<unsigned int>(message.size()));
    }

    HidInterface& pad = bus().plug(pad_of_type(plain_type));
    std::optional<OpenHidSspRecord> record{std::in_place, pad};
};

TEST_F(SspEngineHidTest, FramedBytesAreCutIntoReportsAndTheLastIsShort) {
    EXPECT_EQ(send(base(2, Bytes(124, 0x33))), 0); // 130 framed bytes
    const Lines log = bus().log();
    ASSERT_EQ(log.size(), 3U);
    EXPECT_THAT(log[0], StartsWith("hid_send_feature_report(1-1:1.0, 65: 00 f8 aa 55 02 02 7b 00 33 "));
    EXPECT_THAT(log[1], StartsWith("hid_send_feature_report(1-1:1.0, 65: 00 f8 33 "));
    EXPECT_EQ(log[2], "hid_send_feature_report(1-1:1.0, 6: 00 f8 33 33 33 33)");
}

TEST_F(SspEngineHidTest, SmallMessagesAndWholeReports) {
    EXPECT_EQ(send({0, 0, 0, 0x10}), 0);
    EXPECT_THAT(bus().log(), ElementsAre("hid_send_feature_report(1-1:1.0, 9: 00 f8 aa 55 02 00 00 00 10)"));
    forget();
    EXPECT_EQ(send(base(2, Bytes(56, 1))), 0); // 62 + 1 framed bytes
    EXPECT_THAT(bus().log(), SizeIs(1));
    forget();
    EXPECT_EQ(send(base(2, Bytes(58, 1))), 0);
    EXPECT_THAT(last(1, bus().log()), ElementsAre("hid_send_feature_report(1-1:1.0, 3: 00 f8 01)"));
}

TEST_F(SspEngineHidTest, FailedReportStopsTheMessageAndReopens) {
    int reports = 0;
    bus().hooks.send_feature = [&](HidInterface&, std::span<const unsigned char>) {
        return ++reports == 1 ? std::nullopt : std::optional(-1);
    };
    EXPECT_EQ(send(base(2, Bytes(200, 1))), -1);
    EXPECT_EQ(reports, 1 + static_cast<int>(tries_until_time_out));
    EXPECT_THAT(said(), Says("Error of send/write data by hid_feature_write()"));
    EXPECT_THAT(last(4, bus().log()), ElementsAre(paused(50), closed(), opened(), blocking()));
    EXPECT_EQ((*record)->was_removed, 0);
}

TEST_F(SspEngineHidTest, FailedReportOfAPulledOutPadGivesMinusTwenty) {
    bus().unplug(pad);
    EXPECT_EQ(send({0, 0, 0, 0x10}), -20);
    EXPECT_EQ((*record)->was_removed, 1);
    EXPECT_THAT(said(), Says("we lost device.."));
}

// The first read of a cycle asks for 64 bytes with a request; a continuation reads without one.
TEST_F(SspEngineHidTest, FirstReadRequestsAndContinuationDoesNot) {
    const Bytes stream = framed(base(2, counting(100)));
    for (const Bytes& report : ssp_reports(stream)) {
        pad.feature_replies.push_back(report);
    }
    EXPECT_EQ(receive(record->get()), (Received{0, base(2, counting(100))}));
    EXPECT_THAT(bus().log(), ElementsAre(sent("f9"), asked(), asked()));
}

TEST_F(SspEngineHidTest, FirstReadThatBringsNothingFailsWithMinusOne) {
    pad.feature_replies.insert(pad.feature_replies.end(), 200, Bytes(64));
    EXPECT_EQ(receive(record->get(), commands, 100).result, -1);
    EXPECT_THAT(said(), Says("Error, hid_read_ssp_data() return: -1"));
    EXPECT_THAT(last(4, bus().log()), ElementsAre(paused(50), closed(), opened(), blocking()));
}

TEST_F(SspEngineHidTest, FailedContinuationStillDeliversWhatIsQueued) {
    // A reply, then the beginning of another that never comes.
    Bytes stream = framed(base(2, {1}));
    stream = stream + framed(base(2, Bytes(100, 0x44)));
    pad.feature_replies.push_back(ssp_reports(stream)[0]);
    pad.feature_replies.insert(pad.feature_replies.end(), 2000, Bytes(64));
    EXPECT_EQ(receive(record->get(), commands, 300), (Received{0, base(2, {1})}));
    EXPECT_THAT(said(), Says("Error, hid_read_ssp_data() return: -1"));
    EXPECT_THAT(bus().log("hid_close"), IsEmpty());
}

// Without a legacy request: those exist over VCOM only.
TEST_F(SspEngineHidTest, LegacyFlagOnlyDropsOldReplies) {
    for (const Bytes& report : ssp_reports(framed({base(1, {1}), base(1, {2})}))) {
        pad.feature_replies.push_back(report);
    }
    EXPECT_EQ(receive(record->get()), (Received{0, base(1, {1})}));
    for (const Bytes& report : ssp_reports(framed({base(1, {3})}))) {
        pad.feature_replies.push_back(report);
    }
    forget();
    EXPECT_EQ(receive(record->get(), pen_data, 1000, 1), (Received{0, base(1, {3})}));
    EXPECT_THAT(bus().log(), ElementsAre(sent("f9"), asked()));
}

TEST_F(SspEngineHidTest, OtherLegacyFlagsServeAnOldReply) {
    for (const Bytes& report : ssp_reports(framed({base(1, {1}), base(1, {2})}))) {
        pad.feature_replies.push_back(report);
    }
    EXPECT_EQ(receive(record->get()), (Received{0, base(1, {1})}));
    forget();
    EXPECT_EQ(receive(record->get(), pen_data, 1000, 2), (Received{0, base(1, {2})}));
    EXPECT_THAT(bus().log(), IsEmpty());
}

} // namespace
} // namespace core_test
