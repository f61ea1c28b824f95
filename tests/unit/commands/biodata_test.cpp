// Pen data of a pad on and off.
#include "ssp_pad_test.hpp"

namespace core_test {
namespace {

class BiodataTest : public SspPadTest {};

TEST_F(BiodataTest, BiodataReplyCheckNamesTheOtherCheck) {
    know_tables();
    reply_to({1, 2, 0, 0x11}, {base(1, {0x11, 0})});
    EXPECT_EQ(ssp_biodata_sending(device(), 1), -1);
    EXPECT_THAT(said(), AllOf(Says("Error, check data by ct_signpad_mode_send_reply_check(data: 0x"),
                              Says("ct_cmd: 17, cts_mode_id: 0)")));
    EXPECT_EQ(ct_signpad_mode_ssp_biodata_sending_reply_check(Bytes{0x11, 1}.data(), 0x11), 0);
    EXPECT_EQ(ct_signpad_mode_ssp_biodata_sending_reply_check(Bytes{0x11, 0}.data(), 0x11), -1);
    EXPECT_EQ(ct_signpad_mode_ssp_biodata_sending_reply_check(Bytes{0x10, 1}.data(), 0x11), -1);
}

TEST_F(BiodataTest, BiodataIsSwitchedUnderTheLock) {
    know_tables();
    std::vector<bool> locked;
    model.replace = [&](const Bytes&) {
        locked.push_back(record->locked());
        return std::optional<std::vector<Bytes>>();
    };
    EXPECT_EQ(core_ssp_biodata_sending(device(), 1), 0);
    EXPECT_THAT(locked, ElementsAre(true));
    EXPECT_FALSE(record->locked());
    EXPECT_EQ(core_ssp_biodata_sending(nullptr, 1), -1);
    EXPECT_THAT(said(), Says("Error of parameter device *current_device is NULL"));
}

TEST_F(BiodataTest, BiodataIsTriedAgainForThreeSecondsWithGrowingPauses) {
    know_tables();
    reply_to({1, 2, 0, 0x11}, {base(1, {0x11, 0})});
    bus().cost_us.clear();
    const auto started = bus().now_us();
    EXPECT_EQ(core_ssp_biodata_sending(device(), 0), -1);
    EXPECT_EQ(bus().pauses(), (Pauses{1000, 3000, 7000, 15'000, 31'000, 63'000, 127'000, 255'000, 500'000, 500'000,
                                      500'000, 500'000, 500'000, 500'000}));
    EXPECT_GE(bus().now_us() - started, 3'000'000);
    EXPECT_LE(bus().now_us() - started, 3'600'000);
    EXPECT_THAT(said(),
                AllOf(Says("ssp_biodata_sending(0) return -1"), Says("failed, going to try again after usleep(255000)"),
                      Says("elapsed_time: 1, time_out: 3000")));
    EXPECT_FALSE(record->locked());
}

TEST_F(BiodataTest, BiodataSucceedsOnALaterTry) {
    know_tables();
    int tries = 0;
    model.replace = [&](const Bytes&) {
        return ++tries < 3 ? std::optional(std::vector<Bytes>{base(1, {0x11, 0})}) : std::nullopt;
    };
    EXPECT_EQ(core_ssp_biodata_sending(device(), 1), 0);
    EXPECT_EQ(bus().pauses(), (Pauses{1000, 3000}));
}

TEST_F(BiodataTest, BiodataOfALostPadEndsAtOnce) {
    know_tables();
    bus().unplug(pad);
    EXPECT_EQ(core_ssp_biodata_sending(device(), 1), -4);
    EXPECT_EQ(device()->was_removed, 1);
    EXPECT_THAT(bus().pauses(), IsEmpty());
    EXPECT_THAT(said(), Says("we lost device.."));
}

// By whatever entry the record's messages go.
TEST_F(BiodataTest, BiodataEndsWithALossThatOnlyItsResultOrTheMarkTells) {
    know_tables();
    static int sends;
    sends = 0;
    device()->send_ssp_message = [](vx_device*, void*, unsigned int) {
        ++sends;
        return -4;
    };
    EXPECT_EQ(core_ssp_biodata_sending(device(), 1), -4);
    EXPECT_EQ(device()->was_removed, 1);
    EXPECT_EQ(sends, 1);
    EXPECT_THAT(bus().pauses(), IsEmpty());
    EXPECT_THAT(said(), Says("we lost device.."));

    device()->was_removed = 0;
    forget();
    device()->send_ssp_message = [](vx_device* marked, void*, unsigned int) {
        ++sends;
        marked->was_removed = 1;
        return -1;
    };
    EXPECT_EQ(core_ssp_biodata_sending(device(), 1), -1);
    EXPECT_EQ(sends, 2);
    EXPECT_THAT(said(), Says("we lost device.."));
    EXPECT_FALSE(record->locked());
    device()->send_ssp_message = __send_ssp_message;
}

} // namespace
} // namespace core_test
