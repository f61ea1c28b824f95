// Whole messages over either transport: what is delivered, what stays queued, what fails how.
#include "ssp_test.hpp"

namespace core_test {
namespace {

enum class Transport { hid, vcom };

void PrintTo(Transport transport, std::ostream* out) {
    *out << (transport == Transport::hid ? "HID" : "VCOM");
}

class SspEngineTest : public CoreTest, public testing::WithParamInterface<Transport> {
  protected:
    SspEngineTest() {
        bus().cost_us["hid_get_feature_report"] = 1000;
        bus().cost_us["libusb_bulk_transfer"] = 1000;
        if (GetParam() == Transport::hid) {
            hid_record_.emplace(hid_pad_);
        } else {
            vcom_record_.emplace(vcom_pad_);
        }
        forget();
    }

    void TearDown() override {
        hid_record_.reset();
        vcom_record_.reset();
        CoreTest::TearDown();
    }

    vx_device* record() { return hid_record_ ? hid_record_->get() : vcom_record_->get(); }

    // What one read of the transport brings; over HID the rest of the last report is zero.
    void feed(const Bytes& stream) {
        if (!hid_record_) {
            vcom_pad_.incoming.push_back(stream);
            return;
        }
        for (const Bytes& report : ssp_reports(stream)) {
            hid_pad_.feature_replies.push_back(report);
        }
    }
    void feed_in_pieces(const Bytes& stream, std::size_t size) {
        for (std::size_t at = 0; at < stream.size(); at += size) {
            feed(part(stream, at, size));
        }
    }
    // What one read costs.
    static void set_cost(std::int64_t microseconds) {
        bus().cost_us["hid_get_feature_report"] = microseconds;
        bus().cost_us["libusb_bulk_transfer"] = microseconds;
    }
    // Nothing more comes: a HID pad answers that it has nothing.
    void stay_silent() {
        if (hid_record_) {
            hid_pad_.feature_replies.insert(hid_pad_.feature_replies.end(), 4000, Bytes(64));
        }
    }
    void unplug() { hid_record_ ? bus().unplug(hid_pad_) : bus().unplug(vcom_pad_); }
    Lines reopened() const {
        return GetParam() == Transport::hid ? Lines{paused(50), closed(), opened(), blocking()}
                                            : Lines{usb_closed(), usb_opened()};
    }
    std::size_t reads() const {
        if (GetParam() == Transport::hid) {
            return bus().log("hid_get_feature_report").size();
        }
        const Lines log = bus().log("libusb_bulk_transfer");
        return static_cast<std::size_t>(std::count_if(
            log.begin(), log.end(), [](const std::string& line) { return line.find(", 81, ") != std::string::npos; }));
    }

    HidInterface& hid_pad_ = bus().plug(pad_of_type(plain_type));
    UsbDevice& vcom_pad_ = bus().plug(vcom_pad());

  private:
    std::optional<OpenHidSspRecord> hid_record_;
    std::optional<OpenVcomRecord> vcom_record_;
};

INSTANTIATE_TEST_SUITE_P(Both, SspEngineTest, testing::Values(Transport::hid, Transport::vcom),
                         testing::PrintToStringParamName());

TEST_P(SspEngineTest, ReplyIsDeliveredAsItsHeaderMeasuresIt) {
    const Bytes reply = base(4, {0x10, 1, 9});
    feed(framed(reply) + Bytes{0x77, 0x78}); // what follows is not part of it
    EXPECT_EQ(receive(record()), (Received{0, reply}));
    EXPECT_EQ(reads(), 1U);
    EXPECT_THAT(bus().pauses(), IsEmpty());
    EXPECT_EQ(queued(record()->ssp_command_messages), 0);
}

TEST_P(SspEngineTest, BatchIsSortedIntoTheTwoQueues) {
    const Bytes reply = base(1, {0x13, 1});
    const Bytes first = pen({1, 2, 3});
    const Bytes second = pen({4, 5});
    feed(framed({first, reply, second}));
    EXPECT_EQ(receive(record()), (Received{0, reply}));
    EXPECT_EQ(queued(record()->ssp_input_read), 2);
    EXPECT_EQ(queued(record()->ssp_command_messages), 0);
    EXPECT_EQ(receive(record(), pen_data), (Received{0, first}));
    EXPECT_EQ(receive(record(), pen_data), (Received{0, second}));
    EXPECT_EQ(reads(), 1U);
    EXPECT_THAT(said(), AllOf(Says("we have ready frame from ssp_input_read.. with size: 4"),
                              Says("now we are getting frame from ssp_command_messages.. with size: 5"),
                              Says("START queue       ssp_input_read: 2"), Says("END queue       ssp_input_read: 1")));
}

TEST_P(SspEngineTest, LegacyMessagesThatAreNoPenDataAreReplies) {
    feed(framed({legacy({1}), pen({2})}));
    EXPECT_EQ(receive(record()), (Received{0, legacy({1})}));
    EXPECT_EQ(queued(record()->ssp_input_read), 1);
}

// The selector 1 serves pen data only without the legacy flag.
TEST_P(SspEngineTest, SelectorsOtherThanOneServeReplies) {
    for (const int selector : {0, 2, -1, 7}) {
        const Bytes reply = base(1, {static_cast<unsigned char>(selector)});
        feed(framed({pen({9}), reply}));
        EXPECT_EQ(receive(record(), selector), (Received{0, reply}));
    }
    EXPECT_EQ(queued(record()->ssp_input_read), 4);
}

TEST_P(SspEngineTest, ReplyThatComesDuringAPenDataReadWaitsForItsReader) {
    feed(framed({base(1, {5}), pen({6})}));
    EXPECT_EQ(receive(record(), pen_data, 100), (Received{0, pen({6})}));
    EXPECT_EQ(receive(record()), (Received{0, base(1, {5})}));
    EXPECT_EQ(reads(), 1U);
}

TEST_P(SspEngineTest, SendingDropsOldRepliesButNoPenData) {
    feed(framed({base(1, {5}), base(1, {6}), pen({7})}));
    EXPECT_EQ(receive(record()), (Received{0, base(1, {5})}));
    Bytes message{0, 0, 0, 0x10};
    EXPECT_EQ(__send_ssp_message(record(), message.data(), 4), 0);
    EXPECT_EQ(queued(record()->ssp_command_messages), 0);
    EXPECT_EQ(queued(record()->ssp_input_read), 1);
}

// Also where the arguments are bad.
TEST_P(SspEngineTest, SendingDropsOldRepliesBeforeItLooksAtItsArguments) {
    feed(framed({base(1, {5}), base(1, {6})}));
    EXPECT_EQ(receive(record()).result, 0);
    EXPECT_EQ(queued(record()->ssp_command_messages), 1);
    EXPECT_EQ(__send_ssp_message(record(), nullptr, 0), -1);
    EXPECT_EQ(queued(record()->ssp_command_messages), 0);
}

TEST_P(SspEngineTest, MessageOfManyReadsIsDeliveredOnce) {
    const Bytes reply = base(2, counting(100));
    const Bytes stream = framed(reply);
    feed(part(stream, 0, 62)); // a whole report over HID
    feed(part(stream, 62));
    EXPECT_EQ(receive(record()), (Received{0, reply}));
    EXPECT_EQ(reply.size(), 103U);
    EXPECT_EQ(queued(record()->ssp_command_messages), 0);
    EXPECT_THAT(said(), Says("Also need to add 44 bytes for complete last ssp message"));
}

// Where a call's time ends in the middle of a message the next call goes on with it.

TEST_P(SspEngineTest, UnbrokenStreamOfPenDataLosesNothingBetweenCalls) {
    set_cost(30'000);
    std::vector<Bytes> records;
    for (unsigned char i = 0; i < 200; ++i) {
        records.push_back(pen(Bytes{i} + counting(10, i)));
    }
    feed_in_pieces(framed(records), GetParam() == Transport::hid ? 62 : 64);
    stay_silent();
    std::vector<Bytes> received;
    for (int calls = 0; received.size() < records.size() && calls < 400; ++calls) {
        const Received one = receive(record(), pen_data, 100);
        if (one.result == 0) {
            received.push_back(one.message);
        }
    }
    EXPECT_EQ(received, records);
}

TEST_P(SspEngineTest, SlowMessageIsCompletedByTheNextCall) {
    set_cost(30'000);
    const Bytes reply = base(2, counting(GetParam() == Transport::hid ? 360 : 250));
    feed_in_pieces(framed(reply), GetParam() == Transport::hid ? 62 : 44);
    EXPECT_EQ(receive(record(), commands, 100).result, -7);
    EXPECT_EQ(reads(), 5U);
    EXPECT_EQ(queued(record()->ssp_unfinished), 1);
    EXPECT_THAT(last(reopened().size(), bus().log()), ElementsAreArray(reopened()));
    forget();
    EXPECT_EQ(receive(record(), commands, 100), (Received{0, reply}));
    EXPECT_EQ(reads(), 1U);
    EXPECT_EQ(queued(record()->ssp_unfinished), 0);
    // It is part of no later message.
    feed(framed(base(2, {1})));
    EXPECT_EQ(receive(record()), (Received{0, base(2, {1})}));
}

// What is kept is the beginning as it came, a cut token included.
TEST_P(SspEngineTest, MarkersOfASlowMessageSurviveTheEndOfACall) {
    set_cost(60'000);
    Bytes payload;
    while (payload.size() < 300) {
        payload = payload + Bytes{0xAA, 0x55, 2, 0xAA, 0x55, 0, 0xAA};
    }
    const Bytes reply = base(2, payload);
    for (std::size_t size = 55; size <= 62; ++size) {
        if (GetParam() == Transport::hid && size != 62) {
            continue; // reports have one size
        }
        feed_in_pieces(framed(reply), size);
        Received one{-7};
        for (int calls = 0; one.result == -7 && calls < 10; ++calls) {
            one = receive(record(), commands, 100);
        }
        EXPECT_EQ(one, (Received{0, reply})) << size;
    }
}

TEST_P(SspEngineTest, OnlyTheLastFrameOfABatchCanGoOn) {
    feed(framed({base(2, {1})}) + start_token + Bytes{2, 9, 0, 1, 2} + framed({base(2, {3})}));
    EXPECT_EQ(receive(record()), (Received{0, base(2, {1})}));
    EXPECT_EQ(receive(record()), (Received{0, base(2, {3})}));
    EXPECT_EQ(reads(), 1U);
    EXPECT_EQ(times_said("error: It is not ended SSP message... so, it sad.. go to processing next one"), 1);
    EXPECT_THAT(said(), Says("Going to proceccing 3 SSP messages"));
}

TEST_P(SspEngineTest, SmallBufferCutsTheMessageAndSucceeds) {
    feed(framed({base(2, counting(17)), base(3, {1})}));
    EXPECT_EQ(receive(record(), commands, 1000, no_legacy, 10), (Received{0, part(base(2, counting(17)), 0, 10)}));
    EXPECT_THAT(said(),
                AllOf(Says("Error, *len[10] < data_size[20]"),
                      Says("Error, parameter unsigned int *len should contain bigger value for receive this SSP "
                           "message"),
                      Says("Was provided *len: 10, was write to_copy_size: 10")));
    EXPECT_EQ(receive(record()), (Received{0, base(3, {1})})); // the tail of the first is lost
}

TEST_P(SspEngineTest, NoiseIsPausedOverAndTheMessageBehindItComes) {
    feed(counting(60));
    feed(counting(50));
    feed(framed(base(2, {7})));
    EXPECT_EQ(receive(record()), (Received{0, base(2, {7})}));
    EXPECT_EQ(bus().pauses(), (Pauses{500, 500}));
    EXPECT_THAT(said(), Says("Error, ssp_transport_token_to_base_message_data() return: count_of_ssp -1"));
}

TEST_P(SspEngineTest, TokenWithNothingBehindAndNothingToComeEndsInTheTimeOut) {
    if (GetParam() == Transport::hid) {
        feed(Bytes(59) + start_token);
    } else {
        feed(start_token);
    }
    stay_silent();
    const auto started = bus().now_us();
    EXPECT_LT(receive(record(), commands, 200).result, 0);
    EXPECT_LE(bus().now_us() - started, 700'000);
}

TEST_P(SspEngineTest, QueuedMessageIsServedWithoutTraffic) {
    feed(framed({base(1, {1}), base(1, {2})}));
    EXPECT_EQ(receive(record()).result, 0);
    forget();
    EXPECT_EQ(receive(record(), commands, 0), (Received{0, base(1, {2})}));
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_P(SspEngineTest, EmptyFrameInAQueueIsReportedAndReadOn) {
    receive(record(), commands, 0); // makes the queues
    add_uni_frame(record()->ssp_command_messages, nullptr, 0);
    feed(framed(base(1, {4})));
    EXPECT_EQ(receive(record()), (Received{0, base(1, {4})}));
    EXPECT_THAT(said(), Says("Error, function get_uni_frame() return pointer: "));
}

TEST_P(SspEngineTest, TimeOutGivesItsCodeAndReopens) {
    stay_silent();
    feed({}); // HID: nothing
    const auto started = bus().now_us();
    const int result = receive(record(), commands, 300).result;
    // Over HID the first read itself fails with the time-out.
    EXPECT_EQ(result, GetParam() == Transport::hid ? -1 : -7);
    EXPECT_GE(bus().now_us() - started, 300'000);
    EXPECT_LE(bus().now_us() - started, 700'000);
    EXPECT_THAT(last(reopened().size(), bus().log()), ElementsAreArray(reopened()));
    EXPECT_EQ(record()->was_removed, 0);
}

TEST_P(SspEngineTest, ClockThatCannotBeReadEndsACall) {
    stay_silent();
    feed(framed(pen({1})));
    bus().gettimeofday_result = -1;
    EXPECT_NE(receive(record()).result, 0);
    EXPECT_LT(reads(), 10U);
    bus().gettimeofday_result = 0;
}

TEST_P(SspEngineTest, OnlyOtherMessagesEndInTheTimeOutOfTheEngine) {
    bus().cost_us["hid_get_feature_report"] = 60'000;
    bus().cost_us["libusb_bulk_transfer"] = 60'000;
    feed(framed(pen({1})));
    feed(framed(pen({2})));
    EXPECT_EQ(receive(record(), commands, 100).result, -7);
    EXPECT_THAT(said(), AllOf(Says("Error, no ready ssp command messages..."), Says("elapsed_time: 60, time_out: 100"),
                              Says("elapsed_time: 120, time_out: 100")));
    EXPECT_EQ(queued(record()->ssp_input_read), 2);
    feed(framed(base(1, {1})));
    feed(framed(base(1, {1})));
    record()->ssp_input_read = (clear_uni_queue(record()->ssp_input_read), record()->ssp_input_read);
    EXPECT_EQ(receive(record(), pen_data, 100).result, -7);
    EXPECT_THAT(said(), Says("Error, no ready ssp input read messages..."));
}

TEST_P(SspEngineTest, BadArgumentsOfReceivingComeBeforeAnyTraffic) {
    unsigned char data[4];
    unsigned int none = 0;
    unsigned int four = 4;
    vx_device closed_record{};
    EXPECT_EQ(__receive_ssp_message(nullptr, nullptr, nullptr, 100, 0, 0), -1);
    EXPECT_EQ(__receive_ssp_message(nullptr, nullptr, &none, 100, 0, 0), -1);
    EXPECT_EQ(times_said("Error, input parameter: *(unsigned int *len) is 0"), 2);
    EXPECT_EQ(__receive_ssp_message(nullptr, nullptr, &four, 100, 0, 0), -1);
    EXPECT_THAT(last(1, said()), ElementsAre(HasSubstr("Error, input parameter: void *data is ")));
    EXPECT_EQ(__receive_ssp_message(nullptr, data, &four, 100, 0, 0), -1);
    EXPECT_THAT(last(1, said()), ElementsAre(HasSubstr("Error, input parameter: device *current_device is NULL")));
    EXPECT_EQ(__receive_ssp_message(&closed_record, data, &four, 100, 0, 0), -1);
    EXPECT_THAT(last(1, said()), ElementsAre(HasSubstr("Error, *hid && *vcom_handle is ")));
    EXPECT_EQ(closed_record.ssp_input_read, nullptr);
    EXPECT_EQ(four, 4U);
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_P(SspEngineTest, BadArgumentsOfSendingComeBeforeAnyTraffic) {
    unsigned char data[4] = {};
    vx_device closed_record{};
    EXPECT_EQ(__send_ssp_message(nullptr, nullptr, 0), -1);
    EXPECT_THAT(last(1, said()), ElementsAre(HasSubstr("Error, input parameter: unsigned int len is 0")));
    EXPECT_EQ(__send_ssp_message(nullptr, nullptr, 4), -1);
    EXPECT_THAT(last(1, said()), ElementsAre(HasSubstr("Error, input parameter: void *data is ")));
    EXPECT_EQ(__send_ssp_message(nullptr, data, 4), -1);
    EXPECT_THAT(last(1, said()), ElementsAre(HasSubstr("Error, input parameter: device *current_device is NULL")));
    EXPECT_EQ(__send_ssp_message(&closed_record, data, 4), -1);
    EXPECT_THAT(last(1, said()), ElementsAre(HasSubstr("Error, *hid && *vcom_handle is NULL")));
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_P(SspEngineTest, PulledOutPadGivesMinusTwentyAndIsMarked) {
    unplug();
    EXPECT_EQ(receive(record(), commands, 100).result, -20);
    EXPECT_EQ(record()->was_removed, 1);
    EXPECT_THAT(said(), Says("we lost device.."));
    EXPECT_EQ(record()->hid, nullptr);
    EXPECT_EQ(record()->vcom_handle, nullptr);
}

// The locking layer.

TEST_P(SspEngineTest, LockingLayerHoldsTheLockDuringTheWork) {
    std::vector<bool> locked;
    const auto note = [&] {
        const bool free = pthread_mutex_trylock(record()->device_lock) == 0;
        if (free) {
            pthread_mutex_unlock(record()->device_lock);
        }
        locked.push_back(!free);
    };
    bus().hooks.send_feature = [&](HidInterface&, std::span<const unsigned char>) {
        note();
        return std::optional<int>();
    };
    bus().hooks.bulk_out = [&](UsbDevice&, std::span<const unsigned char>, int&) {
        note();
        return std::optional<int>();
    };
    Bytes message{0, 0, 0, 0x10};
    EXPECT_EQ(lock_dev_and_send_ssp_message(record(), message.data(), 4), 0);
    EXPECT_THAT(locked, ElementsAre(true));
    note();
    EXPECT_THAT(locked, ElementsAre(true, false));
    bus().hooks = {};
    feed(framed({pen({1}), base(0, {1})}));
    unsigned int length = 4;
    EXPECT_EQ(lock_dev_and_receive_ssp_message(record(), message.data(), &length, 100, 0), 0);
    EXPECT_EQ(message, base(0, {1})); // it serves replies
    note();
    EXPECT_THAT(locked, ElementsAre(true, false, false));
}

TEST_P(SspEngineTest, LockingLayerWorksWithoutALock) {
    pthread_mutex_t* const lock = record()->device_lock;
    record()->device_lock = nullptr;
    Bytes message{0, 0, 0, 0x10};
    EXPECT_EQ(lock_dev_and_send_ssp_message(record(), message.data(), 4), 0);
    record()->device_lock = lock;
}

TEST_P(SspEngineTest, LockingLayerReopensOnceMoreAndGivesMinusOne) {
    stay_silent();
    Bytes message(4);
    unsigned int length = 4;
    EXPECT_EQ(lock_dev_and_receive_ssp_message(record(), message.data(), &length, 50, 0), -1);
    EXPECT_EQ(bus().log(GetParam() == Transport::hid ? "hid_open_path" : "libusb_open").size(), 2U);
    EXPECT_EQ(record()->was_removed, 0);
    unplug();
    forget();
    EXPECT_EQ(lock_dev_and_receive_ssp_message(record(), message.data(), &length, 50, 0), -20);
    EXPECT_EQ(record()->was_removed, 1);
    // Whatever the engine's own recovery came to.
    EXPECT_EQ(times_said(GetParam() == Transport::hid ? "Error, hid_open_dev() returned NULL"
                                                      : "Error, vcom_open_dev() returned NULL"),
              2);
}

TEST_P(SspEngineTest, LockingLayerReopensAfterAFailedSend) {
    bus().hooks.send_feature = always{-1};
    bus().hooks.bulk_out = always{LIBUSB_ERROR_PIPE};
    Bytes message{0, 0, 0, 0x10};
    EXPECT_EQ(lock_dev_and_send_ssp_message(record(), message.data(), 4), -1);
    EXPECT_EQ(record()->was_removed, 0);
    EXPECT_THAT(last(reopened().size(), bus().log()), ElementsAreArray(reopened()));
    // Over VCOM it is the only recovery.
    const std::size_t times = GetParam() == Transport::hid ? 2 : 1;
    EXPECT_THAT(bus().log(GetParam() == Transport::hid ? "hid_close" : "libusb_close"), SizeIs(times));
    EXPECT_THAT(bus().log(GetParam() == Transport::hid ? "hid_open_path" : "libusb_open"), SizeIs(times));
    bus().hooks = {};
    EXPECT_EQ(lock_dev_and_send_ssp_message(record(), message.data(), 4), 0);
}

TEST_P(SspEngineTest, FailedSendOfAPulledOutPad) {
    unplug();
    Bytes message{0, 0, 0, 0x10};
    EXPECT_EQ(lock_dev_and_send_ssp_message(record(), message.data(), 4), -20);
    EXPECT_EQ(record()->was_removed, 1);
    EXPECT_THAT(said(), Says("we lost device.."));
}

TEST_P(SspEngineTest, BadArgumentsOfTheLockingLayer) {
    unsigned char data[4] = {};
    unsigned int none = 0;
    unsigned int four = 4;
    EXPECT_EQ(lock_dev_and_send_ssp_message(record(), data, 0), -1);
    EXPECT_EQ(lock_dev_and_send_ssp_message(record(), nullptr, 4), -1);
    EXPECT_EQ(lock_dev_and_send_ssp_message(nullptr, data, 4), -1);
    EXPECT_EQ(lock_dev_and_receive_ssp_message(record(), data, nullptr, 100, 0), -1);
    EXPECT_EQ(lock_dev_and_receive_ssp_message(record(), data, &none, 100, 0), -1);
    EXPECT_EQ(lock_dev_and_receive_ssp_message(record(), nullptr, &four, 100, 0), -1);
    EXPECT_EQ(lock_dev_and_receive_ssp_message(nullptr, data, &four, 100, 0), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: unsigned int len is 0"),
                                    HasSubstr("Error, input parameter: void *data is "),
                                    HasSubstr("Error, input parameter: device *current_device is NULL"),
                                    HasSubstr("Error, input parameter: *(unsigned int *len) is 0"),
                                    HasSubstr("Error, input parameter: *(unsigned int *len) is 0"),
                                    HasSubstr("Error, input parameter: void *data is "),
                                    HasSubstr("Error, input parameter: device *current_device is NULL")));
    EXPECT_THAT(bus().log(), IsEmpty());
}

// Hostile pads.

TEST_P(SspEngineTest, LengthsThatLieAreNeverBelieved) {
    const std::vector<Bytes> liars{
        {0x02, 0xFF, 0xFF},             // a header only
        {0x02, 0xFF, 0xFF, 1, 2, 3},    // 65536 announced
        {0x02},                         // shorter than its header
        {0x02, 0x00},                   //
        {0xBF, 1, 2},                   // 64 announced
        {0xFF, 1},                      //
        {0x02, 0x00, 0x10, 0xAA, 0x55}, //
    };
    for (const Bytes& liar : liars) {
        // Behind another message's token it is over.
        feed(start_token + liar + framed(base(9, {1})));
        EXPECT_EQ(receive(record()), (Received{0, base(9, {1})})) << describe(liar);
        EXPECT_EQ(queued(record()->ssp_input_read) + queued(record()->ssp_command_messages), 0);
        // Alone it ends in the time-out.
        if (GetParam() == Transport::vcom) {
            feed(start_token + liar);
            const auto started = bus().now_us();
            EXPECT_EQ(receive(record(), commands, 100).result, -7) << describe(liar);
            EXPECT_LE(bus().now_us() - started, 350'000);
        }
    }
}

TEST_P(SspEngineTest, FloodWithoutATokenEndsInTheTimeOut) {
    for (const unsigned char byte : Bytes{0x11, 0xAA, 0x55}) {
        bus().hooks.bulk_in = [byte](UsbDevice&, std::span<unsigned char> data, int& transferred) {
            std::fill(data.begin(), data.end(), byte);
            transferred = static_cast<int>(data.size());
            return std::optional(0);
        };
        bus().hooks.get_feature = [byte](HidInterface&, std::span<unsigned char> report) {
            std::fill(report.begin(), report.end(), byte);
            report[1] = 249;
            report[2] = 0;
            return std::optional(65);
        };
        const auto started = bus().now_us();
        EXPECT_LT(receive(record(), commands, 200).result, 0);
        EXPECT_LE(bus().now_us() - started, 700'000);
        EXPECT_EQ(queued(record()->ssp_input_read) + queued(record()->ssp_command_messages), 0);
    }
}

// A message that never ends is given up, however slowly or fast its bytes come.
TEST_P(SspEngineTest, EndlessMessageEndsWithinBounds) {
    for (const std::size_t step : {1U, 60U, 4096U}) {
        bool begun = false;
        bus().hooks.bulk_in = [&](UsbDevice&, std::span<unsigned char> data, int& transferred) {
            const Bytes next = begun ? Bytes(step, 0x5A) : start_token + Bytes{2, 0xFF, 0xFF};
            begun = true;
            const std::size_t count = std::min(next.size(), data.size());
            std::copy_n(next.begin(), count, data.begin());
            transferred = static_cast<int>(count);
            return std::optional(0);
        };
        bus().hooks.get_feature = [&](HidInterface&, std::span<unsigned char> report) {
            Bytes reply = Bytes{0, 249, 0} + (begun ? Bytes(62, 0x5A) : start_token + Bytes{2, 0xFF, 0xFF});
            reply.resize(65, 0x5A);
            begun = true;
            std::copy(reply.begin(), reply.end(), report.begin());
            return std::optional(65);
        };
        const auto started = bus().now_us();
        EXPECT_LT(receive(record(), commands, 500).result, 0);
        EXPECT_LE(bus().now_us() - started, 1'700'000);
    }
}

TEST_P(SspEngineTest, LongestMessageThatTheBufferHoldsComes) {
    const Bytes longest = base(2, Bytes(2000, 0xA5));
    feed(part(framed(longest), 0, 1984)); // 32 reports
    feed(part(framed(longest), 1984));
    EXPECT_EQ(receive(record()), (Received{0, longest}));
}

} // namespace
} // namespace core_test
