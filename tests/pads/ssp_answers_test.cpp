// An answer never belongs to an earlier question, over the real libraries: pads that answer late, twice, never or what
// nobody reads, and what a program before has left on the pad.
#include "ssp_pad_test.hpp"

using namespace pads;

namespace {

constexpr int talkative = 3; // sends pen data all the time

const MessageAnswer right_answer{{}, components_reply};

void pen_record(int pad, unsigned int number) {
    to_pad("pen", pad, hex({static_cast<unsigned char>(number), static_cast<unsigned char>(number >> 8)}));
}

// Writes a number and reads the report back, which a VCOM pad loops back: the number in it, or -1.
int ask(unsigned int number) {
    Bytes question(65);
    question[1] = 0xee; // no command
    question[2] = static_cast<unsigned char>(number);
    question[3] = static_cast<unsigned char>(number >> 8);
    EXPECT_EQ(set_feature(1, 0, question), 0);
    const ReadAnswer answer = read(GetFeature, 1, 0);
    return answer.result == 0 ? answer.buffer[2] | answer.buffer[3] << 8 : -1;
}

class VcomAnswers : public testing::Test {
  protected:
    void SetUp() override { plug_only({vcom.pad}); }
    void TearDown() override {
        Deinitialize();
        plug_only({});
    }
    static void fault(const std::string& what) { to_pad("fault", vcom.pad, what); }
    static int found() {
        unsigned int reply = 0;
        Initialize();
        return GetDeviceCount(&reply);
    }
};

TEST_F(VcomAnswers, PadIsFoundWhateverAProgramBeforeHasLeft) {
    for (const Bytes& left : {pen_message({1, 2}), base_message(handler_id, {0x10, 1, 3}), components_reply,
                              legacy_message(Bytes(64, 9)), base_message(signpad_id, Bytes(700, 5))}) {
        for (const std::size_t copies : {1U, 3U}) {
            for (std::size_t i = 0; i < copies; ++i) {
                put_into_stream(vcom.pad, framed(left));
            }
            EXPECT_EQ(found(), 1) << copies << " of " << hex(left).substr(0, 20);
            EXPECT_EQ(ask(1), 1);
            Deinitialize();
        }
    }
}

TEST_F(VcomAnswers, PadThatSendsPenDataAllTheTimeIsFound) {
    plug_only({talkative});
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(found(), 1);
        EXPECT_EQ(ask(7), 7);
    }
}

TEST_F(VcomAnswers, OnePenRecordAheadOfAReplyShiftsNoLaterReport) {
    ASSERT_EQ(found(), 1);
    pen_record(vcom.pad, 1);
    for (unsigned int i = 1; i < 20; ++i) {
        EXPECT_EQ(ask(i), static_cast<int>(i));
    }
}

TEST_F(VcomAnswers, LateReportsAreTheirOwnCalls) {
    for (const unsigned int late : {1U, 10U, 100U, 900U}) {
        ASSERT_EQ(found(), 1);
        fault("delay-reply=" + std::to_string(late));
        for (unsigned int i = 1; i < (late > 50 ? 5U : 20U); ++i) {
            pen_record(vcom.pad, i);
            pen_record(vcom.pad, i);
            EXPECT_EQ(ask(i), static_cast<int>(i)) << late;
        }
        to_pad("clear-faults", vcom.pad);
        EXPECT_EQ(ask(77), 77);
    }
}

TEST_F(VcomAnswers, PadThatAnswersEverythingTwiceIsFoundAndSeenThrough) {
    fault("twice");
    ASSERT_EQ(found(), 1);
    for (unsigned int i = 1; i < 50; ++i) {
        EXPECT_EQ(ask(i), static_cast<int>(i));
    }
}

TEST_F(VcomAnswers, ReportThatNeverComesFailsItsOwnCallOnly) {
    ASSERT_EQ(found(), 1);
    for (unsigned int i = 1; i < 4; ++i) {
        fault("drop,count=1");
        EXPECT_EQ(ask(100 + i), -1);
        EXPECT_EQ(ask(i), static_cast<int>(i));
    }
}

// The second request that the pen record brings about stays without an answer.
TEST_F(VcomAnswers, TwoRequestsMayBeAnsweredOnce) {
    ASSERT_EQ(found(), 1);
    for (unsigned int i = 1; i < 20; ++i) {
        pen_record(vcom.pad, i);
        fault("drop,count=1,after=1");
        EXPECT_EQ(ask(i), static_cast<int>(i));
        to_pad("clear-faults", vcom.pad);
    }
}

TEST_F(VcomAnswers, TenThousandReportsBesidePenData) {
    ASSERT_EQ(found(), 1);
    const auto calls = static_cast<unsigned int>(times(1000, 10'000));
    // Under emulation more would hold the answers up for longer than any pad does.
    to_pad("play", vcom.pad, on_a_kernel() ? "loop 100" : "loop 500");
    for (unsigned int i = 1; i <= calls; ++i) {
        ASSERT_EQ(ask(i), static_cast<int>(i & 0xffff));
    }
    to_pad("stop", vcom.pad);
    const auto sent = std::stoul(ssp_state_of(vcom.pad, "pen-records"));
    EXPECT_GT(sent, 10U);
    unsigned int expected = 0;
    for (;;) {
        const ReadAnswer record = read(ReadFile, 1, 0);
        if (record.result != 0 || record.reply == 0 || record.reply == reply_untouched) {
            break;
        }
        ASSERT_EQ(record.buffer[1] | record.buffer[2] << 8, static_cast<int>(expected & 0xffff));
        ++expected;
    }
    EXPECT_EQ(expected, sent);
}

TEST_F(VcomAnswers, ReplyThatIsCompletedBehindTheNextQuestionIsNotItsAnswer) {
    ASSERT_EQ(found(), 1);
    const Bytes first = framed(base_message(signpad_id, Bytes(300, 7)));
    put_into_stream(vcom.pad, Bytes(first.begin(), first.begin() + 124));
    EXPECT_NE(receive_message(50).failure, Failure{});
    put_into_stream(vcom.pad, Bytes(first.begin() + 124, first.end()));
    EXPECT_EQ(exchange_messages(components_request), right_answer);
    EXPECT_EQ(exchange_messages(components_request), right_answer);
}

class SspAnswers : public SspPad {};

INSTANTIATE_TEST_SUITE_P(On, SspAnswers, testing::Values(hid, vcom), name_of_transport);

TEST_P(SspAnswers, OneLateReplyFailsNoLaterRequest) {
    OwnRecord record;
    EXPECT_EQ(ssp_common_ct_communication_get_current_connection(record.get()), 0);
    fault("delay-reply=1200,count=1");
    EXPECT_LT(ssp_common_ct_communication_get_current_connection(record.get()), 0);
    for (int i = 0; i < 6; ++i) {
        EXPECT_GE(ssp_common_get_conf_state(record.get()), 0);
        EXPECT_EQ(ssp_common_ct_communication_get_current_connection(record.get()), 0);
    }
}

TEST_P(SspAnswers, AnswerToSettingTheConnectionIsNobodyElses) {
    OwnRecord record;
    for (const char* late : {"delay-reply=0,count=1", "delay-reply=30,count=1"}) {
        for (int type = 1; type < 5; ++type) {
            fault(late);
            EXPECT_EQ(ssp_common_ct_communication_set_current_connection(record.get(), type), 0);
            EXPECT_EQ(ssp_common_ct_communication_get_current_connection(record.get()), type);
            EXPECT_GE(ssp_common_get_conf_state(record.get()), 0);
        }
    }
}

TEST_P(SspAnswers, AnswerThatNobodyFetchedShiftsNoLaterOne) {
    for (const char* late : {"delay-reply=0,count=1", "delay-reply=80,count=1"}) {
        initialize();
        fault(late);
        EXPECT_EQ(send_message(base_message(signpad_id, {0x12, 0, 0})), Failure{});
        initialize();
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(exchange_messages(components_request), right_answer) << late;
        }
    }
}

TEST_P(SspAnswers, AnswerThatNobodyFetchedShiftsNoLaterOneOfANewSession) {
    initialize();
    EXPECT_EQ(send_message(base_message(signpad_id, {0x12, 0, 0})), Failure{});
    Deinitialize();
    initialize();
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(exchange_messages(components_request), right_answer);
    }
}

} // namespace
