// Transfers on one record: arguments, the transport's calls, recovery, and how a removed pad is found out.
#include "core_test.hpp"

namespace core_test {
namespace {

struct Transfer {
    const char* name;
    int (*run)(vx_device* device, void* data, unsigned int length);
    const char* call;    // of hidapi
    const char* failure; // text
    bool locks;          // takes device_lock itself
    std::size_t tries;   // calls until the transport gives up
};

void PrintTo(const Transfer& transfer, std::ostream* out) {
    *out << transfer.name;
}

constexpr auto read_failed = "read function failed with return code -1";
constexpr auto write_failed = "write function failed with return code -1";

class TransferTest : public CoreTest, public testing::WithParamInterface<Transfer> {
  protected:
    int run(vx_device* device, unsigned int length = 64) {
        Bytes data(64, 0x5a);
        return GetParam().run(device, data.data(), length);
    }

    static void fail_all_transfers() {
        bus().hooks.get_feature = always{-1};
        bus().hooks.send_feature = always{-1};
        bus().hooks.read = always{-1};
    }

    HidInterface& pad = bus().plug(pad_of_type(plain_type));
};

INSTANTIATE_TEST_SUITE_P(
    All, TransferTest,
    testing::Values(
        Transfer{"feature_read", core_feature_read, "hid_get_feature_report", read_failed, false, tries_until_time_out},
        Transfer{"feature_write",
                 [](vx_device* d, void* data, unsigned int n) { return core_feature_write(d, data, n); },
                 "hid_send_feature_report", write_failed, false, tries_until_time_out},
        Transfer{"output_write", [](vx_device* d, void* data, unsigned int n) { return core_output_write(d, data, n); },
                 "hid_send_feature_report", write_failed, true, tries_until_time_out},
        Transfer{"input_read", core_input_read, "hid_read", read_failed, true, 1}),
    [](const auto& test) { return test.param.name; });

TEST_P(TransferTest, RecordIsCheckedFirst) {
    EXPECT_EQ(GetParam().run(nullptr, nullptr, 0), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: device *current_device is ")));
}

TEST_P(TransferTest, LengthIsCheckedSecond) {
    OpenRecord record(pad);
    forget();
    EXPECT_EQ(GetParam().run(record.get(), nullptr, 0), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: unsigned int len is 0")));
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_P(TransferTest, DataIsCheckedThird) {
    OpenRecord record(pad);
    forget();
    EXPECT_EQ(GetParam().run(record.get(), nullptr, 64), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: void *data is ")));
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_P(TransferTest, ClosedRecordIsRefusedWithoutRecovery) {
    Record record(pad);
    EXPECT_EQ(run(record.get()), -1);
    EXPECT_THAT(said(), Says("Error, device pointers: *hid and *vcom_handle are NULL"));
    EXPECT_THAT(said(), Not(Says("function failed with return code")));
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_EQ(record->was_removed, 0);
    EXPECT_FALSE(record.locked());
}

TEST_P(TransferTest, SuccessTakesOneCallOfTheTransport) {
    OpenRecord record(pad);
    pad.input_reports.push_back(Bytes(64, 1));
    EXPECT_EQ(run(record.get()), std::string(GetParam().name) == "input_read" ? 64 : 0);
    EXPECT_THAT(bus().log(GetParam().call), SizeIs(1));
    EXPECT_THAT(bus().log("hid_close"), IsEmpty());
    EXPECT_FALSE(record.locked());
}

TEST_P(TransferTest, FailureOnAPresentPadReopensAndIsNotRepeated) {
    OpenRecord record(pad);
    hid_device_* const former = record->hid;
    fail_all_transfers();
    EXPECT_EQ(run(record.get()), -1);
    EXPECT_NE(record->hid, nullptr);
    EXPECT_NE(record->hid, former);
    EXPECT_EQ(record->was_removed, 0);
    EXPECT_FALSE(record.locked());
    EXPECT_THAT(said(), Says(GetParam().failure));
    EXPECT_THAT(bus().log(GetParam().call), SizeIs(GetParam().tries));
    EXPECT_THAT(last(4, bus().log()), ElementsAre(paused(50), closed(), opened(), blocking()));
    bus().hooks = {};
    pad.input_reports.push_back(Bytes(64, 1));
    EXPECT_GE(run(record.get()), 0);
}

TEST_P(TransferTest, FailureOnAnUnpluggedPadMarksItRemoved) {
    OpenRecord record(pad);
    bus().unplug(pad);
    EXPECT_EQ(run(record.get()), -20);
    EXPECT_EQ(record->was_removed, 1);
    EXPECT_EQ(record->hid, nullptr);
    EXPECT_FALSE(record.locked());
    EXPECT_THAT(said(), Says(GetParam().failure));
    EXPECT_THAT(said(), Says("Error, hid_open_dev() returned NULL"));
    EXPECT_EQ(run(record.get()), -1); // from now on there is nothing to transfer on
    EXPECT_EQ(record->was_removed, 1);
}

TEST_P(TransferTest, LockIsHeldThroughTransferAndRecoveryOrNotTouched) {
    OpenRecord record(pad);
    std::vector<bool> locked;
    const auto look = [&](auto&&...) {
        locked.push_back(record.locked());
        return std::optional(-1);
    };
    bus().hooks.get_feature = look;
    bus().hooks.send_feature = look;
    bus().hooks.read = look;
    bus().hooks.open_path = [&](const std::string&) {
        locked.push_back(record.locked());
        return std::optional(0);
    };
    run(record.get());
    EXPECT_THAT(locked, SizeIs(GetParam().tries + 1));
    EXPECT_THAT(locked, Each(GetParam().locks));
}

TEST_P(TransferTest, RecordWithoutALockWorks) {
    OpenRecord record(pad);
    record->device_lock = nullptr;
    EXPECT_GE(run(record.get()), 0);
    fail_all_transfers();
    EXPECT_EQ(run(record.get()), -1);
}

class ReportIoTest : public CoreTest {
  protected:
    HidInterface& pad = bus().plug(pad_of_type(plain_type));
};

TEST_F(ReportIoTest, FeatureReadTracesTheLength) {
    OpenRecord record(pad);
    const EnvironmentGuard debug("LIBVXPADCOM_DEBUG", "1");
    const standins::OutputCapture output(1);
    Bytes data(64);
    core_feature_read(record.get(), data.data(), 64);
    EXPECT_THAT(output.text(), HasSubstr("info: input parameter len:[64]"));
}

TEST_F(ReportIoTest, DataArrivesAsItWasSent) {
    OpenRecord record(pad);
    Bytes data(64);
    for (std::size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<unsigned char>(0x80 + i);
    }
    const Bytes original = data;
    EXPECT_EQ(core_feature_write(record.get(), data.data(), 64), 0);
    EXPECT_EQ(pad.last_request, original);
    Bytes back(64);
    EXPECT_EQ(core_feature_read(record.get(), back.data(), 64), 0);
    EXPECT_EQ(back, original);
    data[0] = 0x77;
    EXPECT_EQ(core_output_write(record.get(), data.data(), 64), 0);
    EXPECT_EQ(pad.last_request, data);
}

TEST_F(ReportIoTest, InputReadWithNothingWaitingIsNoFailure) {
    OpenRecord record(pad);
    Bytes data(64, 0xee);
    EXPECT_EQ(core_input_read(record.get(), data.data(), 64), 0);
    EXPECT_THAT(data, Each(0xee));
    EXPECT_THAT(bus().log("hid_close"), IsEmpty());
}

TEST_F(ReportIoTest, InputReadReturnsTheNumberOfBytes) {
    OpenRecord record(pad);
    pad.input_reports.push_back(Bytes(20, 7));
    Bytes data(64);
    EXPECT_EQ(core_input_read(record.get(), data.data(), 64), 20);
    EXPECT_THAT(bus().log("hid_close"), IsEmpty());
}

// The removed check.

TEST_F(ReportIoTest, RemovedCheckLeavesTheResultWithoutARemovedPad) {
    int result = 7;
    core_catch_is_dev_was_removed(&result);
    EXPECT_EQ(result, 7);
    EXPECT_THAT(said(), Says("error: dev_shared is NULL..."));
    forget();
    core_initialize();
    core_catch_is_dev_was_removed(&result);
    EXPECT_EQ(result, 7);
    EXPECT_THAT(said(), Says("error: dev_shared->current_device is NULL..."));
    core_looking_for_devices();
    core_catch_is_dev_was_removed(&result);
    EXPECT_EQ(result, 7);
}

TEST_F(ReportIoTest, RemovedCheckReplacesAnyResultOfARemovedPad) {
    core_initialize();
    core_looking_for_devices();
    bus().unplug(pad);
    Bytes data(64);
    core_get_hid_feature_report(0, data.data(), 64);
    for (const int former : {0, 1, -1, 64, -7}) {
        int result = former;
        core_catch_is_dev_was_removed(&result);
        EXPECT_EQ(result, -20);
    }
}

// Report sizes.

TEST_F(ReportIoTest, ReportSizesAreConstantsOfTheModel) {
    for (const unsigned int type : {1U, 8U, 9U, 10U, 17U}) {
        OpenRecord record(pad, type);
        EXPECT_EQ(hid_get_max_packet_size_of_out_endpoint(record.get()), 64);
        EXPECT_EQ(hid_get_max_packet_size_of_input_report(record.get()), type == 1 ? 20 : 64);
        EXPECT_THAT(bus().log(), IsEmpty());
    }
}

TEST_F(ReportIoTest, ReportSizesNeedAnOpenRecord) {
    for (const auto size_of : {hid_get_max_packet_size_of_out_endpoint, hid_get_max_packet_size_of_input_report}) {
        forget();
        EXPECT_EQ(size_of(nullptr), -1);
        EXPECT_THAT(said(), Says("Wrong device pointers, current_device is NULL..."));
        Record record(pad);
        EXPECT_EQ(size_of(record.get()), -1);
        EXPECT_THAT(said(), Says("dev_shared->current_device->hid is NULL..."));
    }
}

} // namespace
} // namespace core_test
