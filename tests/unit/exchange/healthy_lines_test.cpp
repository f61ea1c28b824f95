// What healthy exchanges say: log filters know these lines, and how many they are.
#include "timed_pad.hpp"

namespace core_test {
namespace {

const std::string asked_for_kind = "ssp_base_message_is_it_old_message(): message[0]";

class HealthyLinesTest : public CoreTest {
  protected:
    void SetUp() override {
        CoreTest::SetUp();
        pad.attach();
        pad.answers[Bytes{0, 0, 0, 0x10}] = base(0, {0x10, 1, 4, 5, 11, 3, 1});
        pad.answers[Bytes{2, 0, 0, 0x10}] = base(2, {0x10, 1, 3});
        EXPECT_EQ(ssp_common_components_id_initialize_table(record->get()), 0);
        forget();
    }
    void TearDown() override {
        record.reset();
        CoreTest::TearDown();
    }

    UsbDevice& device = bus().plug(vcom_pad());
    TimedPad pad;
    std::optional<OpenVcomRecord> record{std::in_place, device, 15};
};

TEST_F(HealthyLinesTest, SendAndReceive) {
    Bytes question{2, 0, 0, 0x10};
    EXPECT_EQ(__send_ssp_message(record->get(), question.data(), 4), 0);
    EXPECT_THAT(said(), IsEmpty());
    EXPECT_EQ(receive(record->get()).result, 0);
    EXPECT_THAT(said(), SizeIs(17));
    EXPECT_EQ(times_said(asked_for_kind), 1);
}

TEST_F(HealthyLinesTest, ComponentRequest) {
    EXPECT_EQ(ssp_common_get_conf_state(record->get()), 3);
    EXPECT_THAT(said(), SizeIs(21));
    EXPECT_EQ(times_said(asked_for_kind), 2);
}

TEST_F(HealthyLinesTest, Report) {
    Bytes report(64);
    EXPECT_EQ(core_feature_write(record->get(), report.data(), 64), 0);
    EXPECT_THAT(said(), SizeIs(3));
    EXPECT_EQ(core_feature_read(record->get(), report.data(), 64), 0);
    EXPECT_THAT(said(), SizeIs(3 + 19));
    EXPECT_EQ(times_said(asked_for_kind), 2);
}

} // namespace
} // namespace core_test
