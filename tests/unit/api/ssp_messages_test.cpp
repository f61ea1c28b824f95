// SendSspMessage(), ReceiveSspMessage() and AddComDevice(), and the report functions of a VCOM pad.
#include "api_test.hpp"
#include "ssp_test.hpp"

#include <unistd.h>

namespace api {
namespace {

using core_test::base;
using core_test::operator+;
using core_test::bulk_in;
using core_test::bulk_out;
using core_test::counting;
using core_test::described_as;
using core_test::framed;
using core_test::legacy;
using core_test::part;
using core_test::pen;
using core_test::SspPad;
using standins::bus;
using standins::Bytes;
using standins::UsbDevice;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Pad 1 is a VCOM pad.
class SspApiTest : public Test {
  protected:
    void SetUp() override {
        Test::SetUp();
        bus().cost_us["libusb_bulk_transfer"] = 1000;
        pad_ = &bus().plug(standins::vcom_pad());
        model_ = described_as(10);
        model_.attach(*pad_);
        ASSERT_EQ(Initialize(), 0);
        ASSERT_EQ(GetDeviceCount(&reply_), 1);
        bus().take_log();
        model_.asked.clear();
    }

    int send(const Bytes& message, unsigned int device = 1, unsigned int interface = 0) {
        return SendSspMessage(device, interface, message.data(), static_cast<unsigned int>(message.size()));
    }

    UsbDevice* pad_ = nullptr;
    SspPad model_;
    unsigned int reply_ = preset;
    Bytes buffer_ = Bytes(200, 0xEE);
};

const Bytes component_query{0, 0, 0, 0x10};

TEST_F(SspApiTest, MessageGoesAndComesAsItIs) {
    EXPECT_EQ(send(component_query), 0);
    EXPECT_EQ(ReceiveSspMessage(1, 0, buffer_.data(), 200, 321, &reply_), 0);
    const Bytes expected = base(0, model_.component_list());
    EXPECT_EQ(reply_, expected.size());
    EXPECT_EQ(part(buffer_, 0, reply_), expected);
    EXPECT_THAT(part(buffer_, reply_), Each(0xEE));
    EXPECT_THAT(bus().log(), ElementsAre(bulk_out(framed(component_query)), bulk_in(4096, 321)));
}

TEST_F(SspApiTest, MessageLongerThanTheBufferIsCut) {
    EXPECT_EQ(send(component_query), 0);
    EXPECT_EQ(ReceiveSspMessage(1, 0, buffer_.data(), 2, 100, &reply_), 0);
    EXPECT_EQ(reply_, 2U);
    EXPECT_EQ(part(buffer_, 0, 3), (Bytes{0, 6, 0xEE}));
}

TEST_F(SspApiTest, LongMessagesHaveNoLimitHere) {
    const Bytes message = base(1, Bytes(20'000, 0xAA));
    EXPECT_EQ(send(message), 0);
    EXPECT_THAT(pad_->outgoing, testing::Contains(framed(message)));
}

TEST_F(SspApiTest, BadArgumentsAreFiledBeforeThePadIsSelected) {
    unsigned char byte = 0;
    const auto check = [](int handle, const char* function, const char* message) {
        EXPECT_EQ(record_of(handle), (Record{invalid_parameter, function, message}));
    };
    check(SendSspMessage(99, 0, nullptr, 0), "SendSspMessage", "Error of input parameters, const void *src is NULL");
    check(SendSspMessage(99, 0, &byte, 0), "SendSspMessage",
          "Error of input parameters, const unsigned int src_length is 0");
    check(ReceiveSspMessage(99, 0, nullptr, 0, 100, nullptr), "ReceiveSspMessage",
          "Error of input parameters, unsigned int *reply is NULL");
    check(ReceiveSspMessage(99, 0, nullptr, 0, 100, &reply_), "ReceiveSspMessage",
          "Error of input parameters, const void *dst is NULL");
    for (const unsigned int length : {0U, 1U}) {
        check(ReceiveSspMessage(99, 0, &byte, length, 100, &reply_), "ReceiveSspMessage",
              "Error of input parameters, const unsigned int dst_length is <= 1");
    }
    EXPECT_EQ(reply_, preset);
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(SspApiTest, UnknownPadIsFiled) {
    EXPECT_EQ(record_of(send(component_query, 2)),
              (Record{invalid_handle, "SendSspMessage", "Error of switching to device: 2"}));
    EXPECT_EQ(record_of(ReceiveSspMessage(2, 0, buffer_.data(), 200, 100, &reply_)).code, invalid_handle);
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(SspApiTest, TimeOutIsAFailureLikeAnyOther) {
    EXPECT_EQ(record_of(ReceiveSspMessage(1, 0, buffer_.data(), 200, 50, &reply_)),
              (Record{invalid_handle, "ReceiveSspMessage", "Error of receive ssp message for device: 1"}));
    EXPECT_EQ(reply_, preset);
    EXPECT_THAT(buffer_, Each(0xEE));
}

TEST_F(SspApiTest, FailedSendIsFiled) {
    bus().hooks.bulk_out = standins::always{-9};
    EXPECT_EQ(record_of(send(component_query)),
              (Record{invalid_handle, "SendSspMessage", "Error of send ssp message for device: 1"}));
    bus().hooks = {};
    EXPECT_EQ(send(component_query), 0);
}

TEST_F(SspApiTest, LengthsThatTheCoreCannotCountAreFailures) {
    EXPECT_EQ(record_of(SendSspMessage(1, 0, buffer_.data(), 0x80000000)).code, invalid_handle);
    EXPECT_EQ(record_of(ReceiveSspMessage(1, 0, buffer_.data(), 0xFFFFFFFF, 50, &reply_)).code, invalid_handle);
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(SspApiTest, CoresResultIsTracedOnly) {
    EXPECT_THAT(said_during([&] { send(component_query); }), HasSubstr("SSP message was sent successfully"));
    bus().unplug(*pad_);
    EXPECT_THAT(said_during([&] { send(component_query); }),
                HasSubstr("Error, function core_send_ssp_message() return -20"));
    EXPECT_THAT(said_during([&] { ReceiveSspMessage(1, 0, buffer_.data(), 200, 50, &reply_); }),
                HasSubstr("Error, function core_receive_ssp_message() return -20"));
}

// The pad of the other tests becomes pad 2: HID pads come first.
class SspApiInterfacesTest : public SspApiTest {
  protected:
    void SetUp() override {
        SspApiTest::SetUp();
        first_ = &bus().plug(standins::pad_of_type(10));
        further_ = &bus().plug(standins::pad_of_type(10, "1-1:1.1", 1));
        ASSERT_EQ(Initialize(), 0);
        ASSERT_EQ(GetDeviceCount(&reply_), 2);
        bus().cost_us["hid_get_feature_report"] = 1000;
        bus().take_log();
    }

    standins::HidInterface* first_ = nullptr;
    standins::HidInterface* further_ = nullptr;
};

TEST_F(SspApiInterfacesTest, MessagesTravelOverTheInterfaceThatIsNamed) {
    EXPECT_EQ(send(component_query, 1, 1), 0);
    EXPECT_EQ(send(component_query, 1, 0), 0);
    const std::string sent = ", 9: 00 f8 aa 55 02 00 00 00 10)";
    EXPECT_THAT(bus().log("hid_send_feature_report"),
                ElementsAre("hid_send_feature_report(1-1:1.1" + sent, "hid_send_feature_report(1-1:1.0" + sent));
    further_->feature_replies.push_back(core_test::ssp_reports(framed(base(1, {4})))[0]);
    first_->feature_replies.push_back(core_test::ssp_reports(framed(base(1, {5})))[0]);
    EXPECT_EQ(ReceiveSspMessage(1, 1, buffer_.data(), 200, 100, &reply_), 0);
    EXPECT_EQ(part(buffer_, 0, reply_), base(1, {4}));
    EXPECT_EQ(ReceiveSspMessage(1, 0, buffer_.data(), 200, 100, &reply_), 0);
    EXPECT_EQ(part(buffer_, 0, reply_), base(1, {5}));
    EXPECT_EQ(record_of(send(component_query, 1, 3)).code, invalid_handle);
    EXPECT_EQ(record_of(ReceiveSspMessage(1, 3, buffer_.data(), 200, 100, &reply_)).code, invalid_handle);
}

TEST_F(SspApiInterfacesTest, RemovalOfTheInterfaceIsToldAndLeavesThePad) {
    static int removed;
    for (const bool sending : {true, false}) {
        bus().plug_again(*further_);
        ASSERT_EQ(Initialize(), 0);
        removed = 0;
        SetOnDeviceRemovedHandler([](void*, unsigned int device) { removed += device == 1 ? 1 : 100; }, nullptr);
        EXPECT_EQ(send(component_query, 1, 1), 0);
        bus().unplug(*further_);
        if (sending) {
            EXPECT_EQ(record_of(send(component_query, 1, 1)),
                      (Record{invalid_handle, "SendSspMessage", "Error of send ssp message for device: 1"}));
        } else {
            EXPECT_EQ(record_of(ReceiveSspMessage(1, 1, buffer_.data(), 200, 100, &reply_)),
                      (Record{invalid_handle, "ReceiveSspMessage", "Error of receive ssp message for device: 1"}));
        }
        EXPECT_EQ(removed, 1);
        EXPECT_EQ(send(component_query, 1, 0), 0);
        EXPECT_EQ(removed, 1);
    }
}

// Whatever transfer the pad is pulled out at: the callback, a failure, nothing left open.
TEST_F(SspApiTest, PadPulledOutAtAnyTransfer) {
    static int removed;
    for (int at = 0; at < 8; ++at) {
        bus().plug_again(*pad_);
        ASSERT_EQ(Initialize(), 0);
        removed = 0;
        SetOnDeviceRemovedHandler([](void*, unsigned int device) { removed += device == 1 ? 1 : 100; }, nullptr);
        int transfers = 0;
        const auto pull = [&] {
            if (transfers++ == at) {
                bus().unplug(*pad_);
            }
        };
        bus().hooks.bulk_out = [&](UsbDevice&, std::span<const unsigned char>, int&) {
            pull();
            return std::optional<int>();
        };
        bus().hooks.bulk_in = [&](UsbDevice&, std::span<unsigned char>, int&) {
            pull();
            return std::optional<int>();
        };
        const Bytes report(65);
        int result = 0;
        for (int round = 0; result == 0 && round < 5; ++round) {
            result = send(component_query);
            if (result == 0) {
                result = ReceiveSspMessage(1, 0, buffer_.data(), 200, 50, &reply_);
            }
            if (result == 0) {
                result = SetFeature(1, 0, report.data(), 65, &reply_);
            }
            if (result == 0) {
                result = GetFeature(1, 0, buffer_.data(), 65, &reply_);
            }
            if (result == 0) {
                result = WriteFile(1, 0, report.data(), 65, &reply_);
            }
        }
        EXPECT_EQ(record_of(result).code, invalid_handle) << at;
        EXPECT_EQ(removed, 1) << at;
        EXPECT_EQ(bus().open_handles(), 0) << at;
        EXPECT_NE(send(component_query), 0);
        EXPECT_EQ(removed, 2);
        bus().hooks = {};
        Deinitialize();
        EXPECT_EQ(bus().usb_references(), 0) << at;
    }
}

TEST_F(SspApiTest, AddComDeviceOnlySaysThatItIsNotImplemented) {
    EXPECT_THAT(said_during([] { EXPECT_EQ(AddComDevice(nullptr, 0, nullptr), 0); }),
                HasSubstr("Function AddComDevice() not implemented yet."));
    int any = 0;
    EXPECT_EQ(AddComDevice(&any, 7, &any), 0);
}

// Every earlier function serves a VCOM pad.

TEST_F(SspApiTest, FactsOfAVcomPad) {
    GuardedText text(64);
    EXPECT_EQ(GetSerialNumber(1, text.data(), 64, &reply_), 0);
    EXPECT_EQ(text.text(reply_), "SN0300");
    EXPECT_EQ(GetProductName(1, 0, text.data(), 64, &reply_), 0);
    EXPECT_EQ(text.text(7), "Pad 300");
    EXPECT_EQ(GetProductId(1, 0, &reply_), 0);
    EXPECT_EQ(reply_, model_.product_id);
    EXPECT_EQ(GetVendorId(1, &reply_), 0);
    EXPECT_EQ(reply_, model_.vendor_id);
    EXPECT_EQ(GetFeatureReportSize(1, 0, &reply_), 0);
    EXPECT_EQ(reply_, 65U);
}

TEST_F(SspApiTest, ReportsOfAVcomPadTravelAsLegacyMessages) {
    const Bytes report = Bytes(1) + counting(64);
    EXPECT_EQ(SetFeature(1, 0, report.data(), 65, &reply_), 0);
    EXPECT_EQ(WriteFile(1, 0, report.data(), 65, &reply_), 0);
    EXPECT_THAT(model_.asked, ElementsAre(legacy(counting(64)), legacy(counting(64))));
    model_.replace = [](const Bytes&) { return std::optional(std::vector<Bytes>{legacy(counting(64, 100))}); };
    EXPECT_EQ(GetFeature(1, 0, buffer_.data(), 65, &reply_), 0);
    EXPECT_EQ(part(buffer_, 0, 65), Bytes(1) + counting(64, 100));
}

// A short reply hands no old memory to the caller.
TEST_F(SspApiTest, ShortLegacyReplyIsFilledUpWithZeros) {
    model_.replace = [](const Bytes&) { return std::optional(std::vector<Bytes>{legacy({1, 2})}); };
    EXPECT_EQ(GetFeature(1, 0, buffer_.data(), 65, &reply_), 0);
    EXPECT_EQ(reply_, 65U);
    EXPECT_EQ(part(buffer_, 0, 65), (Bytes{0, 1, 2}) + Bytes(62));
    EXPECT_EQ(buffer_[65], 0xEE);
}

TEST_F(SspApiTest, IdleReadFileOfAVcomPadSucceedsAndReopens) {
    reply_ = preset;
    unsigned int size = 0;
    ASSERT_EQ(GetFeatureReportSize(1, 0, &size), 0);
    EXPECT_EQ(ReadFile(1, 0, buffer_.data(), 513, &reply_), 0);
    EXPECT_EQ(reply_, preset);
    EXPECT_THAT(buffer_, Each(0xEE));
    EXPECT_EQ(bus().log("libusb_open").size(), 1U);
}

} // namespace
} // namespace api
