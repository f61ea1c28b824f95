// Opening VCOM pads and moving bytes over their endpoints.
#include "ssp_test.hpp"

namespace core_test {
namespace {

class VcomBulkTest : public CoreTest {
  protected:
    VcomBulkTest() { forget(); }

    void TearDown() override {
        record.reset();
        CoreTest::TearDown();
    }

    libusb_device_handle* handle() { return (*record)->vcom_handle; }
    int receive_bytes(Bytes& data, unsigned int time_out = 100) {
        return usb_data_receive(handle(), 0x81, data.data(), static_cast<int>(data.size()), time_out);
    }
    int send_bytes(Bytes data) { return usb_data_send(handle(), 0x01, data.data(), static_cast<int>(data.size())); }
    int read(Bytes& data, unsigned int time_out, unsigned char nonzero) {
        return vcom_read_ssp_data(record->get(), data.data(), static_cast<int>(data.size()), time_out, nonzero);
    }

    UsbDevice& pad = bus().plug(vcom_pad());
    std::optional<OpenVcomRecord> record{std::in_place, pad};
};

TEST_F(VcomBulkTest, OpensAndClosesWithoutClaiming) {
    (*record)->vcom_handle = (vcom_close_dev(handle()), nullptr);
    forget();
    libusb_device_handle* const opened_handle = vcom_open_dev((*record)->vcom_device);
    ASSERT_NE(opened_handle, nullptr);
    vcom_close_dev(opened_handle);
    vcom_close_dev(nullptr);
    EXPECT_THAT(bus().log(), ElementsAre(usb_opened(), usb_closed()));
    EXPECT_THAT(said(), Says("Going to open VCOM device 0x"));
}

TEST_F(VcomBulkTest, FailedOpenIsTriedOnce) {
    bus().hooks.usb = [](UsbDevice&, std::string_view) { return std::optional<int>(LIBUSB_ERROR_IO); };
    forget();
    EXPECT_EQ(vcom_open_dev((*record)->vcom_device), nullptr);
    EXPECT_THAT(said(),
                AllOf(Says("failed during opening VCOM device 0x"), Says("libusb_open() failed: LIBUSB_ERROR_IO")));
    EXPECT_THAT(bus().log(), ElementsAre(usb_opened()));
    EXPECT_EQ(vcom_open_dev(nullptr), nullptr);
    EXPECT_THAT(said(), Says("input parameter *usb_device == NULL"));
}

TEST_F(VcomBulkTest, CoreOpensAndClosesARecord) {
    core_close_dev(record->get());
    EXPECT_EQ(handle(), nullptr);
    EXPECT_EQ(__core_open_dev(record->get()), 0);
    EXPECT_NE(handle(), nullptr);
    EXPECT_EQ(__core_open_dev(record->get()), 0); // stays as it is
    EXPECT_THAT(bus().log(), ElementsAre(usb_closed(), usb_opened()));
    core_close_dev(record->get());
    bus().unplug(pad);
    EXPECT_EQ(__core_open_dev(record->get()), -1);
    EXPECT_THAT(said(), Says("Error, vcom_open_dev() returned NULL"));
    EXPECT_EQ(core_open_dev(record->get()), 0);
}

TEST_F(VcomBulkTest, ReceivesOneTransfer) {
    pad.incoming.push_back({1, 2, 3});
    Bytes data(10, 0xEE);
    EXPECT_EQ(receive_bytes(data, 77), 3);
    EXPECT_EQ(part(data, 0, 4), (Bytes{1, 2, 3, 0xEE}));
    EXPECT_THAT(bus().log(), ElementsAre(bulk_in(10, 77)));
    EXPECT_THAT(said(), AllOf(Says("going to call libusb_bulk_transfer(device_handle: 0x"), Says("timeout: 77)"),
                              Says("USB_DATA_RECEIVE : [ 01 02 03 ]")));
}

TEST_F(VcomBulkTest, ErrorsOfAReceiveAreReturnedAsTheyAre) {
    Bytes data(10);
    EXPECT_EQ(receive_bytes(data), LIBUSB_ERROR_TIMEOUT);
    EXPECT_THAT(said(), Says("libusb_bulk_transfer() timeout: LIBUSB_ERROR_TIMEOUT"));
    for (const int error : {LIBUSB_ERROR_PIPE, LIBUSB_ERROR_IO}) {
        bus().hooks.bulk_in = always{error};
        EXPECT_EQ(receive_bytes(data), error);
    }
    EXPECT_THAT(said(), Says("libusb_bulk_transfer() failed: LIBUSB_ERROR_PIPE"));
    bus().hooks.bulk_in = always{LIBUSB_ERROR_NO_DEVICE};
    EXPECT_EQ(receive_bytes(data), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_THAT(said(), Says("LIBUSB_ERROR_NO_DEVICE"));
    bus().hooks.bulk_in = always{0};
    EXPECT_EQ(receive_bytes(data), 0); // nothing came
}

// A transfer that ran out of time may have brought bytes: they belong to the stream.
TEST_F(VcomBulkTest, BytesOfATimeOutAreNotLost) {
    bus().hooks.bulk_in = [](UsbDevice&, std::span<unsigned char> data, int& transferred) {
        data[0] = 5;
        data[1] = 6;
        transferred = 2;
        return std::optional<int>(LIBUSB_ERROR_TIMEOUT);
    };
    Bytes data(10);
    EXPECT_EQ(receive_bytes(data), 2);
    EXPECT_EQ(part(data, 0, 2), (Bytes{5, 6}));
}

TEST_F(VcomBulkTest, TransferCannotHaveMovedMoreThanTheBufferHolds) {
    Bytes data(10, 3);
    for (const auto& [claimed, believed] : {std::pair{11, 10}, std::pair{0x7FFFFFFF, 10}, std::pair{-1, 0}}) {
        for (const int result : {0, int{LIBUSB_ERROR_TIMEOUT}}) {
            bus().hooks.bulk_in = [claimed = claimed, result](UsbDevice&, std::span<unsigned char>, int& transferred) {
                transferred = claimed;
                return std::optional(result);
            };
            EXPECT_EQ(receive_bytes(data), believed == 0 ? result : believed) << claimed;
        }
    }
    EXPECT_THAT(said(), Says("USB_DATA_RECEIVE : [ 03 03 03 03 03 03 03 03 03 03 ]"));
}

TEST_F(VcomBulkTest, ArgumentsAreCheckedInOrderSizeDataHandle) {
    unsigned char byte = 0;
    EXPECT_EQ(usb_data_receive(nullptr, 0x81, nullptr, 0, 100), -1);
    EXPECT_EQ(usb_data_receive(nullptr, 0x81, nullptr, -1, 100), -1);
    EXPECT_EQ(usb_data_receive(nullptr, 0x81, nullptr, 1, 100), -1);
    EXPECT_EQ(usb_data_receive(nullptr, 0x81, &byte, 1, 100), -1);
    EXPECT_EQ(usb_data_send(nullptr, 1, nullptr, 0), -1);
    EXPECT_EQ(usb_data_send(nullptr, 1, nullptr, 1), -1);
    EXPECT_EQ(usb_data_send(nullptr, 1, &byte, 1), -1);
    constexpr const char* no_handle = "Error, input parameter: struct libusb_device_handle *device_handle is NULL";
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: unsigned int data_size is 0"),
                                    HasSubstr("Error, input parameter: unsigned int data_size is -1"),
                                    HasSubstr("Error, input parameter: void *data is "), HasSubstr(no_handle),
                                    HasSubstr("Error, input parameter: unsigned int data_size is 0"),
                                    HasSubstr("Error, input parameter: void *data is "), HasSubstr(no_handle)));
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(VcomBulkTest, SendsOneTransferWithASecondsTimeOut) {
    EXPECT_EQ(send_bytes({1, 2, 3}), 0);
    EXPECT_THAT(bus().log(), ElementsAre(bulk_out({1, 2, 3})));
    EXPECT_THAT(pad.outgoing, ElementsAre(Bytes{1, 2, 3}));
}

TEST_F(VcomBulkTest, SendIsTriedThreeTimesWithGrowingPauses) {
    bus().hooks.bulk_out = always{LIBUSB_ERROR_TIMEOUT};
    EXPECT_EQ(send_bytes({1}), LIBUSB_ERROR_TIMEOUT);
    EXPECT_THAT(bus().log(),
                ElementsAre(bulk_out({1}), paused(1000), bulk_out({1}), paused(2500), bulk_out({1}), paused(5500)));
    EXPECT_THAT(said(),
                Says("libusb_bulk_transfer() failed: LIBUSB_ERROR_TIMEOUT, going to try again after 2500 microsecond"));
}

TEST_F(VcomBulkTest, SendEndsWithItsFirstSuccess) {
    bus().hooks.bulk_out = results({LIBUSB_ERROR_PIPE, LIBUSB_ERROR_IO});
    EXPECT_EQ(send_bytes({1}), 0);
    EXPECT_EQ(bus().pauses(), (Pauses{1000, 2500}));
    EXPECT_THAT(pad.outgoing, SizeIs(1));
}

TEST_F(VcomBulkTest, SendResultIsThatOfTheLastTransfer) {
    bus().hooks.bulk_out = results({LIBUSB_ERROR_PIPE, LIBUSB_ERROR_IO, LIBUSB_ERROR_OVERFLOW});
    EXPECT_EQ(send_bytes({1}), LIBUSB_ERROR_OVERFLOW);
}

TEST_F(VcomBulkTest, LostPadEndsTheSendAtOnce) {
    bus().hooks.bulk_out = results({LIBUSB_ERROR_PIPE, LIBUSB_ERROR_NO_DEVICE});
    EXPECT_EQ(send_bytes({1}), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(bus().pauses(), (Pauses{1000}));
}

TEST_F(VcomBulkTest, ShortSendIsReportedAndCountsAsDone) {
    bus().hooks.bulk_out = [](UsbDevice&, std::span<const unsigned char>, int& transferred) {
        transferred = 2;
        return std::optional(0);
    };
    EXPECT_EQ(send_bytes({1, 2, 3}), 0);
    EXPECT_THAT(said(), Says("transferred[2] != data_size[3]"));
    EXPECT_THAT(bus().log(), SizeIs(1));
}

// Reading for the engine.

TEST_F(VcomBulkTest, ReadChecksItsArguments) {
    Bytes data(4);
    vx_device closed_record{};
    EXPECT_EQ(vcom_read_ssp_data(nullptr, nullptr, 0, 100, 1), -1);
    EXPECT_EQ(vcom_read_ssp_data(&closed_record, nullptr, 0, 100, 1), -1);
    EXPECT_EQ(vcom_read_ssp_data(record->get(), nullptr, 0, 100, 1), -1);
    EXPECT_EQ(vcom_read_ssp_data(record->get(), nullptr, 4, 100, 1), -1);
    EXPECT_THAT(said(),
                ElementsAre(HasSubstr("Error, input parameter: device *current_device is NULL"),
                            HasSubstr("Error, input parameter: struct libusb_device_handle *vcom_handle is NULL"),
                            HasSubstr("data_size is 0"), HasSubstr("Error, input parameter: void *data is ")));
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_EQ(read(data, 0, 1), -1);
    EXPECT_THAT(bus().log(), IsEmpty()); // no time, no transfer
}

TEST_F(VcomBulkTest, ReadSkipsZeroPacketsOnlyWhereToldTo) {
    bus().cost_us["libusb_bulk_transfer"] = 1000;
    pad.incoming = {Bytes(8), Bytes(3), {0, 0, 9}};
    Bytes data(8, 0xEE);
    EXPECT_EQ(read(data, 100, 0), 8);
    EXPECT_EQ(data, Bytes(8));
    forget();
    EXPECT_EQ(read(data, 100, 1), 3);
    EXPECT_EQ(data, (Bytes{0, 0, 9, 0, 0, 0, 0, 0}));
    EXPECT_THAT(bus().log(), ElementsAre(bulk_in(8, 100), paused(1000), bulk_in(8, 100)));
    EXPECT_THAT(said(), AllOf(Says("Going to read: 8"), Says("time_out: 100"),
                              Says("usb_data_receive return zerro array, try again....")));
}

TEST_F(VcomBulkTest, ReadClearsTheBufferBeforeEachTransfer) {
    pad.incoming = {Bytes(2), {7}}; // what lies behind the two zeros must not make them data
    Bytes data(4, 0xEE);
    EXPECT_EQ(read(data, 100, 1), 1);
    EXPECT_EQ(data, (Bytes{7, 0, 0, 0}));
    bus().hooks.bulk_in = [calls = 0](UsbDevice&, std::span<unsigned char> dirty, int&) mutable {
        if (calls++ > 0) {
            return std::optional<int>();
        }
        std::fill(dirty.begin(), dirty.end(), static_cast<unsigned char>(9));
        return std::optional(0);
    };
    pad.incoming = {{7}};
    EXPECT_EQ(read(data, 100, 1), 1);
    EXPECT_EQ(data, (Bytes{7, 0, 0, 0}));
}

TEST_F(VcomBulkTest, ReadEndsInTheLastKeptResult) {
    Bytes data(4);
    EXPECT_EQ(read(data, 100, 1), LIBUSB_ERROR_TIMEOUT);
    EXPECT_THAT(bus().log(), SizeIs(1)); // which took all the time
    EXPECT_THAT(said(), Says("usb_data_receive return LIBUSB_ERROR_TIMEOUT, try again...."));
    bus().cost_us["libusb_bulk_transfer"] = 10'000;
    bus().hooks.bulk_in = always{0};
    forget();
    EXPECT_EQ(read(data, 100, 1), -1);
    EXPECT_THAT(bus().log(), SizeIs(10));
    EXPECT_THAT(said(), Says("usb_data_receive return 0, NO DATA, try again...."));
    bus().hooks.bulk_in = results({LIBUSB_ERROR_TIMEOUT, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(read(data, 100, 1), LIBUSB_ERROR_TIMEOUT);
    for (int i = 0; i < 200; ++i) {
        pad.incoming.emplace_back(4);
    }
    bus().hooks = {};
    forget();
    EXPECT_EQ(read(data, 100, 1), -1);
    EXPECT_THAT(bus().pauses(), AllOf(SizeIs(10), Each(1000U)));
}

TEST_F(VcomBulkTest, ReadFailures) {
    Bytes data(4);
    bus().hooks.bulk_in = always{LIBUSB_ERROR_PIPE};
    EXPECT_EQ(read(data, 100, 1), -1);
    EXPECT_THAT(said(), Says("usb_data_receive() failed with return code -9"));
    EXPECT_EQ((*record)->was_removed, 0);
    bus().hooks.bulk_in = always{LIBUSB_ERROR_NO_DEVICE};
    EXPECT_EQ(read(data, 100, 1), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ((*record)->was_removed, 1);
}

} // namespace
} // namespace core_test
