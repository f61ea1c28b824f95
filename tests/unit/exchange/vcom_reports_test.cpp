// Reports of VCOM pads, carried as legacy messages.
#include "ssp_test.hpp"

namespace core_test {
namespace {

class VcomReportsTest : public CoreTest {
  protected:
    VcomReportsTest() { bus().cost_us["libusb_bulk_transfer"] = 1000; }

    void TearDown() override {
        record.reset();
        CoreTest::TearDown();
    }

    void reply(const std::vector<Bytes>& replies) {
        pad.answer = [=](UsbDevice& device, const Bytes&) { device.incoming.push_back(framed(replies)); };
    }

    UsbDevice& pad = bus().plug(vcom_pad());
    std::optional<OpenVcomRecord> record{std::in_place, pad};
    Bytes data = Bytes(80, 0xEE);
};

TEST_F(VcomReportsTest, FeatureReadAsksForALegacyReply) {
    reply({legacy(counting(64))});
    EXPECT_EQ(vcom_feature_read(record->get(), data.data(), 64), 0);
    EXPECT_EQ(part(data, 0, 65), counting(64) + Bytes{0xEE});
    EXPECT_THAT(bus().log(), ElementsAre(bulk_out({0xAA, 0x55, 2, 0xC0, 0}), bulk_in(4096, 1000)));
    EXPECT_THAT(said(), Says("feature_report with size 64 was gotten"));
}

TEST_F(VcomReportsTest, FeatureReadCopiesTheSmallerSize) {
    reply({legacy({1, 2, 3})});
    EXPECT_EQ(vcom_feature_read(record->get(), data.data(), 64), 0);
    EXPECT_EQ(part(data, 0, 4), (Bytes{1, 2, 3, 0xEE}));
    reply({legacy(counting(64))});
    EXPECT_EQ(vcom_feature_read(record->get(), data.data(), 2), 0);
    EXPECT_EQ(part(data, 0, 3), (Bytes{1, 2, 3}));
}

// More than a legacy message can hold may be asked for.
TEST_F(VcomReportsTest, FeatureReadIntoALargeBuffer) {
    data.assign(5000, 0xEE);
    reply({legacy(counting(64))});
    EXPECT_EQ(vcom_feature_read(record->get(), data.data(), 5000), 0);
    EXPECT_EQ(part(data, 0, 65), counting(64) + Bytes{0xEE});
}

TEST_F(VcomReportsTest, FeatureReadRefusesABaseMessage) {
    reply({base(1, counting(10))});
    EXPECT_EQ(vcom_feature_read(record->get(), data.data(), 64), -1);
    EXPECT_THAT(said(), Says("ssp_base_message_is_it_old_message() return 0, so it is not legacy message"));
    EXPECT_THAT(data, Each(0xEE));
}

TEST_F(VcomReportsTest, FeatureReadLeavesPenDataAlone) {
    reply({pen({5}), legacy({1})});
    EXPECT_EQ(vcom_feature_read(record->get(), data.data(), 64), 0);
    EXPECT_EQ(data[0], 1);
    EXPECT_EQ(queued((*record)->ssp_input_read), 1);
}

TEST_F(VcomReportsTest, FeatureReadGivesTheEnginesCode) {
    EXPECT_EQ(vcom_feature_read(record->get(), data.data(), 64), -7);
    EXPECT_THAT(said(), Says("__receive_ssp_message() failed, function return: -7"));
    bus().unplug(pad);
    EXPECT_EQ(vcom_feature_read(record->get(), data.data(), 64), -20);
    EXPECT_EQ((*record)->was_removed, 1);
}

TEST_F(VcomReportsTest, WritesAreLegacyMessages) {
    for (const auto write : {vcom_feature_write, vcom_output_write}) {
        for (const std::size_t size : {1U, 40U, 64U}) {
            pad.outgoing.clear();
            const Bytes report = counting(size);
            EXPECT_EQ(write(record->get(), report.data(), static_cast<unsigned int>(size)), 0);
            EXPECT_THAT(pad.outgoing, ElementsAre(framed(legacy(report))));
        }
    }
}

TEST_F(VcomReportsTest, WriteOfMoreThanALegacyMessageHolds) {
    for (const auto write : {vcom_feature_write, vcom_output_write}) {
        EXPECT_EQ(write(record->get(), data.data(), 65), -1);
        EXPECT_THAT(said(), Says("Error, ssp_base_message_old_message_create() returned: -1"));
    }
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(VcomReportsTest, FailedWritesGiveTheEnginesCodeOrMinusOne) {
    bus().hooks.bulk_out = always{LIBUSB_ERROR_PIPE};
    EXPECT_EQ(vcom_feature_write(record->get(), data.data(), 4), LIBUSB_ERROR_PIPE);
    EXPECT_THAT(said(), Says("__send_ssp_message() failed with return code -9"));
    EXPECT_EQ(vcom_output_write(record->get(), data.data(), 4), -1);
    EXPECT_EQ((*record)->was_removed, 0);
    bus().hooks.bulk_out = always{LIBUSB_ERROR_NO_DEVICE};
    EXPECT_EQ(vcom_output_write(record->get(), data.data(), 4), -1);
    EXPECT_EQ((*record)->was_removed, 1);
    (*record)->was_removed = 0;
    EXPECT_EQ(vcom_feature_write(record->get(), data.data(), 4), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ((*record)->was_removed, 1);
}

TEST_F(VcomReportsTest, InputReadTakesPenData) {
    pad.incoming.push_back(framed({pen({7, 8, 9})}));
    EXPECT_EQ(vcom_input_read(record->get(), data.data(), 64), 3);
    EXPECT_EQ(part(data, 0, 4), (Bytes{7, 8, 9, 0xEE}));
    EXPECT_THAT(bus().log(), ElementsAre(bulk_in(4096, 100)));
    pad.incoming.push_back(framed({pen(counting(64)), pen({1})}));
    EXPECT_EQ(vcom_input_read(record->get(), data.data(), 2), 2);
    EXPECT_EQ(vcom_input_read(record->get(), data.data(), 64), 1);
}

TEST_F(VcomReportsTest, InputReadWithNothingWaitingGivesZeroAndReopens) {
    const auto started = bus().now_us();
    EXPECT_EQ(vcom_input_read(record->get(), data.data(), 64), 0);
    EXPECT_GE(bus().now_us() - started, 100'000);
    EXPECT_LE(bus().now_us() - started, 250'000);
    EXPECT_THAT(last(2, bus().log()), ElementsAre(usb_closed(), usb_opened()));
    EXPECT_THAT(data, Each(0xEE));
}

TEST_F(VcomReportsTest, InputReadOfALostPad) {
    bus().hooks.bulk_in = always{LIBUSB_ERROR_NO_DEVICE};
    EXPECT_EQ(vcom_input_read(record->get(), data.data(), 64), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ((*record)->was_removed, 1);
}

TEST_F(VcomReportsTest, BadArguments) {
    vx_device closed_record{};
    EXPECT_EQ(vcom_feature_read(nullptr, nullptr, 0), -1);
    EXPECT_EQ(vcom_feature_read(nullptr, nullptr, 4), -1);
    EXPECT_EQ(vcom_feature_read(nullptr, data.data(), 4), -1);
    EXPECT_EQ(vcom_feature_read(&closed_record, data.data(), 4), -1);
    EXPECT_THAT(said(), Says("Error, struct libusb_device_handle *vcom_handle; is NULL"));
    for (const auto write : {vcom_feature_write, vcom_output_write}) {
        EXPECT_EQ(write(nullptr, nullptr, 0), -1);
        EXPECT_EQ(write(nullptr, nullptr, 4), -1);
        EXPECT_EQ(write(nullptr, data.data(), 4), -1);
        EXPECT_EQ(write(&closed_record, data.data(), 4), -1);
        EXPECT_THAT(said(), Says("Error, libusb_device_handle *vcom_handle is NULL"));
    }
    EXPECT_EQ(vcom_input_read(nullptr, nullptr, 0), 0);
    EXPECT_EQ(vcom_input_read(nullptr, nullptr, 4), 0);
    EXPECT_EQ(vcom_input_read(nullptr, data.data(), 4), 0);
    EXPECT_EQ(times_said("Error"), 15);
    EXPECT_THAT(bus().log(), IsEmpty());
}

// The core's report operations choose VCOM and recover.
TEST_F(VcomReportsTest, CoreReportsGoOverVcom) {
    reply({legacy({0x27})});
    EXPECT_EQ(core_feature_read(record->get(), data.data(), 64), 0);
    EXPECT_EQ(core_feature_write(record->get(), data.data(), 64), 0);
    EXPECT_EQ(core_output_write(record->get(), data.data(), 64), 0);
    pad.incoming = {framed(pen({1, 2}))};
    EXPECT_EQ(core_input_read(record->get(), data.data(), 64), 2);
    EXPECT_THAT(bus().log("libusb_close"), IsEmpty());
    forget();
    bus().hooks.bulk_out = always{LIBUSB_ERROR_PIPE};
    EXPECT_EQ(core_feature_write(record->get(), data.data(), 64), -1);
    EXPECT_THAT(last(2, bus().log()), ElementsAre(usb_closed(), usb_opened()));
    bus().unplug(pad);
    EXPECT_EQ(core_feature_write(record->get(), data.data(), 64), -20);
    EXPECT_EQ((*record)->was_removed, 1);
    EXPECT_EQ(core_output_write(record->get(), data.data(), 64), -1); // it is closed now
}

// A record with both transports: VCOM comes first in everything.
class BothTransportsTest : public CoreTest {
  protected:
    BothTransportsTest() {
        bus().cost_us["libusb_bulk_transfer"] = 1000;
        hid_pad.path.copy((*record)->hid_path, hid_pad.path.size());
    }

    void TearDown() override {
        record.reset();
        CoreTest::TearDown();
    }

    static Lines opens_and_closes() {
        Lines log = bus().take_log();
        std::erase_if(log, [](const std::string& line) {
            return line.find("_open") == std::string::npos && line.find("_close") == std::string::npos;
        });
        return log;
    }

    HidInterface& hid_pad = bus().plug(pad_of_type(plain_type));
    UsbDevice& vcom_device = bus().plug(vcom_pad());
    std::optional<VcomRecord> record{std::in_place, vcom_device};
};

TEST_F(BothTransportsTest, AreOpenedAndClosedInThatOrder) {
    EXPECT_EQ(__core_open_dev(record->get()), 0);
    EXPECT_THAT(opens_and_closes(), ElementsAre(usb_opened(), opened(hid_pad.path)));
    __core_close_dev(record->get());
    EXPECT_THAT(opens_and_closes(), ElementsAre(usb_closed(), closed(hid_pad.path)));
}

TEST_F(BothTransportsTest, HidIsOpenedWhateverVcomGave) {
    bus().hooks.usb = [](UsbDevice&, std::string_view function) {
        return function == "libusb_open" ? std::optional<int>(LIBUSB_ERROR_IO) : std::nullopt;
    };
    EXPECT_EQ(__core_open_dev(record->get()), -1);
    EXPECT_THAT(said(), Says("Error, vcom_open_dev() returned NULL"));
    EXPECT_EQ((*record)->vcom_handle, nullptr);
    EXPECT_NE((*record)->hid, nullptr);
}

TEST_F(BothTransportsTest, ReportsGoOverVcom) {
    ASSERT_EQ(__core_open_dev(record->get()), 0);
    vcom_device.answer = [](UsbDevice& device, const Bytes&) {
        device.incoming.push_back(framed({legacy(counting(64))}));
    };
    bus().take_log();
    Bytes data(512, 0x5A);
    EXPECT_EQ(core_feature_write(record->get(), data.data(), 64), 0);
    EXPECT_EQ(core_output_write(record->get(), data.data(), 64), 0);
    vcom_device.incoming.clear();
    EXPECT_EQ(core_feature_read(record->get(), data.data(), 64), 0);
    EXPECT_EQ(core_input_read(record->get(), data.data(), 512), 0);
    for (const char* const transfer : {"hid_send_feature_report", "hid_get_feature_report", "hid_read"}) {
        EXPECT_THAT(bus().log(transfer), IsEmpty());
    }
    EXPECT_THAT(vcom_device.outgoing, SizeIs(3));
}

} // namespace
} // namespace core_test
