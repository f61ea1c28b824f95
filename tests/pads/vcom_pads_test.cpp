// VCOM pads: how they are found, and reports over their bulk endpoints. The library's pauses are skipped.
#include "ssp_pad_test.hpp"

#include <algorithm>

#include VXPADCOM_USB_IDS_FILE

using namespace pads;

namespace {

// The pads of CMakeLists.txt.
constexpr int hid_pad = 1;
constexpr int pad = 2;
constexpr int named_pad = 3;
constexpr int wrongly_named_pad = 4;
constexpr int unknown_pad = 5;
constexpr int other_pad = 6;

const MessageAnswer right_answer{{}, components_reply};

int count() {
    unsigned int reply = 0;
    return GetDeviceCount(&reply);
}

class VcomPads : public testing::Test {
  protected:
    void TearDown() override {
        Deinitialize();
        plug_only({});
    }

    static void fault(const std::string& what) { to_pad("fault", pad, what); }
};

// ---- the search ----

std::vector<std::u16string> serials_found(const std::vector<int>& pads) {
    plug_only(pads);
    EXPECT_EQ(Initialize(), 0);
    std::vector<std::u16string> serials;
    for (int device = 1; device <= count(); ++device) {
        serials.push_back(serial_number(static_cast<unsigned int>(device)));
    }
    std::ranges::sort(serials); // in which order libusb lists them is its own business
    return serials;
}

using Serials = std::vector<std::u16string>;

TEST_F(VcomPads, AreFoundBesideHidPads) {
    EXPECT_EQ(serials_found({hid_pad, pad, other_pad}), (Serials{u"H17", u"TOLD16", u"V15"}));
    for (int round = 0; round < 3; ++round) {
        for (unsigned int device = 1; device <= 3; ++device) {
            EXPECT_EQ(send_message(components_request, device), Failure{});
            EXPECT_EQ(receive_message(1000, 4096, device), right_answer) << "selected one after the other";
            const auto sent = report(65, static_cast<unsigned char>(0x80 + device));
            if (device > 1) {
                EXPECT_EQ(set_feature(device, 0, sent), 0);
                EXPECT_EQ(read(GetFeature, device, 0).buffer, received(payload(sent)));
            }
        }
    }
    EXPECT_EQ(number_of(EnumerateDevicesStart), 1U);
    EXPECT_EQ(number_of(EnumerateDevicesNext), 2U);
    EXPECT_EQ(number_of(EnumerateDevicesNext), 3U);
    EXPECT_EQ(number_of(EnumerateDevicesNext), 0U);
}

TEST_F(VcomPads, OfTheChipVendorAreToldByTheirMaker) {
    EXPECT_EQ(serials_found({named_pad}).size(), 1U);
    EXPECT_EQ(text_of([](auto... rest) { return GetVendorName(1, rest...); }), u"Quillon Ltd");
    EXPECT_EQ(number_of([](auto* reply) { return GetVendorId(1, reply); }), usb_ids::shared_vendors[0])
        << "what the pad tells";
    EXPECT_EQ(exchange_messages(components_request), right_answer);
    EXPECT_EQ(serials_found({wrongly_named_pad}), Serials{}) << "in other letters";
    EXPECT_EQ(to_pad("ssp", wrongly_named_pad).find("requests=0") == std::string::npos, false)
        << "no word is spoken with somebody else's device";
}

TEST_F(VcomPads, OfAnUnknownProductEndTheSearch) {
    EXPECT_EQ(serials_found({unknown_pad}), Serials{});
    EXPECT_EQ(serials_found({hid_pad, pad, unknown_pad, other_pad}).size(), 2U)
        << "of the two VCOM pads around it the second one is not registered";
    plug_only({pad});
    EXPECT_EQ(Initialize(), 0);
    EXPECT_EQ(exchange_messages(components_request), right_answer);
}

struct SearchCase {
    const char* fault;
    int pads;
    double seconds = 2; // at most
};

void PrintTo(const SearchCase& search, std::ostream* stream) {
    *stream << search.fault;
}

class FaultyVcomSearch : public VcomPads, public testing::WithParamInterface<SearchCase> {};

// The pad answers with its mode, its components and its description.
INSTANTIATE_TEST_SUITE_P(
    All, FaultyVcomSearch,
    testing::Values(SearchCase{"wrong-result", 0}, SearchCase{"wrong-result,count=1", 1},
                    SearchCase{"wrong-result,after=1,count=1", 0}, SearchCase{"wrong-result,after=2,count=1", 0},
                    SearchCase{"wrong-component,after=1,count=1", 0}, SearchCase{"wrong-component,after=2,count=1", 0},
                    SearchCase{"drop,after=1,count=1", 0}, SearchCase{"replace=0101001001,after=2,count=1", 0},
                    SearchCase{"split=1", 1}, SearchCase{"noise=100", 1}, SearchCase{"junk", 0, 10},
                    SearchCase{"stall,on=bulk-out,count=4", 1}, SearchCase{"stall,on=bulk-out", 0},
                    SearchCase{"stall,on=bulk-in", 0}, SearchCase{"short=5,on=bulk-out,count=1", 1},
                    SearchCase{"garbage,on=bulk-in,count=1", 1}, SearchCase{"stall,on=string", 1},
                    SearchCase{"short=0,on=string", 1}, SearchCase{"garbage,seed=1,on=string", 1},
                    SearchCase{"garbage,seed=2,on=string", 1}, SearchCase{"stall,on=descriptor", 1},
                    SearchCase{"garbage,on=descriptor", 1}),
    [](const auto& tested) {
        std::string name = tested.param.fault;
        std::ranges::replace_if(
            name, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
        return name;
    });

TEST_P(FaultyVcomSearch, EndsWithADocumentedResult) {
    plug_only({pad});
    fault(GetParam().fault);
    EXPECT_LT(seconds_of([] { EXPECT_EQ(Initialize(), 0); }), patience(GetParam().seconds));
    EXPECT_EQ(count(), GetParam().pads);
    for (const auto& [name, call, message] : device_calls()) {
        const auto failed = failure(call(1));
        if (GetParam().pads == 0) {
            EXPECT_EQ(failed, invalid_handle(name, "Error of switching to device: 1"));
        } else if (failed.code != 0) { // a text may be empty
            EXPECT_EQ(failed, invalid_handle(name, message + std::string("1")));
        }
    }
    plug_only({pad}); // what it still had to say is gone
    EXPECT_EQ(Initialize(), 0);
    ASSERT_EQ(count(), 1);
    EXPECT_EQ(serial_number(1), u"TOLD16");
    EXPECT_EQ(exchange_messages(components_request), right_answer);
}

// ---- reports ----

class VcomReports : public VcomPads {
  protected:
    void SetUp() override {
        plug_only({pad});
        ASSERT_EQ(Initialize(), 0);
        ASSERT_EQ(count(), 1);
        to_pad("log", pad);
    }

    static std::vector<std::string> messages(const char* direction) {
        auto log = take_log(pad, "ssp");
        std::erase_if(log, [&](const std::string& line) { return !line.starts_with(direction); });
        return log;
    }
    static std::string message_line(const char* direction, const Bytes& message) {
        return std::string(direction) + " ssp 0 " + hex(message);
    }
};

const Bytes report_request{0xc0, 0x00};

TEST_F(VcomReports, FeatureReportsTravelInLegacyMessages) {
    for (const std::size_t size : {2U, 10U, 65U}) {
        const auto sent = report(size, 0x70);
        EXPECT_EQ(set_feature(1, 0, sent), 0);
        EXPECT_EQ(messages("out"), std::vector{message_line("out", legacy_message(payload(sent)))});
        auto whole = payload(sent);
        whole.resize(64);
        EXPECT_EQ(read(GetFeature, 1, 0).buffer, received(whole));
        EXPECT_EQ(messages("out"), std::vector{message_line("out", report_request)});
    }
    const auto file = report(65, 0x90);
    EXPECT_EQ(write_file(1, 0, file), 0);
    EXPECT_EQ(messages("out"), std::vector{message_line("out", legacy_message(payload(file)))});
    EXPECT_EQ(read(GetFeature, 1, 0).buffer, received(payload(file)));
}

TEST_F(VcomReports, BuffersOfOtherSizesAreFilledAsFarAsBytesCame) {
    EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
    auto answer = read(GetFeature, 1, 0, 2);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.reply, 2U);
    EXPECT_EQ(answer.buffer, (Bytes{0, 0x80}));
    answer = read(GetFeature, 1, 0, 100);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.reply, 100U);
    EXPECT_EQ(answer.buffer, received(payload(report(65, 0x80)) + Bytes(35)));
    fault("replace=820a0b0c,count=1"); // a report of three bytes
    answer = read(GetFeature, 1, 0);
    EXPECT_EQ(answer.reply, 65U);
    EXPECT_EQ(answer.buffer, received(Bytes{0x0a, 0x0b, 0x0c} + Bytes(61))) << "and no old memory behind them";
}

TEST_F(VcomReports, LengthsAreChecked) {
    unsigned int reply = reply_untouched;
    unsigned char buffer[100] = {};
    EXPECT_EQ(failure(set_feature(1, 0, report(66, 0x80))),
              invalid_handle("SetFeature", "Error of write HID feature for device: 1"));
    EXPECT_EQ(failure(set_feature(1, 0, report(1, 0x80))),
              invalid_handle("SetFeature", "Error of write HID feature for device: 1"));
    EXPECT_EQ(failure(write_file(1, 0, report(66, 0x80))),
              invalid_parameter("WriteFile",
                                "Error of input parameters, const unsigned int src_length > max packet size + 1"));
    EXPECT_EQ(failure(write_file(1, 0, report(1, 0x80))),
              invalid_handle("WriteFile", "Error of set HID output report for device: 1"));
    EXPECT_EQ(failure(GetFeature(1, 0, buffer, 1, &reply)),
              invalid_parameter("GetFeature", "Error of input parameters, const unsigned int dst_length is <= 1"));
    EXPECT_EQ(failure(ReadFile(1, 0, buffer, 66, &reply)),
              invalid_parameter("ReadFile",
                                "Error of input parameters, const unsigned int dst_length > max packet size + 1"));
    EXPECT_EQ(failure(set_feature(1, 1, report(65, 0x80))),
              invalid_handle("SetFeature", "Error of write HID feature for device: 1"))
        << "there is no further interface";
    EXPECT_EQ(messages("out"), std::vector<std::string>{});
    EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
    EXPECT_EQ(read(GetFeature, 1, 0).buffer, received(payload(report(65, 0x80))));
}

TEST_F(VcomReports, InputReportsArePenData) {
    const auto nothing = read(ReadFile, 1, 0);
    EXPECT_EQ(nothing.result, 0);
    EXPECT_EQ(nothing.reply, reply_untouched);
    EXPECT_EQ(nothing.buffer, Bytes(65, untouched));

    const auto record = numbered_bytes(64, 5);
    to_pad("pen", pad, hex(record));
    to_pad("pen", pad, "010203");
    to_pad("pen", pad, "040506");
    EXPECT_EQ(read(ReadFile, 1, 0).buffer, received(record));
    const auto shorter = read(ReadFile, 1, 0, 4);
    EXPECT_EQ(shorter.reply, 4U);
    EXPECT_EQ(shorter.buffer, received({1, 2, 3}));
    EXPECT_EQ(failure(read(ReadFile, 1, 0).result),
              invalid_handle("ReadFile", "Error of read HID input report for device: 1"))
        << "a record of another size";
    to_pad("pen", pad, "0708090a");
    EXPECT_EQ(read(ReadFile, 1, 0, 4).buffer, received({7, 8, 9})) << "a longer one is cut";
    EXPECT_EQ(read(ReadFile, 1, 0).reply, reply_untouched);
}

TEST_F(VcomReports, PenDataIsSwitchedOnAndRead) {
    EXPECT_EQ(core_enable_ssp_biodata_sending(), 0);
    for (unsigned char number = 0; number < 5; ++number) {
        const auto record = next_input(1, 0, 7); // number and two coordinates, 16 bits each
        EXPECT_EQ(record.result, 0);
        EXPECT_EQ(record.buffer[1], number);
    }
    EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
    EXPECT_EQ(read(GetFeature, 1, 0).buffer, received(payload(report(65, 0x80)))) << "amid the pen data";
    EXPECT_EQ(core_disable_ssp_biodata_sending(), 0);
    EXPECT_TRUE(wait_for([] { return read(ReadFile, 1, 0, 7).reply == reply_untouched; })) << "until it is over";
}

TEST_F(VcomReports, RepliesAndPenDataWaitForWhoWantsThem) {
    to_pad("pen", pad, "01");
    EXPECT_EQ(exchange_messages(components_request), right_answer);
    EXPECT_EQ(read(ReadFile, 1, 0, 2).buffer, received({1}));
    EXPECT_EQ(send_message(components_request), Failure{});
    to_pad("pen", pad, "02");
    EXPECT_EQ(read(ReadFile, 1, 0, 2).buffer, received({2})) << "reads past the reply";
    EXPECT_EQ(receive_message(0), right_answer);

    to_pad("pen", pad, "03");
    EXPECT_EQ(exchange_messages(components_request), right_answer);
    core_clear_ssp_input_queue();
    EXPECT_EQ(read(ReadFile, 1, 0, 2).reply, reply_untouched);

    // A feature read wants a fresh reply: an older message is dropped.
    EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
    put_into_stream(pad, framed(components_reply) + framed(components_reply));
    EXPECT_EQ(receive_message(), right_answer);
    EXPECT_EQ(read(GetFeature, 1, 0).buffer, received(payload(report(65, 0x80))));
}

struct ReportFault {
    const char* fault;
    const char* function; // that fails; none where the fault is overcome
};

TEST_F(VcomReports, FailAsDocumentedAndGoOn) {
    for (const auto& [fault_text, failing] : {
             ReportFault{"stall,on=bulk-out,count=2", ""},
             ReportFault{"stall,on=bulk-out,count=3", "SetFeature"},
             ReportFault{"short=0,on=bulk-in,count=1", "GetFeature"},
             ReportFault{"garbage,on=bulk-in,count=1", ""},           // asks once more
             ReportFault{"replace=0000001001,count=1", "GetFeature"}, // no legacy message
             ReportFault{"split=7", ""},
             ReportFault{"noise=500", ""},
             ReportFault{"delay-reply=30", ""},
             ReportFault{"delay=30,on=bulk", ""},
         }) {
        SCOPED_TRACE(fault_text);
        const auto fails = [&, name = std::string(failing)](const char* function) { return name == function; };
        const Removals removals;
        fault(fault_text);
        const auto sent = report(65, 0x80);
        EXPECT_EQ(failure(set_feature(1, 0, sent)),
                  fails("SetFeature") ? invalid_handle("SetFeature", "Error of write HID feature for device: 1")
                                      : Failure{});
        ReadAnswer answer{};
        EXPECT_LT(seconds_of([&] { answer = read(GetFeature, 1, 0); }), patience(3));
        if (fails("GetFeature")) {
            EXPECT_EQ(failure(answer.result), invalid_handle("GetFeature", "Error of read HID feature for device: 1"));
            EXPECT_EQ(answer.buffer, Bytes(65, untouched));
        } else if (!fails("SetFeature")) {
            EXPECT_EQ(answer.buffer, received(payload(sent)));
        }
        to_pad("clear-faults", pad);
        drop_late_replies();
        EXPECT_EQ(set_feature(1, 0, report(65, 0x90)), 0);
        EXPECT_EQ(read(GetFeature, 1, 0).buffer, received(payload(report(65, 0x90))));
    }
}

} // namespace
