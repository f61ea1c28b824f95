// The engine over bulk endpoints.
#include "ssp_test.hpp"

namespace core_test {
namespace {

class SspEngineVcomTest : public CoreTest {
  protected:
    SspEngineVcomTest() { bus().cost_us["libusb_bulk_transfer"] = 1000; }

    void TearDown() override {
        record.reset();
        CoreTest::TearDown();
    }

    int send(Bytes message) {
        return __send_ssp_message(record->get(), message.data(), static_cast<unsigned int>(message.size()));
    }
    void feed(const Bytes& stream) { pad.incoming.push_back(stream); }

    UsbDevice& pad = bus().plug(vcom_pad());
    std::optional<OpenVcomRecord> record{std::in_place, pad};
};

TEST_F(SspEngineVcomTest, MessageIsSentInOneTransfer) {
    const Bytes message = base(2, Bytes(300, 0x33) + Bytes{0xAA, 0x55, 1});
    EXPECT_EQ(send(message), 0);
    EXPECT_THAT(bus().log(), ElementsAre(bulk_out(framed(message))));
    EXPECT_THAT(pad.outgoing, ElementsAre(framed(message)));
}

TEST_F(SspEngineVcomTest, VcomWinsWhereBothAreOpen) {
    HidInterface& hid_pad = bus().plug(pad_of_type(plain_type));
    (*record)->hid = hid_open_dev(hid_pad.path.c_str());
    bus().take_log();
    EXPECT_EQ(send({0, 0, 0, 0x10}), 0);
    feed(framed(base(0, {1})));
    EXPECT_EQ(receive(record->get()), (Received{0, base(0, {1})}));
    EXPECT_THAT(bus().log("hid_send_feature_report"), IsEmpty());
    EXPECT_THAT(bus().log("hid_get_feature_report"), IsEmpty());
}

// Other than over HID sending itself does not recover.
TEST_F(SspEngineVcomTest, FailedSendGivesTheTransfersCode) {
    bus().hooks.bulk_out = always{LIBUSB_ERROR_PIPE};
    EXPECT_EQ(send({0, 0, 0, 0x10}), LIBUSB_ERROR_PIPE);
    EXPECT_THAT(said(), Says("Error of send/write data by usb_data_send(), it returns: -9"));
    EXPECT_EQ((*record)->was_removed, 0);
    EXPECT_THAT(bus().log("libusb_close"), IsEmpty());
    bus().hooks.bulk_out = always{LIBUSB_ERROR_NO_DEVICE};
    EXPECT_EQ(send({0, 0, 0, 0x10}), -4);
    EXPECT_EQ((*record)->was_removed, 1);
    EXPECT_THAT(said(), Says("we lost device.."));
}

TEST_F(SspEngineVcomTest, ReadsTheWholeBufferAndContinuesBehindWhatIsCarried) {
    const Bytes message = base(2, counting(100));
    feed(part(framed(message), 0, 46));
    feed(part(framed(message), 46));
    EXPECT_EQ(receive(record->get(), commands, 700), (Received{0, message}));
    EXPECT_THAT(bus().log(), ElementsAre(bulk_in(4096, 700), bulk_in(4096 - 46, 700)));
    EXPECT_THAT(said(), Says("Also need to add 60 bytes for complete last ssp message"));
}

TEST_F(SspEngineVcomTest, CutTokenBehindAMessageIsCarried) {
    const Bytes first = base(1, {1});
    const Bytes second = base(1, {2});
    for (const std::size_t cut : {1U, 2U, 3U}) {
        feed(framed(first) + part(framed(second), 0, cut));
        feed(part(framed(second), cut));
        forget();
        EXPECT_EQ(receive(record->get()), (Received{0, first}));
        EXPECT_THAT(bus().log(), ElementsAre(bulk_in(4096, 1000), bulk_in(4096 - cut, 1000)));
        EXPECT_THAT(said(), Says("Also need to add 254 bytes for complete last ssp message"));
        EXPECT_THAT(said(), Says(cut == 1 ? "Going to read new data, detected [AA] after SSP message"
                                          : "Going to read new data, detected [AA 55] after SSP message"));
        EXPECT_EQ(receive(record->get()), (Received{0, second}));
    }
}

// A message that happens to end in the marker's bytes is complete.
TEST_F(SspEngineVcomTest, MessageThatEndsInMarkerBytesIsNotContinued) {
    for (const Bytes& payload : {Bytes{1, 0xAA}, Bytes{1, 0xAA, 0x55}, Bytes{1, 0x55}}) {
        feed(framed(base(1, payload)));
        forget();
        EXPECT_EQ(receive(record->get()), (Received{0, base(1, payload)}));
        EXPECT_THAT(bus().log(), ElementsAre(bulk_in(4096, 1000)));
    }
}

TEST_F(SspEngineVcomTest, OtherBytesBehindAMessageEndTheCycle) {
    feed(framed(base(1, {1})) + Bytes{9, 8, 7});
    EXPECT_EQ(receive(record->get()), (Received{0, base(1, {1})}));
    EXPECT_THAT(said(), Says("Count of bytes that was found after SSP message: 3"));
    EXPECT_THAT(bus().log(), SizeIs(1));
}

TEST_F(SspEngineVcomTest, ContinuationThatTimesOutStillDelivers) {
    feed(framed(base(1, {1})) + Bytes{0xAA});
    EXPECT_EQ(receive(record->get(), commands, 100), (Received{0, base(1, {1})}));
    EXPECT_THAT(bus().log("libusb_close"), IsEmpty());
    EXPECT_EQ((*record)->was_removed, 0);
}

TEST_F(SspEngineVcomTest, LostPadDuringAContinuationDeliversAndIsMarked) {
    feed(framed(base(1, {1})) + Bytes{0xAA});
    int reads = 0;
    bus().hooks.bulk_in = [&](UsbDevice&, std::span<unsigned char>, int&) {
        return ++reads == 2 ? std::optional<int>(LIBUSB_ERROR_NO_DEVICE) : std::nullopt;
    };
    EXPECT_EQ(receive(record->get()), (Received{0, base(1, {1})}));
    EXPECT_EQ((*record)->was_removed, 1);
    EXPECT_THAT(said(), Says("we lost device.."));
}

TEST_F(SspEngineVcomTest, FirstReadEndsTheCallWithItsResult) {
    bus().hooks.bulk_in = always{LIBUSB_ERROR_NO_DEVICE};
    EXPECT_EQ(receive(record->get()).result, -4);
    EXPECT_EQ((*record)->was_removed, 1);
    EXPECT_THAT(said(), AllOf(Says("Error, vcom_read_ssp_data() return: -4"), Says("we lost device..")));
    EXPECT_THAT(last(2, bus().log()), ElementsAre(usb_closed(), usb_opened()));
    (*record)->was_removed = 0;
    forget();
    bus().hooks.bulk_in = always{LIBUSB_ERROR_PIPE};
    EXPECT_EQ(receive(record->get()).result, -1);
    EXPECT_THAT(said(), Says("Error, vcom_read_ssp_data() return: -1"));
    EXPECT_THAT(last(2, bus().log()), ElementsAre(usb_closed(), usb_opened()));
    EXPECT_EQ((*record)->was_removed, 0);
}

TEST_F(SspEngineVcomTest, TimeOutIsNotReportedByTheRead) {
    EXPECT_EQ(receive(record->get(), commands, 100).result, -7);
    EXPECT_EQ(times_said("Error, vcom_read_ssp_data() return"), 0);
}

TEST_F(SspEngineVcomTest, ReadsUntilBytesAreNotZero) {
    feed(Bytes(40));
    feed(framed(base(1, {1})));
    EXPECT_EQ(receive(record->get()), (Received{0, base(1, {1})}));
    EXPECT_EQ(bus().pauses(), (Pauses{1000}));
}

// A continuation takes zeros, which may be a message's own.
TEST_F(SspEngineVcomTest, ContinuationTakesZeros) {
    const Bytes message = base(1, Bytes(30));
    feed(part(framed(message), 0, 10));
    feed(part(framed(message), 10));
    EXPECT_EQ(receive(record->get()), (Received{0, message}));
    EXPECT_THAT(bus().pauses(), IsEmpty());
}

// Legacy feature reads.

TEST_F(SspEngineVcomTest, LegacyReadDropsOldRepliesAsksAndTakesAReply) {
    feed(framed({base(1, {1}), legacy({9})}));
    EXPECT_EQ(receive(record->get()), (Received{0, base(1, {1})}));
    EXPECT_EQ(queued((*record)->ssp_command_messages), 1);
    pad.answer = [](UsbDevice& device, const Bytes&) { device.incoming.push_back(framed({pen({3}), legacy({7, 8})})); };
    forget();
    EXPECT_EQ(receive(record->get(), pen_data, 1000, 1), (Received{0, legacy({7, 8})}));
    EXPECT_THAT(bus().log(), ElementsAre(bulk_out({0xAA, 0x55, 2, 0xC0, 0}), bulk_in(4096, 1000)));
    EXPECT_THAT(said(), Says("It is request for LEGACY feature..."));
    EXPECT_EQ(queued((*record)->ssp_input_read), 1);
}

// Only the flag 1 insists on a fresh reply; any flag asks for one and is answered by replies.
TEST_F(SspEngineVcomTest, OtherLegacyFlagsServeAnOldReplyFirst) {
    feed(framed({base(1, {1}), legacy({9})}));
    EXPECT_EQ(receive(record->get()), (Received{0, base(1, {1})}));
    pad.answer = [](UsbDevice& device, const Bytes&) { device.incoming.push_back(framed({pen({3}), legacy({7, 8})})); };
    forget();
    EXPECT_EQ(receive(record->get(), pen_data, 1000, 2), (Received{0, legacy({9})}));
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_EQ(receive(record->get(), pen_data, 1000, 2), (Received{0, legacy({7, 8})}));
    EXPECT_THAT(bus().log(), ElementsAre(bulk_out({0xAA, 0x55, 2, 0xC0, 0}), bulk_in(4096, 1000)));
    EXPECT_EQ(queued((*record)->ssp_input_read), 1);
}

TEST_F(SspEngineVcomTest, LegacyRequestIsRepeatedEachCycle) {
    int requests = 0;
    pad.answer = [&](UsbDevice& device, const Bytes&) {
        device.incoming.push_back(++requests < 3 ? framed(pen({1})) : framed(legacy({7})));
    };
    EXPECT_EQ(receive(record->get(), pen_data, 1000, 1), (Received{0, legacy({7})}));
    EXPECT_EQ(requests, 3);
    EXPECT_EQ(queued((*record)->ssp_input_read), 2);
}

TEST_F(SspEngineVcomTest, FailedLegacyRequestEndsTheCall) {
    bus().hooks.bulk_out = always{LIBUSB_ERROR_PIPE};
    EXPECT_LT(receive(record->get(), pen_data, 1000, 1).result, 0);
    EXPECT_THAT(said(), Says("usb_data_send() return: -9"));
    EXPECT_THAT(last(2, bus().log()), ElementsAre(usb_closed(), usb_opened()));
    bus().hooks.bulk_out = always{LIBUSB_ERROR_NO_DEVICE};
    EXPECT_EQ(receive(record->get(), pen_data, 1000, 1).result, -4);
    EXPECT_EQ((*record)->was_removed, 1);
}

// A message that the buffer cannot hold: where no room is left, the re-framing has failed.
TEST_F(SspEngineVcomTest, MessageBeyondTheBufferIsGivenUp) {
    const Bytes message = base(1, Bytes(5000, 0x21));
    feed(part(framed(message), 0, 4096));
    feed(part(framed(message), 4096));
    feed(framed(base(1, {1})));
    EXPECT_EQ(receive(record->get()), (Received{0, base(1, {1})}));
    EXPECT_THAT(said(), Says("Error, ssp_base_message_to_transport_token_data() return: 4096"));
}

// The token at the end of a full buffer begins another message, which is not lost with the long one.
TEST_F(SspEngineVcomTest, TokenBehindAMessageBeyondTheBufferIsCarried) {
    for (const std::size_t cut : {1U, 2U, 3U}) {
        feed(start_token + part(base(1, Bytes(5000, 0x21)), 0, 4093 - cut) + part(start_token, 0, cut));
        feed(part(start_token, cut) + base(1, {1}));
        forget();
        EXPECT_EQ(receive(record->get()), (Received{0, base(1, {1})})) << cut;
        EXPECT_THAT(bus().log(), ElementsAre(bulk_in(4096, 1000), bulk_in(4096 - cut, 1000)));
        EXPECT_EQ(times_said("Error, ssp_base_message_to_transport_token_data() return: "), 1);
    }
}

TEST_F(SspEngineVcomTest, LargestMessageOfTheBufferFits) {
    const Bytes message = base(1, Bytes(4096 - 6, 0x21));
    feed(part(framed(message), 0, 4095));
    feed(part(framed(message), 4095));
    EXPECT_EQ(receive(record->get(), commands, 1000, no_legacy, 5000), (Received{0, message}));
    EXPECT_THAT(last(1, bus().log()), ElementsAre(bulk_in(1, 1000)));
}

} // namespace
} // namespace core_test
