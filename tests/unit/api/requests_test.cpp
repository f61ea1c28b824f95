// The core's requests, which the exported functions are thin wrappers of.
#include "api_test.hpp"
#include "vxpadcom/internals.h"

#include <atomic>
#include <thread>

using api::some_bytes;
using standins::bus;
using standins::Bytes;
using standins::LogCapture;
using standins::pad_of_type;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

char core_text[256];

struct Request {
    const char* name;
    int (*call)();
    friend std::ostream& operator<<(std::ostream& out, const Request& one) { return out << one.name; }
};

const Request requests[] = {
    {"core_get_serial_number", [] { return core_get_serial_number(core_text); }},
    {"core_get_pad_name", [] { return core_get_pad_name(core_text); }},
    {"core_get_pad_manufacturer", [] { return core_get_pad_manufacturer(core_text); }},
    {"core_get_pad_product_id", core_get_pad_product_id},
    {"core_get_vendor_id", core_get_vendor_id},
    {"core_get_pad_bcd_device", core_get_pad_bcd_device},
    {"core_get_count_of_hid_interfaces", core_get_count_of_hid_interfaces},
    {"core_get_max_packet_size_of_out_endpoint", core_get_max_packet_size_of_out_endpoint},
    {"core_get_max_packet_size_of_input_report", core_get_max_packet_size_of_input_report},
    {"core_set_hid_feature_report", [] { return core_set_hid_feature_report(0, some_bytes, 64); }},
    {"core_get_hid_feature_report", [] { return core_get_hid_feature_report(0, some_bytes, 64); }},
    {"core_set_unsync_hid_output_report", [] { return core_set_unsync_hid_output_report(0, some_bytes, 64); }},
    {"core_get_hid_input_report", [] { return core_get_hid_input_report(0, some_bytes, 64); }},
};

class AnyRequest : public api::Test, public testing::WithParamInterface<Request> {
  protected:
    void expect_failure(const std::string& reason) {
        const LogCapture log;
        EXPECT_EQ(GetParam().call(), -1);
        EXPECT_GE(log.count(reason), 1) << reason;
    }
};

TEST_P(AnyRequest, FailsWithoutARegistry) {
    expect_failure("error: dev_shared is NULL...");
}

TEST_P(AnyRequest, FailsWithoutACurrentPad) {
    core_initialize();
    expect_failure("error: dev_shared->current_device is NULL...");
    core_uninitialize();
}

TEST_P(AnyRequest, AnswersRemovedOnceThePadIsKnownToBe) {
    standins::HidInterface& pad = bus().plug(pad_of_type(9));
    Initialize();
    bus().unplug(pad);
    EXPECT_EQ(core_get_hid_feature_report(0, some_bytes, 64), -20);
    bus().plug_again(pad);
    EXPECT_EQ(GetParam().call(), -20);
}

INSTANTIATE_TEST_SUITE_P(Functions, AnyRequest, testing::ValuesIn(requests),
                         [](const auto& tested) { return std::string(tested.param.name); });

class Queries : public api::Test {
  protected:
    static standins::HidInterface& start(standins::HidInterface pad) {
        standins::HidInterface& plugged = bus().plug(std::move(pad));
        Initialize();
        return plugged;
    }

    struct Answer {
        int length;
        std::string text;
        bool operator==(const Answer&) const = default;
    };

    // A buffer of the smallest size allowed, with guards.
    static Answer answer(int (*query)(char*)) {
        std::array<char, 256 + 16> buffer;
        buffer.fill('\x5A');
        const int length = query(buffer.data());
        EXPECT_TRUE(std::all_of(buffer.begin() + 256, buffer.end(), [](char one) { return one == '\x5A'; }));
        return {length, length < 0 ? "" : std::string(buffer.data(), static_cast<std::size_t>(length))};
    }
};

TEST_F(Queries, TellTheRecordsFields) {
    const standins::HidInterface& pad = start(pad_of_type(9));
    EXPECT_EQ(answer(core_get_serial_number), (Answer{6, "SN0001"}));
    EXPECT_EQ(answer(core_get_pad_name), (Answer{8, "Pad 100 "}));
    EXPECT_EQ(answer(core_get_pad_manufacturer), (Answer{4, "ACME"}));
    EXPECT_EQ(core_get_pad_product_id(), pad.product_id);
    EXPECT_EQ(core_get_vendor_id(), pad.vendor_id);
    EXPECT_EQ(core_get_pad_bcd_device(), 0);
    EXPECT_EQ(core_get_count_of_hid_interfaces(), 1);
    EXPECT_EQ(core_get_max_packet_size_of_out_endpoint(), 64);
    EXPECT_EQ(core_get_max_packet_size_of_input_report(), 64);
}

TEST_F(Queries, TellShorterInputReportsOfATypeOnePad) {
    start(pad_of_type(1));
    EXPECT_EQ(core_get_max_packet_size_of_out_endpoint(), 64);
    EXPECT_EQ(core_get_max_packet_size_of_input_report(), 20);
}

TEST_F(Queries, LogTheirAnswers) {
    const standins::HidInterface& pad = start(pad_of_type(9));
    const LogCapture log;
    core_get_pad_product_id();
    core_get_vendor_id();
    core_get_pad_bcd_device();
    core_get_count_of_hid_interfaces();
    answer(core_get_pad_name);
    answer(core_get_pad_manufacturer);
    for (const std::string& message :
         {"core_get_pad_product_id(): Pad's product ID: " + std::to_string(pad.product_id),
          "core_get_vendor_id(): Pad's vendor ID: " + std::to_string(pad.vendor_id),
          std::string("core_get_pad_bcd_device(): Pad's bcdDevice: 0"),
          std::string("core_get_count_of_hid_interfaces(): Pad's have 1 interfaces"),
          std::string("core_get_pad_name(): Pad Name of current dev: Pad 100 "),
          std::string("core_get_pad_manufacturer(): Pad's manufacturer of current dev: ACME")}) {
        EXPECT_EQ(log.count("info: " + message + "\n"), 1) << message;
    }
}

TEST_F(Queries, OfTextsNeedABuffer) {
    start(pad_of_type(9));
    const LogCapture log;
    EXPECT_EQ(core_get_serial_number(nullptr), -1);
    EXPECT_EQ(core_get_pad_name(nullptr), -1);
    EXPECT_EQ(core_get_pad_manufacturer(nullptr), -1);
    EXPECT_EQ(log.count("*ptr of VXPAD_vx_ioctl() is NULL"), 3);
}

TEST_F(Queries, OfLongTextsStayInTheirBuffers) {
    standins::HidInterface pad = pad_of_type(9);
    pad.manufacturer = std::wstring(255, L'm');
    pad.product = std::wstring(255, L'p');
    pad.serial_number = std::wstring(255, L's');
    start(pad);
    EXPECT_EQ(answer(core_get_serial_number), (Answer{254, std::string(254, 's')}));
    EXPECT_EQ(answer(core_get_pad_name), (Answer{255, std::string(254, 'p') + " "}));
    EXPECT_EQ(answer(core_get_pad_manufacturer), (Answer{254, std::string(254, 'm')}));
}

TEST_F(Queries, OfAnEmptySerialNumberAnswerNothingAndOfAnEmptyManufacturerFail) {
    standins::HidInterface pad = pad_of_type(9);
    pad.manufacturer.clear();
    pad.serial_number.clear();
    start(pad);
    const LogCapture log;
    EXPECT_EQ(answer(core_get_serial_number), (Answer{0, ""}));
    EXPECT_EQ(answer(core_get_pad_manufacturer), (Answer{-1, ""}));
    EXPECT_EQ(log.count("Error, Pad manufacturer of current device not available"), 1);
}

TEST_F(Queries, OfSizesNeedAnOpenPad) {
    int opened = 0;
    bus().hooks.open_path = [&](const std::string&) { return ++opened == 1 ? std::nullopt : std::optional(1); };
    start(pad_of_type(1));
    bus().hooks = {};
    EXPECT_EQ(core_get_max_packet_size_of_out_endpoint(), -20);
    EXPECT_EQ(core_get_max_packet_size_of_input_report(), -20);
}

struct TransferRequest {
    const char* name;
    int (*call)(unsigned int interface, unsigned char* data, int size);
    const char* prefix;  // of its argument errors
    const char* no_data; // its text for missing data
    int success;         // result of a transfer of 64 bytes
    friend std::ostream& operator<<(std::ostream& out, const TransferRequest& one) { return out << one.name; }
};

class TransferRequests : public api::TwoPads, public testing::WithParamInterface<TransferRequest> {
  protected:
    static int call(unsigned int interface, int size = 64) { return GetParam().call(interface, some_bytes, size); }

    void expect_refused(int result, const std::string& reason, const LogCapture& log) {
        EXPECT_EQ(result, -1) << reason;
        EXPECT_EQ(log.count(reason), 1) << reason;
        EXPECT_THAT(bus().take_log(), IsEmpty()) << reason;
    }
};

TEST_P(TransferRequests, CheckDataThenSizeThenInterface) {
    const std::string prefix = GetParam().prefix;
    {
        const LogCapture log;
        expect_refused(GetParam().call(3, nullptr, 0), GetParam().no_data, log);
    }
    for (const int size : {0, -1, -2147483647 - 1}) {
        const LogCapture log;
        expect_refused(call(3, size), prefix + "data_size of VXPAD_vx_ioctl() <= 0", log);
    }
    for (const unsigned int interface : {3U, 8U, 0x80000000U, 0xFFFFFFFFU}) {
        const LogCapture log;
        expect_refused(call(interface), prefix + "interface_number > count of interfaces", log);
    }
}

TEST_P(TransferRequests, PassTheBoundWithTheCountAndThenFindNothingOpen) {
    const LogCapture log;
    expect_refused(call(2), "Error, device pointers: *hid and *vcom_handle are NULL", log);
    EXPECT_EQ(log.count("interface_number > count of interfaces"), 0);
}

TEST_P(TransferRequests, OfNineInterfacesFindNoTenth) {
    start_over();
    for (int i = 0; i < 9; ++i) {
        bus().plug(pad_of_type(9, "1-1:1." + std::to_string(i), i));
    }
    Initialize();
    ASSERT_EQ(core_get_count_of_hid_interfaces(), 9);
    bus().take_log();
    EXPECT_EQ(call(9), -1);
    EXPECT_EQ(call(10), -1);
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_P(TransferRequests, DoNotOpenThePadItself) {
    first_->input_reports.push_back(Bytes(64, 1));
    EXPECT_EQ(call(0), GetParam().success);
    EXPECT_THAT(bus().log("hid_open_path"), IsEmpty());
}

TEST_P(TransferRequests, OpenAFurtherInterfaceOnFirstUse) {
    further_->input_reports.push_back(Bytes(64, 1));
    EXPECT_EQ(call(1), GetParam().success);
    EXPECT_THAT(bus().log("hid_open_path"), ElementsAre("hid_open_path(1-1:1.1)"));
}

TEST_P(TransferRequests, ExcludeOneAnotherOnOneInterface) {
    std::atomic<int> inside = 0;
    std::atomic<int> overlaps = 0;
    const auto watch = [&](auto&&...) -> std::optional<int> {
        if (++inside > 1) {
            ++overlaps;
        }
        std::this_thread::yield();
        --inside;
        return std::nullopt;
    };
    bus().hooks.get_feature = watch;
    bus().hooks.send_feature = watch;
    bus().hooks.read = watch;
    std::thread other([] {
        std::array<unsigned char, 64> mine{};
        for (int i = 0; i < 50; ++i) {
            core_get_hid_feature_report(0, mine.data(), 64);
        }
    });
    for (int i = 0; i < 50; ++i) {
        call(0);
    }
    other.join();
    bus().hooks = {};
    EXPECT_EQ(overlaps, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Functions, TransferRequests,
    testing::Values(TransferRequest{"core_set_hid_feature_report",
                                    [](unsigned int interface, unsigned char* data, int size) {
                                        return core_set_hid_feature_report(interface, data, size);
                                    },
                                    "", "*data of VXPAD_vx_ioctl() is NULL", 0},
                    TransferRequest{"core_get_hid_feature_report",
                                    [](unsigned int interface, unsigned char* data, int size) {
                                        return core_get_hid_feature_report(interface, data, size);
                                    },
                                    "get_hid_feature_from_interface->",
                                    "get_hid_feature_from_interface->data of VXPAD_vx_ioctl() is NULL", 0},
                    TransferRequest{"core_set_unsync_hid_output_report",
                                    [](unsigned int interface, unsigned char* data, int size) {
                                        return core_set_unsync_hid_output_report(interface, data, size);
                                    },
                                    "set_hid_output_to_interface->",
                                    "set_hid_output_to_interface->data of VXPAD_vx_ioctl() is NULL", 0},
                    TransferRequest{"core_get_hid_input_report",
                                    [](unsigned int interface, unsigned char* data, int size) {
                                        return core_get_hid_input_report(interface, data, size);
                                    },
                                    "get_hid_input_from_interface->",
                                    "get_hid_input_from_interface->data of VXPAD_vx_ioctl() is NULL", 64}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(Queries, AFeatureWriteToThePadIsAnnounced) {
    start(pad_of_type(9));
    const LogCapture log;
    core_set_hid_feature_report(0, some_bytes, 33);
    EXPECT_EQ(log.count("Going to call hid_feature_write(data_size: 33)"), 1);
}

} // namespace
