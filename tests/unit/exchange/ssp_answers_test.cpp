// An answer never belongs to an earlier question: pads that answer late, twice, never or two requests once, and what a
// program before has left on the pad.
#include "timed_pad.hpp"

namespace core_test {
namespace {

class SspAnswersTest : public CoreTest {
  protected:
    void SetUp() override {
        CoreTest::SetUp();
        pad.attach();
    }
    void TearDown() override {
        record.reset();
        CoreTest::TearDown();
    }

    // Writes a number and reads a report; the number in it, or a negative result.
    int ask(unsigned int number) {
        Bytes report(64);
        report[0] = static_cast<unsigned char>(number);
        report[1] = static_cast<unsigned char>(number >> 8);
        EXPECT_EQ(core_feature_write(record->get(), report.data(), 64), 0);
        Bytes reply(64, 0xEE);
        const int result = core_feature_read(record->get(), reply.data(), 64);
        return result == 0 ? reply[0] | reply[1] << 8 : result;
    }
    // What is done with each message that the library sends, before the pad has it.
    template <typename Function> void before_each_send(Function function) {
        bus().hooks.bulk_out = [inner = bus().hooks.bulk_out, function](
                                   UsbDevice& usb, std::span<const unsigned char> data, int& transferred) mutable {
            function(unframed(Bytes(data.begin(), data.end())));
            return inner(usb, data, transferred);
        };
    }
    // Its answers stay in order, however late each one is.
    template <typename Latency> void answer_in_order(Latency latency) {
        before_each_send([this, latency, last = std::int64_t{0}](const Bytes& message) mutable {
            const bool is_report = (message[0] & 0x80) != 0;
            if (!is_report || message == Bytes{0xC0, 0}) {
                pad.latency = std::max<std::int64_t>(latency(), last - bus().now_us());
                last = bus().now_us() + pad.latency;
            }
        });
    }
    // A call whose time ends with this beginning of a message.
    void run_out_of_time(const Bytes& beginning, int selector) {
        bus().cost_us["libusb_bulk_transfer"] = 60 * ms;
        pad.leave_in_stream(part(beginning, 0, 1));
        pad.leave_in_stream(part(beginning, 1));
        EXPECT_EQ(receive(record->get(), selector, 50).result, -7);
        EXPECT_EQ(queued((*record)->ssp_unfinished), 1);
        bus().cost_us["libusb_bulk_transfer"] = 20;
    }
    // Reads out all pen data, which must be complete and in order.
    void expect_no_pen_data_lost() {
        while (queued((*record)->ssp_input_read) > 0) {
            const Received one = receive(record->get(), pen_data);
            ASSERT_EQ(one.message,
                      pen({static_cast<unsigned char>(pens_seen), static_cast<unsigned char>(pens_seen >> 8)}));
            ++pens_seen;
        }
    }
    void stop_pen_and_check() {
        pad.pen_period = 0;
        pad.is_silent = true;
        while (receive(record->get(), pen_data, 100).result == 0) {
            ++pens_seen;
        }
        EXPECT_EQ(pens_seen, pad.pen_records);
    }

    UsbDevice& device = bus().plug(vcom_pad());
    TimedPad pad;
    std::optional<OpenVcomRecord> record{std::in_place, device};
    std::uint32_t pens_seen = 0;
};

TEST_F(SspAnswersTest, OnePenRecordAheadOfAReplyShiftsNoLaterReport) {
    pad.leave(pen({0, 0}));
    for (unsigned int i = 1; i <= 10; ++i) {
        EXPECT_EQ(ask(i), static_cast<int>(i));
    }
    EXPECT_EQ(pad.requests, 11) << "asked once more where the pen record came first";
    EXPECT_EQ(pad.waiting(), 0U);
    EXPECT_EQ(queued((*record)->ssp_input_read), 1);
    EXPECT_THAT(said(), Says("an answer to an earlier question is dropped"));
}

struct Pad {
    const char* name;
    std::int64_t latency;
    int copies;
    bool pending_once;
};
void PrintTo(const Pad& tested, std::ostream* out) {
    *out << tested.name;
}

class SspPadsOfAllKinds : public SspAnswersTest, public testing::WithParamInterface<Pad> {};

INSTANTIATE_TEST_SUITE_P(All, SspPadsOfAllKinds,
                         testing::Values(Pad{"AtOnce", 0, 1, false}, Pad{"Late1", 1 * ms, 1, false},
                                         Pad{"Late10", 10 * ms, 1, false}, Pad{"Late100", 100 * ms, 1, false},
                                         Pad{"Late900", 900 * ms, 1, false}, Pad{"TwoOnce1", 1 * ms, 1, true},
                                         Pad{"TwoOnce10", 10 * ms, 1, true}, Pad{"TwoOnce100", 100 * ms, 1, true}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(SspPadsOfAllKinds, GiveEachReportToItsOwnCallBesidePenData) {
    pad.latency = GetParam().latency;
    pad.answers_pending_once = GetParam().pending_once;
    pad.pen_period = 2 * ms;
    const unsigned int calls = GetParam().latency > 50 * ms ? 30 : 1000;
    for (unsigned int i = 1; i <= calls; ++i) {
        ASSERT_EQ(ask(i), static_cast<int>(i));
        expect_no_pen_data_lost();
    }
    EXPECT_LE((*record)->reports_due, 1000);
    stop_pen_and_check();
}

TEST_F(SspAnswersTest, TenThousandReportsBesidePenData) {
    pad.latency = 300;
    pad.pen_period = 2 * ms;
    for (unsigned int i = 1; i <= 10'000; ++i) {
        ASSERT_EQ(ask(i), static_cast<int>(i));
        expect_no_pen_data_lost();
    }
    stop_pen_and_check();
    EXPECT_GT(pens_seen, 1000U);
}

// Requests are repeated while pen data comes, but no more of them than before.
TEST_F(SspAnswersTest, PadThatAnswersTwoRequestsOnceIsNotAskedMoreAndMoreOften) {
    pad.latency = 1 * ms;
    pad.answers_pending_once = true;
    pad.pen_period = 2 * ms;
    for (unsigned int i = 1; i <= 500; ++i) {
        ASSERT_EQ(ask(i), static_cast<int>(i));
    }
    const int of_first = std::exchange(pad.requests, 0);
    for (unsigned int i = 1; i <= 500; ++i) {
        ASSERT_EQ(ask(i), static_cast<int>(i));
    }
    EXPECT_LE(of_first, 1100);
    EXPECT_NEAR(pad.requests, of_first, of_first / 10);
}

TEST_F(SspAnswersTest, PadThatNeverAnswersIsAskedOnceACall) {
    pad.is_silent = true;
    for (unsigned int i = 1; i <= 20; ++i) {
        EXPECT_EQ(ask(i), -1);
    }
    EXPECT_EQ(pad.requests, 20);
    pad.is_silent = false;
    for (unsigned int i = 1; i <= 20; ++i) {
        EXPECT_EQ(ask(i), static_cast<int>(i));
    }
    EXPECT_EQ(pad.requests, 40);
}

TEST_F(SspAnswersTest, ReportThatComesBehindItsOwnCallIsNoLaterCalls) {
    pad.latency = 1100 * ms;
    EXPECT_EQ(ask(1), -1);
    pad.latency = 100 * ms;
    for (unsigned int i = 2; i <= 10; ++i) {
        EXPECT_EQ(ask(i), static_cast<int>(i));
    }
}

// A reply whose end comes behind the next question.
TEST_F(SspAnswersTest, ReplyThatIsCompletedBehindTheNextQuestionIsNotItsAnswer) {
    const Bytes first = base(2, counting(100));
    const Bytes second = base(3, {7});
    run_out_of_time(part(framed(first), 0, 50), commands);
    Bytes question{3, 0, 0, 0x10};
    EXPECT_EQ(__send_ssp_message(record->get(), question.data(), 4), 0);
    EXPECT_EQ(queued((*record)->ssp_unfinished), 0);
    pad.leave_in_stream(part(framed(first), 50));
    pad.leave_in_stream(framed(second));
    EXPECT_EQ(receive(record->get()), (Received{0, second}));
}

TEST_F(SspAnswersTest, OfAReplyOnlyTheTokenMayHaveComeBeforeTheNextQuestion) {
    const Bytes first = base(2, counting(100));
    const Bytes second = base(3, {7});
    for (const std::size_t cut : {2U, 3U, 4U}) {
        run_out_of_time(part(framed(first), 0, cut), commands);
        Bytes question{3, 0, 0, 0x10};
        EXPECT_EQ(__send_ssp_message(record->get(), question.data(), 4), 0);
        pad.leave_in_stream(part(framed(first), cut));
        pad.leave_in_stream(framed(second));
        EXPECT_EQ(receive(record->get()), (Received{0, second})) << cut;
    }
}

TEST_F(SspAnswersTest, BeginningOfPenDataOutlivesQuestions) {
    const Bytes first = pen(counting(60));
    for (const std::size_t cut : {2U, 3U, 4U, 30U}) {
        run_out_of_time(part(framed(first), 0, cut), pen_data);
        Bytes question{3, 0, 0, 0x10};
        EXPECT_EQ(__send_ssp_message(record->get(), question.data(), 4), 0);
        pad.leave_in_stream(part(framed(first), cut));
        EXPECT_EQ(receive(record->get(), pen_data, 100), (Received{0, first})) << cut;
    }
}

// The pieces that are nothing but zeros included.
TEST_F(SspAnswersTest, SlowMessageOfZerosIsWholeWhereverCallsEnd) {
    Bytes payload(500);
    payload[0] = 9;
    payload[499] = 8;
    const Bytes message = base(2, payload);
    const Bytes stream = framed(message);
    std::int64_t due = 0;
    for (std::size_t at = 0; at < stream.size(); at += 50) {
        pad.leave_in_stream(part(stream, at, 50), due += 40 * ms);
    }
    Received got;
    for (int calls = 0; calls < 10 && (calls == 0 || got.result != 0); ++calls) {
        got = receive(record->get(), commands, 100);
    }
    EXPECT_EQ(got, (Received{0, message}));
}

TEST_F(SspAnswersTest, HealthyExchangesHaveNoTransferMore) {
    pad.answers[Bytes{2, 0, 0, 0x10}] = base(2, {0x10, 1});
    Bytes question{2, 0, 0, 0x10};
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(__send_ssp_message(record->get(), question.data(), 4), 0);
    }
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(receive(record->get()), (Received{0, base(2, {0x10, 1})}));
    }
    EXPECT_EQ(ask(1), 1);
    EXPECT_EQ(ask(2), 2);
    EXPECT_EQ(pad.transfers, 4 + 2 * 3);
}

// What a call for reports finds of other answers that are due is not its own.
TEST_F(SspAnswersTest, AnswerThatNobodyReceivedIsNoReport) {
    pad.answers[Bytes{2, 0, 0, 0x10}] = base(2, {0x10, 1});
    Bytes question{2, 0, 0, 0x10};
    EXPECT_EQ(__send_ssp_message(record->get(), question.data(), 4), 0);
    EXPECT_EQ(ask(5), 5);
    EXPECT_EQ(ask(6), 6);
}

// A report that is forgotten may come yet; what follows it is not one behind for ever.
TEST_F(SspAnswersTest, PadOfChangingLatencyIsInStepBesidePenData) {
    std::uint32_t seed = 1;
    answer_in_order([&seed] {
        seed = seed * 1'664'525 + 1'013'904'223;
        return std::int64_t{1 + (seed >> 16) % 30} * ms;
    });
    pad.pen_period = 2 * ms;
    int wrong = 0;
    for (unsigned int i = 1; i <= 1000; ++i) {
        wrong += ask(i) == static_cast<int>(i) ? 0 : 1;
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(SspAnswersTest, OneLateAnswerToAMessagePutsOnlyTheNextOneOut) {
    for (unsigned char i = 1; i <= 10; ++i) {
        pad.answers[Bytes{2, 0, 0, i}] = base(2, {i, 1});
    }
    int answers = 0;
    answer_in_order([&answers] { return ++answers == 1 ? 300 * ms : 10 * ms; });
    for (unsigned char i = 1; i <= 10; ++i) {
        Bytes question{2, 0, 0, i};
        EXPECT_EQ(__send_ssp_message(record->get(), question.data(), 4), 0);
        const Received answer = receive(record->get(), commands, i == 1 ? 100 : 1000);
        if (i > 2) {
            EXPECT_EQ(answer, (Received{0, base(2, {i, 1})}));
        }
        bus().advance_us(100 * ms);
    }
}

TEST_F(SspAnswersTest, ReportsThatComeBehindTheirTimeAreNoLaterCalls) {
    pad.latency = 1100 * ms;
    for (unsigned int i = 1; i <= 10; ++i) {
        EXPECT_EQ(ask(i), -1);
    }
}

TEST_F(SspAnswersTest, ReadingAgainAndAgainDoesNotBecomeSlower) {
    pad.latency = 10 * ms;
    pad.answers_pending_once = true;
    pad.pen_period = 2 * ms;
    std::int64_t longest = 0;
    for (int i = 0; i < 60; ++i) {
        const auto start = bus().now_us();
        Bytes report(64);
        EXPECT_EQ(core_feature_read(record->get(), report.data(), 64), 0);
        longest = std::max(longest, bus().now_us() - start);
    }
    EXPECT_LE(longest, 200 * ms);
}

TEST_F(SspAnswersTest, FloodOfPenDataHoldsNoReportForLong) {
    pad.latency = 1 * ms;
    pad.answers_pending_once = true;
    pad.pen_period = 200;
    for (unsigned int i = 1; i <= 20; ++i) {
        const auto start = bus().now_us();
        EXPECT_EQ(ask(i), static_cast<int>(i));
        EXPECT_LE(bus().now_us() - start, 350 * ms);
    }
}

TEST_F(SspAnswersTest, FreshReplyBehindATokenAloneIsNotOld) {
    run_out_of_time(start_token, commands);
    Bytes question{3, 0, 0, 0x10};
    EXPECT_EQ(__send_ssp_message(record->get(), question.data(), 4), 0);
    pad.leave(base(3, {0x10, 1}));
    EXPECT_EQ(receive(record->get()), (Received{0, base(3, {0x10, 1})}));
}

TEST_F(SspAnswersTest, BeginningThatIsGoneMakesNoReplyOld) {
    run_out_of_time(part(start_token, 0, 2), commands);
    Bytes question{3, 0, 0, 0x10};
    EXPECT_EQ(__send_ssp_message(record->get(), question.data(), 4), 0);
    EXPECT_EQ(receive(record->get()).result, -7);
    EXPECT_EQ((*record)->beginning_is_old, 0);
    pad.answers[Bytes{3, 0, 0, 0x11}] = base(3, {0x11, 1});
    question = {3, 0, 0, 0x11};
    EXPECT_EQ(__send_ssp_message(record->get(), question.data(), 4), 0);
    EXPECT_EQ(receive(record->get()), (Received{0, base(3, {0x11, 1})}));
}

// A pen record has it ask twice: of the reports that come, the one to this call is the last.
TEST_F(SspAnswersTest, LateReportBesideAPenRecordIsNoLaterCalls) {
    pad.latency = 2 * ms;
    EXPECT_EQ(ask(2), 2);
    (*record)->report_in_doubt = 1;
    Bytes late(64);
    late[0] = 2;
    before_each_send([this, late, once = true](const Bytes& message) mutable {
        if (message == Bytes{0xC0, 0} && std::exchange(once, false)) {
            pad.answers_pending_once = true;
            pad.leave(pen({0, 0}));
            pad.leave_in_stream(framed(legacy(late)), 500);
        }
    });
    EXPECT_EQ(ask(3), 3);
}

TEST_F(SspAnswersTest, FloodOfPenDataHoldsNoQuestionForLong) {
    pad.pen_period = 50;
    (*record)->left_over = 1;
    const auto start = bus().now_us();
    Bytes question{2, 0, 0, 0x10};
    EXPECT_EQ(__send_ssp_message(record->get(), question.data(), 4), 0);
    EXPECT_LE(bus().now_us() - start, 105 * ms);
    EXPECT_EQ((*record)->left_over, 0);
    stop_pen_and_check();
}

} // namespace
} // namespace core_test
