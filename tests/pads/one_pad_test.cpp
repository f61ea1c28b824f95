// A type 16 pad with three interfaces that gives back what was written to it.
#include "pad_test.hpp"
#include "vxpadcom/internals.h"

#include <array>
#include <cstdlib>

using namespace pads;

namespace {

constexpr int pad = 1;

class OnePad : public InitializedPads {};
class OnePadUninitialized : public PluggedPads {};

const TextQuery serial = [](auto... rest) { return GetSerialNumber(1, rest...); };
const TextQuery product = [](auto... rest) { return GetProductName(1, 0, rest...); };
const TextQuery vendor = [](auto... rest) { return GetVendorName(1, rest...); };

std::u16string filled(std::u16string text, std::size_t size) {
    text.resize(size);
    return text;
}

// The 13 bytes of a signature rectangle command.
Bytes rectangle_command(unsigned char first) {
    return {0x65, first, 0, 2, 0, 3, 0, 4, 0, 5, 0, 0, 0};
}

Bytes with_report_id(Bytes payload, std::size_t payload_size) {
    payload.resize(payload_size);
    payload.insert(payload.begin(), 0xaa);
    return payload;
}

TEST_F(OnePadUninitialized, FailsCleanlyBeforeInitialize) {
    unsigned int reply = reply_untouched;
    EXPECT_FALSE(IsInitialized());
    EXPECT_EQ(GetDeviceCount(&reply), 0);
    for (const auto& [name, call, _] : device_calls()) {
        EXPECT_EQ(failure(call(1)), invalid_handle(name, "Error of switching to device: 1"));
    }
    EXPECT_EQ(Deinitialize(), 0);
    EXPECT_EQ(Deinitialize(), 0);
    EXPECT_TRUE(take_log(pad).empty());
}

TEST_F(OnePadUninitialized, IsFoundByEnumerateDevicesStart) {
    EXPECT_EQ(number_of(EnumerateDevicesStart), 1U);
    EXPECT_TRUE(IsInitialized());
    EXPECT_EQ(number_of(EnumerateDevicesNext), 0U);
}

TEST_F(OnePadUninitialized, IsForgottenByDeinitialize) {
    Initialize();
    EXPECT_TRUE(IsInitialized());
    Deinitialize();
    EXPECT_FALSE(IsInitialized());
    for (const auto& [name, call, _] : device_calls()) {
        EXPECT_EQ(failure(call(1)), invalid_handle(name, "Error of switching to device: 1"));
    }
    EXPECT_EQ(number_of(EnumerateDevicesNext), 0U);
}

TEST_F(OnePadUninitialized, IsAskedForItsVersionAndClearedInOrder) {
    const auto exchange = [](unsigned int interface, const Bytes& request, Bytes reply) {
        Bytes padded = request;
        padded.resize(64);
        reply.resize(64);
        return std::vector{feature_line("out", interface, padded), feature_line("in", interface, reply)};
    };
    std::vector<std::string> expected;
    const auto append = [&](const std::vector<std::string>& more) {
        expected.insert(expected.end(), more.begin(), more.end());
    };
    const Bytes version_reply{0x11, 0, 0, 0, 7, 0, 0, 0, 8, 0, 0, 0, 9, 0, 0, 0, 0x0a, 0x0b, 0, 0, 'A', 'B', 'C', 'D'};
    for (const unsigned int interface : {0U, 1U, 2U}) {
        append(exchange(interface, {0x11}, version_reply));
    }
    append(exchange(0, {0x65}, {0x65})); // as the first pad of the search
    append(exchange(0, {0x65}, {0x65})); // at the end of the walk through all pads

    Initialize();
    EXPECT_EQ(take_log(pad), expected);
    Deinitialize();
    EXPECT_EQ(take_log(pad), exchange(0, {0x65}, {0x65}));
}

TEST_F(OnePadUninitialized, ShowsItsVersionInTheTrace) {
    setenv("LIBVXPADCOM_DEBUG", "1", 1);
    testing::internal::CaptureStdout();
    Initialize();
    const auto trace = testing::internal::GetCapturedStdout();
    unsetenv("LIBVXPADCOM_DEBUG");
    for (const auto* line : {"FW info: major->7", "FW info: minor->8", "FW info: patch->9", "FW info: revision->2826",
                             "FW info: manufacturer->ABCD"}) {
        EXPECT_NE(trace.find(line), std::string::npos) << line;
    }
}

TEST_F(OnePad, IsCountedInTheResult) {
    unsigned int reply = reply_untouched;
    EXPECT_EQ(GetDeviceCount(&reply), 1);
    EXPECT_EQ(reply, reply_untouched);
    EXPECT_EQ(number_of(EnumerateDevicesStart), 1U);
    EXPECT_EQ(number_of(EnumerateDevicesNext), 0U);
    EXPECT_EQ(number_of(EnumerateDevicesNext), 0U);
    EXPECT_TRUE(take_log(pad).empty());
}

TEST_F(OnePad, TellsItsTexts) {
    EXPECT_EQ(ask_text(serial, 64), (TextAnswer{filled(u"SN00000042", 64), 10}));
    EXPECT_EQ(ask_text(vendor, 64), (TextAnswer{filled(u"ACME, Inc.", 64), 10}));
    EXPECT_EQ(ask_text(product, 64), (TextAnswer{filled(u"Pad 100 ", 64), 9}));
}

TEST_F(OnePad, CutsItsTextsToTheBuffer) {
    EXPECT_EQ(ask_text(serial, 4), (TextAnswer{u"SN00", 4}));
    EXPECT_EQ(ask_text(serial, 10), (TextAnswer{u"SN00000042", 10}));
    EXPECT_EQ(ask_text(vendor, 1), (TextAnswer{u"A", 1}));
    EXPECT_EQ(ask_text(product, 3), (TextAnswer{u"Pad", 3}));
    EXPECT_EQ(ask_text(product, 8), (TextAnswer{u"Pad 100 ", 8}));
    EXPECT_EQ(ask_text(product, 9), (TextAnswer{filled(u"Pad 100 ", 9), 9}));
}

TEST_F(OnePad, TellsItsNumbers) {
    EXPECT_EQ(number_of([](auto* reply) { return GetUsbVersion(1, reply); }), 0U);
    EXPECT_EQ(number_of([](auto* reply) { return GetBytesToSend(1, reply); }), 0U);
    EXPECT_EQ(number_of([](auto* reply) { return GetEndPointCount(1, reply); }), 3U);
    for (const unsigned int interface : {0U, 1U, 8U, 0xffffffffU}) {
        EXPECT_EQ(number_of([&](auto* reply) { return GetFeatureReportSize(1, interface, reply); }), 65U);
    }
}

TEST_F(OnePad, KeepsTheProtocolFlagUntilTheNextSearch) {
    const auto flag = [](auto* reply) { return GetUsedTransportProtocol(1, reply); };
    EXPECT_EQ(number_of(flag), 0U);
    EXPECT_EQ(SetUsedTransportProtocol(1, 7), 0);
    EXPECT_EQ(number_of(flag), 1U);
    EXPECT_EQ(SetUsedTransportProtocol(1, 0), 0);
    EXPECT_EQ(number_of(flag), 0U);
    EXPECT_EQ(SetUsedTransportProtocol(1, 0x100), 0);
    EXPECT_EQ(number_of(flag), 1U);
    Initialize();
    EXPECT_EQ(number_of(flag), 0U);
}

TEST_F(OnePad, IsNotAskedAgainForWhatIsKnown) {
    for (const auto& [name, call, _] : device_calls()) {
        const std::string function = name;
        if (!function.ends_with("File") && !function.ends_with("Feature")) {
            EXPECT_EQ(call(1), 0) << name;
        }
    }
    EXPECT_TRUE(take_log(pad).empty());
}

TEST_F(OnePad, GivesFeatureReportsBackOnEachInterface) {
    for (const unsigned int interface : {0U, 1U, 2U}) {
        const auto sent = report(65, static_cast<unsigned char>(0x80 + interface));
        EXPECT_EQ(set_feature(1, interface, sent), 0);
        const auto answer = read(GetFeature, 1, interface);
        EXPECT_EQ(answer.result, 0);
        EXPECT_EQ(answer.reply, 65U);
        EXPECT_EQ(answer.buffer, received(payload(sent)));
        EXPECT_EQ(take_log(pad), (std::vector{feature_line("out", interface, payload(sent)),
                                              feature_line("in", interface, payload(sent))}));
    }
    // Each interface has kept its own report.
    EXPECT_EQ(read(GetFeature, 1, 1).buffer[1], 0x81);
    EXPECT_EQ(read(GetFeature, 1, 0).buffer[1], 0x80);
}

TEST_F(OnePad, TakesShortFeatureReports) {
    const auto sent = report(10, 0x80);
    EXPECT_EQ(set_feature(1, 0, sent), 0);
    EXPECT_EQ(take_log(pad), (std::vector{feature_line("out", 0, payload(sent))}));

    const auto one_byte = read(GetFeature, 1, 0, 2);
    EXPECT_EQ(one_byte.result, 0);
    EXPECT_EQ(one_byte.reply, 2U);
    EXPECT_EQ(one_byte.buffer, (Bytes{0, 0x80}));
}

TEST_F(OnePad, TakesOutputReportsAsFeatureReports) {
    for (const unsigned int interface : {0U, 2U}) {
        const auto sent = report(65, 0x90);
        EXPECT_EQ(write_file(1, interface, sent), 0);
        EXPECT_EQ(take_log(pad), (std::vector{feature_line("out", interface, payload(sent))}));
    }
    EXPECT_EQ(write_file(1, 0, report(2, 0x90)), 0);
    EXPECT_EQ(take_log(pad), (std::vector{feature_line("out", 0, {0x90})}));
    EXPECT_EQ(state_of(pad, "outputs"), "0");

    EXPECT_EQ(failure(write_file(1, 0, report(66, 0x90))),
              invalid_parameter("WriteFile",
                                "Error of input parameters, const unsigned int src_length > max packet size + 1"));
    EXPECT_TRUE(take_log(pad).empty());
}

TEST_F(OnePad, HasNoInputReportWaiting) {
    for (const unsigned int interface : {0U, 1U, 2U}) {
        const auto answer = read(ReadFile, 1, interface);
        EXPECT_EQ(answer.result, 0);
        EXPECT_EQ(answer.reply, reply_untouched);
        EXPECT_EQ(answer.buffer, Bytes(65, untouched));
    }
}

TEST_F(OnePad, HandsOutInputReportsInOrder) {
    for (const auto* hex : {"01", "0202", "030303"}) {
        to_pad("input", pad, std::string("0 ") + hex);
    }
    for (const std::size_t i : {1U, 2U, 3U}) {
        Bytes sent(i, static_cast<unsigned char>(i));
        sent.resize(64);
        const auto answer = next_input(1, 0);
        EXPECT_EQ(answer.result, 0);
        EXPECT_EQ(answer.reply, 65U);
        EXPECT_EQ(answer.buffer, received(sent));
    }
    EXPECT_EQ(read(ReadFile, 1, 0).reply, reply_untouched);
}

TEST_F(OnePad, KeepsTheInputReportsOfItsInterfacesApart) {
    for (const unsigned int interface : {2U, 1U, 0U}) {
        to_pad("input", pad, std::to_string(interface) + " 1" + std::to_string(interface));
    }
    for (const unsigned int interface : {0U, 1U, 2U}) {
        EXPECT_EQ(next_input(1, interface).buffer[1], 0x10 + interface);
        EXPECT_EQ(read(ReadFile, 1, interface).reply, reply_untouched);
    }
}

TEST_F(OnePad, HandsOutTheBeginningOfAnInputReport) {
    to_pad("input", pad, "0 0102030405");
    const auto answer = next_input(1, 0, 4);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.reply, 4U);
    EXPECT_EQ(answer.buffer, (Bytes{0, 1, 2, 3}));
    EXPECT_EQ(read(ReadFile, 1, 0).reply, reply_untouched) << "the rest is gone";
}

TEST_F(OnePad, ClearsItsSignatureRectangle) {
    const auto zero = "0,0,0,0,0";
    const auto set_rectangle = [] {
        EXPECT_EQ(set_feature(1, 0, with_report_id(rectangle_command(1), 64)), 0);
        EXPECT_EQ(state_of(pad, "rectangle"), "1,2,3,4,5");
    };
    set_rectangle();
    Initialize();
    EXPECT_EQ(state_of(pad, "rectangle"), zero);
    set_rectangle();
    EXPECT_EQ(core_set_device_to_current(nullptr), 1) << "the only pad is made current again";
    EXPECT_EQ(state_of(pad, "rectangle"), zero);
    set_rectangle();
    Deinitialize();
    EXPECT_EQ(state_of(pad, "rectangle"), zero);
}

TEST_F(OnePad, StartsAfreshWithEachInitialize) {
    const Removals removals;
    EXPECT_EQ(GetVendorId(0, nullptr), 1);
    EXPECT_EQ(GetVendorId(0, nullptr), 2);
    Initialize();
    unsigned int code = 0;
    EXPECT_NE(GetExceptionCode(2, &code), 0) << "the records are gone";
    EXPECT_EQ(number_of([](auto* reply) { return GetEndPointCount(1, reply); }), 3U);
    EXPECT_EQ(set_feature(1, 2, report(65, 0x80)), 0);
}

// Wrong arguments

TEST_F(OnePad, KnowsNoOtherNumber) {
    for (const unsigned int device : {0U, 2U, 15U, 16U, 17U, 0x10001U, 0x7fffffffU, 0xffffffffU}) {
        for (const auto& [name, call, _] : device_calls()) {
            EXPECT_EQ(failure(call(device)), invalid_handle(name, "Error of switching to device: " +
                                                                      std::to_string(static_cast<int>(device))));
        }
    }
    EXPECT_TRUE(take_log(pad).empty());
    EXPECT_EQ(serial_number(1), u"SN00000042");
}

TEST_F(OnePad, HasNoFurtherInterfaces) {
    const Removals removals;
    // 3 is the interface behind the last one, 9 lies behind the table.
    for (const unsigned int interface : {3U, 4U, 8U, 9U, 10U, 0x80000000U, 0xffffffffU}) {
        EXPECT_EQ(failure(set_feature(1, interface, report(65, 0x80))),
                  invalid_handle("SetFeature", "Error of write HID feature for device: 1"));
        EXPECT_EQ(failure(write_file(1, interface, report(65, 0x80))),
                  invalid_handle("WriteFile", "Error of set HID output report for device: 1"));
        const auto feature = read(GetFeature, 1, interface);
        EXPECT_EQ(failure(feature.result), invalid_handle("GetFeature", "Error of read HID feature for device: 1"));
        EXPECT_EQ(feature.reply, reply_untouched);
        EXPECT_EQ(feature.buffer, Bytes(65, untouched));
        EXPECT_EQ(failure(read(ReadFile, 1, interface).result),
                  invalid_handle("ReadFile", "Error of read HID input report for device: 1"));
    }
    EXPECT_TRUE(take_log(pad).empty());
    EXPECT_EQ(set_feature(1, 2, report(65, 0x80)), 0);
}

TEST_F(OnePad, RefusesMissingBuffers) {
    const std::string null_reply = "Error of input parameters, unsigned int *reply is NULL";
    const std::string null_text = "Error of input parameters, char *res_text is NULL";
    unsigned int reply = reply_untouched;
    std::array<char16_t, 4> text{u'x', u'x', u'x', u'x'};
    std::array<unsigned char, 4> bytes{};

    EXPECT_EQ(failure(GetDeviceCount(nullptr)), invalid_parameter("GetDeviceCount", null_reply));
    EXPECT_EQ(failure(EnumerateDevicesStart(nullptr)), invalid_parameter("EnumerateDevicesStart", null_reply));
    EXPECT_EQ(failure(EnumerateDevicesNext(nullptr)), invalid_parameter("EnumerateDevicesNext", null_reply));
    EXPECT_EQ(failure(GetSerialNumber(1, nullptr, 4, &reply)), invalid_parameter("GetSerialNumber", null_text));
    EXPECT_EQ(failure(GetSerialNumber(1, text.data(), 4, nullptr)), invalid_parameter("GetSerialNumber", null_reply));
    EXPECT_EQ(failure(GetProductName(1, 0, nullptr, 4, &reply)), invalid_parameter("GetProductName", null_text));
    EXPECT_EQ(failure(GetProductName(1, 0, text.data(), 0, &reply)),
              invalid_parameter("GetProductName", "Error of input parameters, int res_text_size is 0"));
    EXPECT_EQ(failure(GetVendorName(1, text.data(), -1, &reply)),
              invalid_parameter("GetVendorName", "Error of input parameters, int res_text_size is -1"));
    EXPECT_EQ(failure(GetVendorName(1, nullptr, -1, nullptr)), invalid_parameter("GetVendorName", null_text));
    EXPECT_EQ(failure(GetProductId(1, 0, nullptr)), invalid_parameter("GetProductId", null_reply));
    EXPECT_EQ(failure(GetVendorId(1, nullptr)), invalid_parameter("GetVendorId", null_reply));
    EXPECT_EQ(failure(GetUsbVersion(1, nullptr)), invalid_parameter("GetUsbVersion", null_reply));
    EXPECT_EQ(failure(GetUsedTransportProtocol(1, nullptr)), invalid_parameter("GetUsedTransportProtocol", null_reply));
    EXPECT_EQ(failure(GetBytesToSend(1, nullptr)), invalid_parameter("GetBytesToSend", null_reply));
    EXPECT_EQ(failure(GetEndPointCount(1, nullptr)), invalid_parameter("GetEndPointCount", null_reply));
    EXPECT_EQ(failure(GetFeatureReportSize(1, 0, nullptr)), invalid_parameter("GetFeatureReportSize", null_reply));

    const std::string null_src = "Error of input parameters, const void *src is NULL";
    const std::string null_dst = "Error of input parameters, const void *dst is NULL";
    EXPECT_EQ(failure(SetFeature(1, 0, bytes.data(), 4, nullptr)), invalid_parameter("SetFeature", null_reply));
    EXPECT_EQ(failure(SetFeature(1, 0, nullptr, 4, &reply)), invalid_parameter("SetFeature", null_src));
    EXPECT_EQ(failure(GetFeature(1, 0, bytes.data(), 4, nullptr)), invalid_parameter("GetFeature", null_reply));
    EXPECT_EQ(failure(GetFeature(1, 0, nullptr, 4, &reply)), invalid_parameter("GetFeature", null_dst));
    EXPECT_EQ(failure(WriteFile(1, 0, bytes.data(), 4, nullptr)), invalid_parameter("WriteFile", null_reply));
    EXPECT_EQ(failure(WriteFile(1, 0, nullptr, 4, &reply)), invalid_parameter("WriteFile", null_src));
    EXPECT_EQ(failure(ReadFile(1, 0, bytes.data(), 4, nullptr)), invalid_parameter("ReadFile", null_reply));
    EXPECT_EQ(failure(ReadFile(1, 0, nullptr, 4, &reply)), invalid_parameter("ReadFile", null_dst));

    EXPECT_EQ(reply, reply_untouched);
    EXPECT_EQ(text[0], u'x');
    EXPECT_TRUE(take_log(pad).empty());
}

struct LengthCase {
    const char* function;
    unsigned int length;
    unsigned int code;
    const char* message;
};

void PrintTo(const LengthCase& wrong, std::ostream* stream) {
    *stream << wrong.function << " " << wrong.length;
}

class OnePadLength : public OnePad, public testing::WithParamInterface<LengthCase> {};

// Lengths that are refused before a byte is read from src or written to dst, however long they claim to be.
TEST_P(OnePadLength, IsRefused) {
    const auto& wrong = GetParam();
    const std::string function = wrong.function;
    Bytes buffer(66, untouched);
    unsigned int reply = reply_untouched;
    for (const unsigned int interface : {0U, 1U}) {
        const int result = function == "SetFeature"  ? SetFeature(1, interface, buffer.data(), wrong.length, &reply)
                           : function == "WriteFile" ? WriteFile(1, interface, buffer.data(), wrong.length, &reply)
                           : function == "ReadFile"  ? ReadFile(1, interface, buffer.data(), wrong.length, &reply)
                                                     : GetFeature(1, interface, buffer.data(), wrong.length, &reply);
        EXPECT_EQ(failure(result), (Failure{wrong.code, function, wrong.message}));
    }
    EXPECT_EQ(reply, reply_untouched);
    EXPECT_EQ(buffer, Bytes(66, untouched));
    EXPECT_TRUE(take_log(pad).empty());
    EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
}

constexpr const char* src_is_zero = "Error of input parameters, const unsigned int src_length is 0";
constexpr const char* src_too_long = "Error of input parameters, const unsigned int src_length > max packet size + 1";
constexpr const char* dst_too_long = "Error of input parameters, const unsigned int dst_length > max packet size + 1";
constexpr const char* feature_write = "Error of write HID feature for device: 1";
constexpr const char* feature_read = "Error of read HID feature for device: 1";

INSTANTIATE_TEST_SUITE_P(
    All, OnePadLength,
    testing::Values(
        LengthCase{"SetFeature", 0, 258, src_is_zero}, LengthCase{"SetFeature", 1, 257, feature_write},
        LengthCase{"SetFeature", 0x80000001, 257, feature_write},
        LengthCase{"SetFeature", 0xffffffff, 257, feature_write},
        LengthCase{"GetFeature", 0, 258, "Error of input parameters, const unsigned int dst_length is <= 1"},
        LengthCase{"GetFeature", 1, 258, "Error of input parameters, const unsigned int dst_length is <= 1"},
        LengthCase{"GetFeature", 0x80000001, 257, feature_read},
        LengthCase{"GetFeature", 0xffffffff, 257, feature_read}, LengthCase{"WriteFile", 0, 258, src_is_zero},
        LengthCase{"WriteFile", 1, 257, "Error of set HID output report for device: 1"},
        LengthCase{"WriteFile", 66, 258, src_too_long}, LengthCase{"WriteFile", 0xffffffff, 258, src_too_long},
        LengthCase{"ReadFile", 0, 258, "Error of input parameters, const unsigned int dst_length is 0"},
        LengthCase{"ReadFile", 1, 257, "Error of read HID input report for device: 1"},
        LengthCase{"ReadFile", 66, 258, dst_too_long}, LengthCase{"ReadFile", 0xffffffff, 258, dst_too_long}));

} // namespace
