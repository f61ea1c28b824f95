// Which locks each exported function takes, and in which order, as the lock lines tell. What takes its mutex without a
// line is in session/quiet_locks_test.cpp.
#include "lock_lines.hpp"
#include "receive_test.hpp"
#include "vxpadcom/internals.h"

namespace receive_test {
namespace {

using core_test::described_as;
using core_test::SspPad;
using lock_lines::Locks;
using lock_lines::locks_during;
using lock_lines::own_locks_during;

struct Case {
    const char* name;
    std::function<void()> prepare;
    std::function<void()> call;
    const char* locks;
};
void PrintTo(const Case& tested, std::ostream* out) {
    *out << tested.name;
}

// HID pads 1, with two interfaces, and 2; VCOM pad 3. Pad 1 is current.
class TakenLocks : public Receiving, public testing::WithParamInterface<Case> {
  protected:
    void SetUp() override {
        Receiving::SetUp();
        if (VXPAD_THREAD_SANITIZER != 0) {
            GTEST_SKIP() << "lock lines are switched on while threads look at the environment, which is a race";
        }
        UsbDevice vcom = standins::vcom_pad("usb1");
        model_ = described_as(10);
        third_ = &bus().plug(std::move(vcom));
        model_.attach(*third_);
        ASSERT_EQ(Initialize(), 0);
    }

    SspPad model_;
    UsbDevice* third_ = nullptr;
};

TEST_P(TakenLocks, AreThoseOfTheTable) {
    GetParam().prepare();
    EXPECT_EQ(own_locks_during(GetParam().call), GetParam().locks);
}

void nothing() {}
void second_is_current() {
    EXPECT_EQ(GetVendorId(2, &some_number), 0);
}
void third_is_current() {
    EXPECT_EQ(GetVendorId(3, &some_number), 0);
}
void both_interfaces_are_open() {
    EXPECT_EQ(GetFeature(1, 1, some_bytes, 65, &some_number), 0);
}
void transfers_fail() {
    bus().cost_us["hid_get_feature_report"] = 600'000;
    bus().cost_us["hid_send_feature_report"] = 600'000;
    bus().hooks.get_feature = standins::always{-1};
    bus().hooks.send_feature = standins::always{-1};
    bus().hooks.read = standins::always{-1};
}
void first_is_removed() {
    transfers_fail();
    bus().hooks.open_path = standins::always{-1};
    EXPECT_NE(GetFeature(1, 0, some_bytes, 65, &some_number), 0);
}
void library_is_stopped() {
    EXPECT_EQ(Deinitialize(), 0);
}
void received_before() {
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
}
void data(void*, unsigned int, unsigned int, const void*, unsigned int) {}

// Of a record that nobody else has.
std::function<void()> on_a_record(int (*act)(vx_device* device)) {
    return [act] {
        core_test::OpenRecord record{bus().plug(standins::pad_of_type(10, "1-9:1.0", 0, L"SN0009"))};
        act(record.get());
    };
}

const Case application[] = {
    // Start and stop.
    {"Initialize", library_is_stopped, [] { Initialize(); },
     "+start list list list list records +list text text text text text text text text text +pad "
     "queue queue queue -pad queue queue queue queue queue queue +pad pad -pad pad pad pad pad "
     "+pad pad -pad pad -list -start"},
    {"InitializeAgain", nothing, [] { Initialize(); },
     "+start list list list list records pad pad pad pad pad pad queue queue +list text text "
     "text text text text text text text +pad queue queue queue -pad queue queue queue queue "
     "queue queue +pad pad -pad pad pad pad pad +pad pad -pad pad -list -start"},
    {"InitializeWithoutPads",
     [] {
         library_is_stopped();
         bus().reset();
     },
     [] { Initialize(); }, "+start list list list list records list -start"},
    {"Deinitialize", nothing, [] { Deinitialize(); },
     "+start list list list list records pad pad pad pad pad pad queue queue -start"},
    {"DeinitializeAgain", library_is_stopped, [] { Deinitialize(); }, "+start list list list list records -start"},
    {"DeinitializeAfterReceiving", received_before, [] { Deinitialize(); },
     "+start list list info list info list list list list +list queue info -list records pad pad "
     "pad pad pad pad queue queue -start"},
    {"DeinitializeWithAHandler", [] { EXPECT_EQ(SetOnDataReceivedHandler(1, 0, data, nullptr), 0); },
     [] { Deinitialize(); },
     "+start list list +list callback -list list records pad pad pad pad pad pad queue queue "
     "-start"},
    {"DeinitializeBehindAnAnswerThatNobodyRead", [] { EXPECT_EQ(SendSspMessage(1, 0, "\0\0\0\x10", 4), 0); },
     [] { Deinitialize(); },
     "+start list list list list records pad pad pad pad queue queue pad pad pad queue queue "
     "-start"},
    {"IsInitialized", nothing, [] { IsInitialized(); }, "list"},
    {"GetDeviceCount", nothing, [] { GetDeviceCount(&some_number); }, "list"},
    {"GetDeviceCountOfNothing", nothing, [] { GetDeviceCount(nullptr); }, "records records"},
    {"EnumerateDevicesStart", nothing, [] { EnumerateDevicesStart(&some_number); }, "list list"},
    {"EnumerateDevicesStartOnAnother", second_is_current, [] { EnumerateDevicesStart(&some_number); },
     "list +list +pad -list pad -pad"},
    {"EnumerateDevicesNext", nothing, [] { EnumerateDevicesNext(&some_number); }, "list list +list +pad -list -pad"},
    {"EnumerateDevicesNextAtTheEnd", third_is_current, [] { EnumerateDevicesNext(&some_number); }, "list list"},
    {"EnumerateDevicesNextWithoutAList", library_is_stopped, [] { EnumerateDevicesNext(&some_number); }, "list"},
    {"SayHello", nothing, [] { SayHello(u"hello", some_text, 64, &some_number); }, ""},

    // Facts.
    {"GetSerialNumber", nothing, [] { GetSerialNumber(1, some_text, 64, &some_number); }, "list"},
    {"GetSerialNumberOfAnother", second_is_current, [] { GetSerialNumber(1, some_text, 64, &some_number); },
     "+list +pad -list pad -pad"},
    {"GetProductName", nothing, [] { GetProductName(1, 0, some_text, 64, &some_number); }, "list"},
    {"GetVendorName", nothing, [] { GetVendorName(1, some_text, 64, &some_number); }, "list"},
    {"GetProductId", nothing, [] { GetProductId(1, 0, &some_number); }, "list"},
    {"GetVendorId", nothing, [] { GetVendorId(1, &some_number); }, "list"},
    {"GetVendorIdOfNoPad", nothing, [] { GetVendorId(9, &some_number); }, "list records records"},
    {"GetVendorIdOfAVcomPad", nothing, [] { GetVendorId(3, &some_number); }, "+list +pad -list -pad"},
    {"GetUsbVersion", nothing, [] { GetUsbVersion(1, &some_number); }, "list"},
    {"GetEndPointCount", nothing, [] { GetEndPointCount(1, &some_number); }, "list"},
    {"GetFeatureReportSize", nothing, [] { GetFeatureReportSize(1, 0, &some_number); }, "list"},
    {"GetFeatureReportSizeOfARemovedPad", first_is_removed, [] { GetFeatureReportSize(1, 0, &some_number); },
     "list pad info records records"},
    {"GetUsedTransportProtocol", nothing, [] { GetUsedTransportProtocol(1, &some_number); }, "list list"},
    {"SetUsedTransportProtocol", nothing, [] { SetUsedTransportProtocol(1, 1); }, "list list"},
    {"GetBytesToSend", nothing, [] { GetBytesToSend(1, &some_number); }, "list"},

    // Records of failures.
    {"GetExceptionCode", [] { GetDeviceCount(nullptr); }, [] { GetExceptionCode(1, &some_number); }, "records records"},
    {"GetExceptionCodeOfNone", nothing, [] { GetExceptionCode(63, &some_number); }, "records records records records"},
    {"GetExceptionType", [] { GetDeviceCount(nullptr); }, [] { GetExceptionType(1, some_text, 64, &some_number); },
     "records records"},
    {"GetExceptionName", [] { GetDeviceCount(nullptr); }, [] { GetExceptionName(1, some_text, 64, &some_number); },
     "records records"},
    {"GetExceptionMessage", [] { GetDeviceCount(nullptr); },
     [] { GetExceptionMessage(1, some_text, 64, &some_number); }, "records records"},
    {"TranslateErrorCode", nothing, [] { TranslateErrorCode(0, some_text, 64, &some_number); }, ""},

    // Reports.
    {"SetFeature", nothing, [] { SetFeature(1, 0, some_bytes, 65, &some_number); }, "list pad"},
    {"SetFeatureToAFurtherInterface", nothing, [] { SetFeature(1, 1, some_bytes, 65, &some_number); }, "list pad pad"},
    {"SetFeatureToAnOpenFurtherInterface", both_interfaces_are_open,
     [] { SetFeature(1, 1, some_bytes, 65, &some_number); }, "list pad pad"},
    {"SetFeatureThatFails", transfers_fail, [] { SetFeature(1, 0, some_bytes, 65, &some_number); },
     "list pad records records"},
    {"SetFeatureToAVcomPad", third_is_current, [] { SetFeature(3, 0, some_bytes, 65, &some_number); }, "list pad"},
    {"GetFeature", nothing, [] { GetFeature(1, 0, some_bytes, 65, &some_number); }, "list pad"},
    {"GetFeatureOfAFurtherInterface", both_interfaces_are_open, [] { GetFeature(1, 1, some_bytes, 65, &some_number); },
     "list pad pad"},
    {"GetFeatureThatFails", transfers_fail, [] { GetFeature(1, 0, some_bytes, 65, &some_number); },
     "list pad records records"},
    {"GetFeatureOfAVcomPad", third_is_current, [] { GetFeature(3, 0, some_bytes, 65, &some_number); },
     "list +pad queue queue queue -pad"},
    {"WriteFile", nothing, [] { WriteFile(1, 0, some_bytes, 65, &some_number); }, "list pad"},
    {"WriteFileThatFails", transfers_fail, [] { WriteFile(1, 0, some_bytes, 65, &some_number); },
     "list pad records records"},
    {"WriteFileToAVcomPad", third_is_current, [] { WriteFile(3, 0, some_bytes, 65, &some_number); }, "list pad"},
    {"ReadFile", nothing, [] { ReadFile(1, 0, some_bytes, 65, &some_number); }, "list pad"},
    {"ReadFileThatFails", transfers_fail, [] { ReadFile(1, 0, some_bytes, 65, &some_number); },
     "list pad records records"},
    {"ReadFileOfAVcomPad", third_is_current, [] { ReadFile(3, 0, some_bytes, 65, &some_number); }, "list pad"},
    {"WriteFileBuffer", nothing, [] { WriteFileBuffer(1, 1, some_bytes, 65, &some_number); }, "list list count list"},
    {"ReadFileBuffer", nothing, [] { ReadFileBuffer(1, 1, some_bytes, 65, &some_number); }, ""},
    {"SendSspMessage", third_is_current, [] { SendSspMessage(3, 0, "\0\0\0\x10", 4); }, "list pad"},
    {"ReceiveSspMessage",
     [] {
         third_is_current();
         EXPECT_EQ(SendSspMessage(3, 0, "\0\0\0\x10", 4), 0);
     },
     [] { ReceiveSspMessage(3, 0, some_bytes, 65, 100, &some_number); }, "list +pad queue queue queue -pad"},

    // Receiving.
    {"SetOnDataReceivedHandler", nothing, [] { SetOnDataReceivedHandler(1, 0, data, nullptr); },
     "+list callback -list"},
    {"SetOnDataReceivedHandlerAgain", [] { EXPECT_EQ(SetOnDataReceivedHandler(1, 0, data, nullptr), 0); },
     [] { SetOnDataReceivedHandler(1, 0, data, nullptr); }, "+list callback -list"},
    {"SetOnDataReceivedHandlerToNull", [] { EXPECT_EQ(SetOnDataReceivedHandler(1, 0, data, nullptr), 0); },
     [] { SetOnDataReceivedHandler(1, 0, nullptr, nullptr); }, "+list +callback info -callback -list"},
    {"SetOnDataReceivedHandlerOfNoInterface", nothing, [] { SetOnDataReceivedHandler(1, 8, data, nullptr); },
     "+list records records -list"},
    {"SetDataReceivingEnabled", nothing, [] { SetDataReceivingEnabled(1, 0, 1); },
     "list pad list info list pad list list pad info +list info -list"},
    {"SetDataReceivingEnabledAgain", received_before, [] { SetDataReceivingEnabled(1, 0, 1); },
     "list pad list info list pad list list pad info +list info -list"},
    {"SetDataReceivingEnabledOfNoPad", nothing, [] { SetDataReceivingEnabled(9, 0, 1); },
     "list list list list info list records records"},
    {"SetDataReceivingDisabled", [] { EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0); },
     [] { SetDataReceivingEnabled(1, 0, 0); }, "list info list pad"},
    {"GetDataPacketsAvailable", received_before, [] { GetDataPacketsAvailable(1, 0, &some_number); }, "list"},
    {"GetDataPacketsAvailableOfNoInterface", nothing, [] { GetDataPacketsAvailable(1, 8, &some_number); },
     "+list records records -list"},
    {"FlushDataPackets", received_before, [] { FlushDataPackets(1, 0); }, "list list list pad"},
    {"FlushDataPacketsOfNoInterface", nothing, [] { FlushDataPackets(1, 8); }, "+list records records -list"},

    // Events.
    {"SetOnDeviceRemovedHandler", nothing, [] { SetOnDeviceRemovedHandler(nullptr, nullptr); }, ""},
    {"SetOnDeviceArrivedHandler", nothing, [] { SetOnDeviceArrivedHandler(nullptr, nullptr); }, ""},
    {"TriggerOnDeviceArrivedEvents", nothing, [] { TriggerOnDeviceArrivedEvents(); }, ""},
    {"LogDeviceStatistics", nothing, [] { LogDeviceStatistics(1); }, ""},
    {"AddComDevice", nothing, [] { AddComDevice(nullptr, 0, nullptr); }, ""},
    {"RegisterLoggingCallBackProcedure", nothing, [] { RegisterLoggingCallBackProcedure(nullptr, nullptr); }, ""},
};

INSTANTIATE_TEST_SUITE_P(Application, TakenLocks, testing::ValuesIn(application),
                         [](const auto& tested) { return std::string(tested.param.name); });

// The building blocks that take any.
const Case blocks[] = {
    {"catch_removing_device", nothing, [] { catch_removing_device(-20, 1, 0); }, "info"},
    {"core_open_dev", nothing, on_a_record(core_open_dev), "pad"},
    {"core_close_dev", nothing, on_a_record([](vx_device* device) {
         core_close_dev(device);
         return 0;
     }),
     "pad"},
    {"core_read_version", nothing, on_a_record([](vx_device* device) {
         dev_fw_version version{};
         return core_read_version(device, &version);
     }),
     "pad"},
    {"core_set_pad_mode", nothing, on_a_record([](vx_device* device) { return core_set_pad_mode(device, 1, 0); }),
     "pad"},
    {"core_create_signature_rectangle", nothing,
     on_a_record([](vx_device* device) { return core_create_signature_rectangle(device, 0, 0, 0, 0, 0); }), "pad"},
    {"core_feature_read", nothing,
     on_a_record([](vx_device* device) { return core_feature_read(device, some_bytes, 64); }), ""},
    {"core_feature_write", nothing,
     on_a_record([](vx_device* device) { return core_feature_write(device, some_bytes, 64); }), ""},
    {"core_output_write", nothing,
     on_a_record([](vx_device* device) { return core_output_write(device, some_bytes, 64); }), "pad"},
    {"core_input_read", nothing, on_a_record([](vx_device* device) { return core_input_read(device, some_bytes, 64); }),
     "pad"},
    {"core_input_read_of_a_closed_record", nothing, on_a_record([](vx_device* device) {
         __core_close_dev(device);
         return core_input_read(device, some_bytes, 64);
     }),
     "pad"},
    {"core_initialize", library_is_stopped,
     [] {
         core_initialize();
         core_uninitialize();
     },
     ""},
    {"core_looking_for_devices", nothing, [] { core_looking_for_devices(); },
     "pad pad pad pad pad pad pad pad queue queue text text text text text text text text text "
     "+pad queue queue queue -pad queue queue queue queue queue queue +pad pad -pad pad"},
    {"core_reopen_devs", nothing, [] { __core_reopen_devs(); }, "+pad pad -pad"},
    {"core_set_device_to_current", nothing, [] { core_set_device_to_current(nullptr); }, "pad pad"},
    {"core_set_device_to_current_again", nothing,
     [] {
         std::array<char, 256> settings{};
         core_get_pad_settings(settings.data());
         core_set_device_to_current(settings.data());
     },
     ""},
    {"core_get_hid_feature_report", nothing, [] { core_get_hid_feature_report(0, some_bytes, 64); }, "pad"},
    {"core_set_hid_feature_report", nothing, [] { core_set_hid_feature_report(0, some_bytes, 64); }, "pad"},
    {"core_get_hid_input_report", nothing, [] { core_get_hid_input_report(0, some_bytes, 64); }, "pad"},
    {"core_set_unsync_hid_output_report", nothing, [] { core_set_unsync_hid_output_report(0, some_bytes, 64); }, "pad"},
    {"core_get_max_packet_size_of_input_report", nothing, [] { core_get_max_packet_size_of_input_report(); }, ""},
    {"core_get_max_packet_size_of_out_endpoint", nothing, [] { core_get_max_packet_size_of_out_endpoint(); }, ""},
    {"core_enable_ssp_biodata_sending", nothing, [] { core_enable_ssp_biodata_sending(); }, ""},
    {"core_enable_ssp_biodata_sending_over_vcom", third_is_current, [] { core_enable_ssp_biodata_sending(); },
     "+pad queue queue queue -pad"},
    {"core_disable_ssp_biodata_sending_that_fails",
     [] {
         third_is_current();
         bus().cost_us["libusb_bulk_transfer"] = 600'000;
         bus().hooks.bulk_out = [](UsbDevice&, std::span<const unsigned char>, int&) { return std::optional(-1); };
     },
     [] { core_disable_ssp_biodata_sending(); }, "pad pad"},
    {"core_send_ssp_message", third_is_current,
     [] {
         unsigned char message[] = {0, 0, 0, 0x10};
         core_send_ssp_message(0, message, 4);
     },
     "pad"},
    {"core_receive_ssp_message", third_is_current,
     [] {
         unsigned int size = 65;
         core_receive_ssp_message(0, some_bytes, &size, 5);
     },
     "pad"},
    {"core_clear_ssp_input_queue", third_is_current, [] { core_clear_ssp_input_queue(); }, "pad"},
    {"print_bits", nothing, [] { print_bits(5); }, "bits"},
    {"print_bytes", nothing, [] { print_bytes(some_bytes, 5); }, "bytes"},
    {"print_wchar_to_asci", nothing, [] { print_wchar_to_asci(some_text); }, "text"},
    {"uni_queue", nothing,
     [] {
         uni_queue* const queue = init_uni_queue();
         add_uni_frame(queue, nullptr, 0);
         destroy_uni_queue(queue);
     },
     "queue queue"},
};

INSTANTIATE_TEST_SUITE_P(Blocks, TakenLocks, testing::ValuesIn(blocks),
                         [](const auto& tested) { return std::string(tested.param.name); });

// The library's own threads: what is taken by the one that is not the test's.
std::string locks_of_the_other_thread_during(const std::function<void()>& call) {
    Locks locks = locks_during(call);
    locks.erase(syscall(SYS_gettid));
    EXPECT_EQ(locks.size(), 1U);
    return locks.empty() ? "" : locks.begin()->second;
}

class ThreadsLocks : public TakenLocks {
  protected:
    // Runs act on the library's first thread that pauses for so long, and waits until that thread has left.
    std::string locks_of_a_thread_that(unsigned int pause, std::function<void()> act,
                                       const std::function<void()>& start) {
        const auto ended = std::make_shared<Gate>();
        bus().hooks.usleep = [=](unsigned int microseconds) {
            if (microseconds == pause) {
                open_at_the_end_of_this_thread(ended);
                act();
            }
        };
        return locks_of_the_other_thread_during([&] {
            start();
            EXPECT_TRUE(ended->pass());
        });
    }
};

TEST_F(ThreadsLocks, AreThoseOfAReceiveThreadThatQueuesAReport) {
    give(*first_, report_of(1, 0));
    const auto removed = [] { catch_removing_device(-20, 1, 0); }; // the last of them: asks it to end
    const std::string locks =
        locks_of_a_thread_that(500, removed, [] { EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0); });
    EXPECT_EQ(locks, "list pad +pad pad -pad pad queue info");
}

TEST_F(ThreadsLocks, AreThoseOfACallbackThreadThatEnds) {
    const auto taken_away = [] { EXPECT_EQ(SetOnDataReceivedHandler(1, 0, nullptr, nullptr), 0); };
    const std::string locks = locks_of_a_thread_that(
        500'000, taken_away, [] { EXPECT_EQ(SetOnDataReceivedHandler(1, 0, data, nullptr), 0); });
    const std::string one_look = "+list callback -list";
    const std::string of_the_handler = "+list +callback info -callback -list";
    const std::string of_the_stop = "list info list pad";
    EXPECT_EQ(locks, one_look + " " + of_the_handler + " " + one_look + " " + of_the_stop);
}

TEST_F(ThreadsLocks, AreThoseOfAnUploadThread) {
    const std::string locks =
        locks_of_the_other_thread_during([] { EXPECT_EQ(WriteFileBuffer(1, 1, some_bytes, 65, &some_number), 0); });
    EXPECT_EQ(locks, "data list pad data count");
}

} // namespace
} // namespace receive_test
