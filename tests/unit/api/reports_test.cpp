#include "api_test.hpp"

#include <sys/resource.h>

using api::Record;
using api::record_of;
using standins::bus;
using standins::Bytes;
using standins::LogCapture;
using standins::pad_of_type;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

class Reports : public api::TwoPads {
  protected:
    static Bytes counting(std::size_t size) {
        Bytes bytes(size);
        for (std::size_t i = 0; i < size; ++i) {
            bytes[i] = static_cast<unsigned char>(i + 1);
        }
        return bytes;
    }
};

TEST_F(Reports, SetFeatureSendsAllButTheFirstByteUnderReportId0) {
    const Bytes report{0xEE, 1, 2, 3};
    EXPECT_EQ(SetFeature(1, 0, report.data(), 4, &reply_), 0);
    EXPECT_EQ(reply_, 4U);
    EXPECT_THAT(bus().log(), ElementsAre("hid_send_feature_report(1-1:1.0, 4: 00 01 02 03)"));
}

TEST_F(Reports, SetFeatureHasNoUpperBoundOfItsOwn) {
    const Bytes report = counting(600);
    EXPECT_EQ(SetFeature(1, 0, report.data(), 600, &reply_), 0);
    EXPECT_EQ(reply_, 600U);
    EXPECT_EQ(first_->last_request, Bytes(report.begin() + 1, report.end()));
}

TEST_F(Reports, SetFeatureSmallestReportHasOneByte) {
    const Bytes report{0xEE, 0x42};
    EXPECT_EQ(SetFeature(1, 0, report.data(), 2, &reply_), 0);
    EXPECT_EQ(reply_, 2U);
    EXPECT_THAT(first_->last_request, ElementsAre(0x42));
}

TEST_F(Reports, GetFeatureDeliversBehindAZeroByte) {
    first_->feature_replies.push_back(counting(64));
    Bytes buffer(70, 0xEE);
    EXPECT_EQ(GetFeature(1, 0, buffer.data(), 65, &reply_), 0);
    EXPECT_EQ(reply_, 65U);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(Bytes(buffer.begin() + 1, buffer.begin() + 65), counting(64));
    EXPECT_EQ(Bytes(buffer.begin() + 65, buffer.end()), Bytes(5, 0xEE));
}

TEST_F(Reports, GetFeatureOfTwoBytesReadsOne) {
    first_->feature_replies.push_back({0x42});
    Bytes buffer(3, 0xEE);
    EXPECT_EQ(GetFeature(1, 0, buffer.data(), 2, &reply_), 0);
    EXPECT_EQ(reply_, 2U);
    EXPECT_THAT(buffer, ElementsAre(0, 0x42, 0xEE));
}

TEST_F(Reports, GetFeatureLogsItsLengthBeforeAnyCheck) {
    const LogCapture log;
    GetFeature(1, 0, nullptr, 77, nullptr);
    EXPECT_EQ(log.count("info: GetFeature(): input parameter dst_length:[77]\n"), 1);
}

TEST_F(Reports, SetFeatureLogsThePacketSize) {
    const LogCapture log;
    const Bytes report = counting(65);
    SetFeature(1, 1, report.data(), 65, &reply_);
    EXPECT_EQ(log.count("device: 1, interface: 1,  Max packet size of out endpoint is: 64"), 1);
}

TEST_F(Reports, WriteFileTravelsAsAFeatureReport) {
    const Bytes report{0xEE, 9, 8};
    EXPECT_EQ(WriteFile(1, 0, report.data(), 3, &reply_), 0);
    EXPECT_EQ(reply_, 3U);
    EXPECT_THAT(bus().log(), ElementsAre("hid_send_feature_report(1-1:1.0, 3: 00 09 08)"));
}

TEST_F(Reports, WriteFileTakesThePacketSizeAndTheReportId) {
    const LogCapture log;
    const Bytes report = counting(66);
    EXPECT_EQ(WriteFile(1, 0, report.data(), 65, &reply_), 0);
    EXPECT_EQ(reply_, 65U);
    bus().take_log();
    for (const unsigned int length : {66U, 0x80000000U, 0x80000001U, 0xFFFFFFFFU}) {
        reply_ = api::preset;
        EXPECT_EQ(record_of(WriteFile(1, 0, report.data(), length, &reply_)),
                  (Record{258, "WriteFile",
                          "Error of input parameters, const unsigned int src_length > max packet size + 1"}));
        EXPECT_EQ(reply_, api::preset);
    }
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_EQ(log.count("src_length: 66 > 65 (1 + max_packet_size)"), 1);
}

TEST_F(Reports, ReadFileDeliversAWaitingReportBehindAZeroByte) {
    first_->input_reports.push_back(counting(64));
    Bytes buffer(70, 0xEE);
    EXPECT_EQ(ReadFile(1, 0, buffer.data(), 65, &reply_), 0);
    EXPECT_EQ(reply_, 65U);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(Bytes(buffer.begin() + 1, buffer.begin() + 65), counting(64));
    EXPECT_EQ(Bytes(buffer.begin() + 65, buffer.end()), Bytes(5, 0xEE));
}

TEST_F(Reports, ReadFileWithNothingWaitingSucceedsAndChangesNothing) {
    Bytes buffer(65, 0xEE);
    EXPECT_EQ(ReadFile(1, 0, buffer.data(), 65, &reply_), 0);
    EXPECT_EQ(reply_, api::preset);
    EXPECT_EQ(buffer, Bytes(65, 0xEE));
    EXPECT_EQ(GetDeviceCount(nullptr), 1) << "no record is filed for it";
}

TEST_F(Reports, ReadFileTakesNoShortReport) {
    static int removals = 0;
    removals = 0;
    SetOnDeviceRemovedHandler([](void*, unsigned int) { ++removals; }, nullptr);
    for (const std::size_t size : {1U, 63U}) {
        first_->input_reports.push_back(counting(size));
        Bytes buffer(65, 0xEE);
        EXPECT_EQ(record_of(ReadFile(1, 0, buffer.data(), 65, &reply_)),
                  (Record{257, "ReadFile", "Error of read HID input report for device: 1"}));
        EXPECT_EQ(reply_, api::preset);
        EXPECT_EQ(buffer, Bytes(65, 0xEE));
    }
    EXPECT_EQ(removals, 0);
    EXPECT_THAT(bus().log("hid_open_path"), IsEmpty()) << "nothing is reopened";
}

TEST_F(Reports, ReadFileTakesTheInputSizeAndTheReportId) {
    const LogCapture log;
    Bytes buffer(66, 0xEE);
    for (const unsigned int length : {66U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(record_of(ReadFile(1, 0, buffer.data(), length, &reply_)),
                  (Record{258, "ReadFile",
                          "Error of input parameters, const unsigned int dst_length > max packet size + 1"}));
        EXPECT_EQ(reply_, api::preset);
    }
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_EQ(buffer, Bytes(66, 0xEE));
    EXPECT_EQ(log.count("Error, dst_length 66 > 65 (max size of packet + 1)"), 1);
}

TEST_F(Reports, ReadFileOfATypeOnePadTakes20Bytes) {
    start_over();
    standins::HidInterface& pad = bus().plug(pad_of_type(1));
    Initialize();
    pad.input_reports.push_back(counting(20));
    Bytes buffer(22, 0xEE);
    EXPECT_EQ(ReadFile(1, 0, buffer.data(), 21, &reply_), 0);
    EXPECT_EQ(reply_, 21U);
    EXPECT_EQ(Bytes(buffer.begin() + 1, buffer.begin() + 21), counting(20));
    EXPECT_EQ(record_of(ReadFile(1, 0, buffer.data(), 22, &reply_)).code, 258);
    const Bytes report = counting(66);
    EXPECT_EQ(WriteFile(1, 0, report.data(), 65, &reply_), 0) << "the out size is 64 for every pad";
}

struct Transfer {
    const char* name;
    int (*call)(unsigned int interface, unsigned char* data, unsigned int length, unsigned int* reply);
    const char* failure; // message on a failed transfer with pad 1
    friend std::ostream& operator<<(std::ostream& out, const Transfer& one) { return out << one.name; }
};

class AnyTransfer : public Reports, public testing::WithParamInterface<Transfer> {
  protected:
    int transfer(unsigned int interface, unsigned int length) {
        bus().take_log();
        reply_ = api::preset;
        data_ = Bytes(100, 0xEE);
        return GetParam().call(interface, data_.data(), length, &reply_);
    }

    void expect_failure(unsigned int interface, unsigned int length) {
        const int handle = transfer(interface, length);
        ASSERT_NE(handle, 0) << interface << ' ' << length;
        EXPECT_EQ(record_of(handle), (Record{257, GetParam().name, GetParam().failure})) << interface << ' ' << length;
        EXPECT_EQ(reply_, api::preset);
        EXPECT_EQ(data_, Bytes(100, 0xEE));
    }

    void expect_untouched_failure(unsigned int interface, unsigned int length) {
        expect_failure(interface, length);
        EXPECT_THAT(bus().log(), IsEmpty()) << interface << ' ' << length;
    }

    // Both interfaces of the first pad have something to read.
    void offer_input() {
        first_->input_reports.push_back(Bytes(64, 1));
        further_->input_reports.push_back(Bytes(64, 2));
    }

    Bytes data_;
};

TEST_P(AnyTransfer, ReachesTheInterfaceThatIsNamed) {
    offer_input();
    EXPECT_EQ(transfer(0, 65), 0);
    EXPECT_EQ(reply_, 65U);
    for (const std::string& call : bus().log()) {
        EXPECT_NE(call.find("1-1:1.0"), std::string::npos) << call;
    }
    EXPECT_EQ(transfer(1, 65), 0);
    EXPECT_EQ(reply_, 65U);
    for (const std::string& call : bus().log()) {
        EXPECT_EQ(call.find("1-1:1.0"), std::string::npos) << call;
    }
}

TEST_P(AnyTransfer, OpensAFurtherInterfaceOnceOnFirstUse) {
    offer_input();
    EXPECT_EQ(transfer(1, 65), 0);
    EXPECT_THAT(bus().log("hid_open_path"), ElementsAre("hid_open_path(1-1:1.1)"));
    offer_input();
    EXPECT_EQ(transfer(1, 65), 0);
    EXPECT_THAT(bus().log("hid_open_path"), IsEmpty());
}

TEST_P(AnyTransfer, RefusesInterfacesThatThePadDoesNotHave) {
    for (const unsigned int interface : {2U, 3U, 7U, 8U, 9U, 10U, 63U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        expect_untouched_failure(interface, 65);
    }
}

TEST_P(AnyTransfer, RefusesAnEmptyReport) {
    if (std::string_view(GetParam().name) == "GetFeature") { // which refuses the length itself
        EXPECT_EQ(record_of(transfer(0, 1)).code, 258);
        return;
    }
    expect_untouched_failure(0, 1);
    expect_untouched_failure(1, 1);
}

TEST_P(AnyTransfer, OfANinthInterfaceWorksAndOfATenthFails) {
    start_over();
    std::vector<standins::HidInterface*> interfaces;
    for (int i = 0; i < 12; ++i) {
        interfaces.push_back(&bus().plug(pad_of_type(9, "1-1:1." + std::to_string(i), i)));
    }
    Initialize();
    interfaces[8]->input_reports.push_back(Bytes(64, 8));
    EXPECT_EQ(transfer(8, 65), 0);
    EXPECT_EQ(reply_, 65U);
    for (const unsigned int interface : {9U, 10U, 11U, 0xFFFFFFFFU}) {
        expect_untouched_failure(interface, 65);
    }
}

TEST_P(AnyTransfer, FailsCleanlyOnceAndWorksAgain) {
    static int removals = 0;
    removals = 0;
    SetOnDeviceRemovedHandler([](void*, unsigned int) { ++removals; }, nullptr);
    bus().hooks.get_feature = standins::always{-1};
    bus().hooks.send_feature = standins::always{-1};
    bus().hooks.read = standins::always{-1};
    for (const unsigned int interface : {0U, 1U}) {
        expect_failure(interface, 65);
        EXPECT_THAT(bus().log("hid_close"), testing::SizeIs(1)) << "closed and opened again";
        EXPECT_THAT(bus().log("hid_open_path"), Not(IsEmpty()));
    }
    bus().hooks = {};
    EXPECT_EQ(removals, 0);
    offer_input();
    EXPECT_EQ(transfer(0, 65), 0);
    EXPECT_EQ(reply_, 65U);
    EXPECT_EQ(transfer(1, 65), 0);
    EXPECT_EQ(reply_, 65U);
}

INSTANTIATE_TEST_SUITE_P(
    Functions, AnyTransfer,
    testing::Values(Transfer{"SetFeature",
                             [](unsigned int interface, unsigned char* data, unsigned int length, unsigned int* reply) {
                                 return SetFeature(1, interface, data, length, reply);
                             },
                             "Error of write HID feature for device: 1"},
                    Transfer{"GetFeature",
                             [](unsigned int interface, unsigned char* data, unsigned int length, unsigned int* reply) {
                                 return GetFeature(1, interface, data, length, reply);
                             },
                             "Error of read HID feature for device: 1"},
                    Transfer{"WriteFile",
                             [](unsigned int interface, unsigned char* data, unsigned int length, unsigned int* reply) {
                                 return WriteFile(1, interface, data, length, reply);
                             },
                             "Error of set HID output report for device: 1"},
                    Transfer{"ReadFile",
                             [](unsigned int interface, unsigned char* data, unsigned int length, unsigned int* reply) {
                                 return ReadFile(1, interface, data, length, reply);
                             },
                             "Error of read HID input report for device: 1"}),
    [](const auto& tested) { return std::string(tested.param.name); });

// Lengths that are negative as a signed number are refused by the core: nobody may take memory for them.
TEST_F(Reports, FeatureLengthsBeyondASignedNumberAreRefused) {
    Bytes buffer(100, 0xEE);
    for (const unsigned int length : {0x80000001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(record_of(SetFeature(1, 0, buffer.data(), length, &reply_)),
                  (Record{257, "SetFeature", "Error of write HID feature for device: 1"}));
        EXPECT_EQ(record_of(GetFeature(1, 0, buffer.data(), length, &reply_)),
                  (Record{257, "GetFeature", "Error of read HID feature for device: 1"}));
        EXPECT_EQ(record_of(SetFeature(1, 1, buffer.data(), length, &reply_)).code, 257);
        EXPECT_EQ(record_of(GetFeature(1, 1, buffer.data(), length, &reply_)).code, 257);
    }
    EXPECT_EQ(reply_, api::preset);
    EXPECT_EQ(buffer, Bytes(100, 0xEE));
    EXPECT_THAT(bus().log(), IsEmpty());
}

#if !VXPAD_SANITIZED // whose shadow memory is larger than the limit
class ReportsDeath : public Reports {};

TEST_F(ReportsDeath, FeatureLengthsBeyondASignedNumberTakeNoMemory) {
    // Without the memory the process would end with status 1.
    const auto read_with_little_memory = [this] {
        const rlimit limit{1U << 30U, 1U << 30U};
        setrlimit(RLIMIT_AS, &limit);
        std::array<unsigned char, 8> buffer{};
        GetFeature(1, 0, buffer.data(), 0xFFFFFFFFU, &reply_);
        _exit(0);
    };
    EXPECT_EXIT(read_with_little_memory(), testing::ExitedWithCode(0), "");
}
#endif

TEST_F(Reports, AFailureNamesTheCoresFunctionAndResult) {
    const LogCapture log;
    Bytes buffer(2);
    SetFeature(1, 0, buffer.data(), 1, &reply_);
    WriteFile(1, 0, buffer.data(), 1, &reply_);
    ReadFile(1, 0, buffer.data(), 1, &reply_);
    GetFeature(1, 5, buffer.data(), 2, &reply_);
    for (const char* function : {"core_set_hid_feature_report", "core_set_unsync_hid_output_report",
                                 "core_get_hid_input_report", "core_get_hid_feature_report"}) {
        EXPECT_EQ(log.count(std::string("Error, function ") + function + "() return -1"), 1) << function;
    }
}

} // namespace
