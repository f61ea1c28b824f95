#include "api_test.hpp"

#include <climits>

using api::Record;
using api::record_of;
using api::some_bytes;
using api::some_number;
using api::some_text;

namespace {

constexpr unsigned int no_such_device = 99; // arguments are checked before the device is selected

struct BadCall {
    const char* function;
    int (*call)();
    const char* message;
    int code = VXPCEC_INVALID_PARAMETER;
    friend std::ostream& operator<<(std::ostream& out, const BadCall& one) {
        return out << one.function << ": " << one.message;
    }
};

constexpr const char* no_text = "Error of input parameters, char *text is NULL";
constexpr const char* no_result = "Error of input parameters, char *res_text is NULL";
constexpr const char* size_0 = "Error of input parameters, int res_text_size is 0";
constexpr const char* size_negative = "Error of input parameters, int res_text_size is -1";
constexpr const char* size_lowest = "Error of input parameters, int res_text_size is -2147483648";
constexpr const char* no_reply = "Error of input parameters, unsigned int *reply is NULL";
constexpr const char* no_source = "Error of input parameters, const void *src is NULL";
constexpr const char* no_destination = "Error of input parameters, const void *dst is NULL";
constexpr const char* source_empty = "Error of input parameters, const unsigned int src_length is 0";
constexpr const char* destination_empty = "Error of input parameters, const unsigned int dst_length is 0";
constexpr const char* destination_short = "Error of input parameters, const unsigned int dst_length is <= 1";

// Where several arguments are bad, the first in the order of the checks is the one that is named.
const BadCall bad_calls[] = {
    {"TranslateErrorCode", [] { return TranslateErrorCode(0, nullptr, 0, nullptr); }, no_result, VXPCEC_UNKNOWN},
    {"TranslateErrorCode", [] { return TranslateErrorCode(0, some_text, 0, nullptr); }, size_0, VXPCEC_UNKNOWN},
    {"TranslateErrorCode", [] { return TranslateErrorCode(0, some_text, -1, &some_number); }, size_negative,
     VXPCEC_UNKNOWN},
    {"TranslateErrorCode", [] { return TranslateErrorCode(0, some_text, 8, nullptr); }, no_reply, VXPCEC_UNKNOWN},

    {"GetExceptionType", [] { return GetExceptionType(1, nullptr, 0, nullptr); }, no_result, VXPCEC_UNKNOWN},
    {"GetExceptionType", [] { return GetExceptionType(1, some_text, INT_MIN, nullptr); }, size_lowest, VXPCEC_UNKNOWN},
    {"GetExceptionType", [] { return GetExceptionType(1, some_text, 8, nullptr); }, no_reply, VXPCEC_UNKNOWN},
    {"GetExceptionName", [] { return GetExceptionName(1, nullptr, 0, nullptr); }, no_result, VXPCEC_UNKNOWN},
    {"GetExceptionName", [] { return GetExceptionName(1, some_text, -1, nullptr); }, size_negative, VXPCEC_UNKNOWN},
    {"GetExceptionName", [] { return GetExceptionName(1, some_text, 8, nullptr); }, no_reply, VXPCEC_UNKNOWN},
    {"GetExceptionMessage", [] { return GetExceptionMessage(1, nullptr, 0, nullptr); }, no_result, VXPCEC_UNKNOWN},
    {"GetExceptionMessage", [] { return GetExceptionMessage(1, some_text, 0, nullptr); }, size_0, VXPCEC_UNKNOWN},
    {"GetExceptionMessage", [] { return GetExceptionMessage(1, some_text, 8, nullptr); }, no_reply, VXPCEC_UNKNOWN},
    {"GetExceptionCode", [] { return GetExceptionCode(1, nullptr); }, no_reply, VXPCEC_UNKNOWN},

    {"SayHello", [] { return SayHello(nullptr, nullptr, 0, nullptr); }, no_text},
    {"SayHello", [] { return SayHello(u"x", nullptr, 0, nullptr); }, no_result},
    {"SayHello", [] { return SayHello(u"x", some_text, 0, nullptr); }, size_0},
    {"SayHello", [] { return SayHello(u"x", some_text, -1, &some_number); }, size_negative},
    {"SayHello", [] { return SayHello(u"x", some_text, 8, nullptr); }, no_reply},
    {"GetDeviceCount", [] { return GetDeviceCount(nullptr); }, no_reply},
    {"EnumerateDevicesStart", [] { return EnumerateDevicesStart(nullptr); }, no_reply},
    {"EnumerateDevicesNext", [] { return EnumerateDevicesNext(nullptr); }, no_reply},

    {"GetSerialNumber", [] { return GetSerialNumber(no_such_device, nullptr, 0, nullptr); }, no_result},
    {"GetSerialNumber", [] { return GetSerialNumber(no_such_device, some_text, 0, nullptr); }, size_0},
    {"GetSerialNumber", [] { return GetSerialNumber(no_such_device, some_text, INT_MIN, &some_number); }, size_lowest},
    {"GetSerialNumber", [] { return GetSerialNumber(no_such_device, some_text, 8, nullptr); }, no_reply},
    {"GetProductName", [] { return GetProductName(no_such_device, 0, nullptr, 0, nullptr); }, no_result},
    {"GetProductName", [] { return GetProductName(no_such_device, 0, some_text, -1, nullptr); }, size_negative},
    {"GetProductName", [] { return GetProductName(no_such_device, 0, some_text, 8, nullptr); }, no_reply},
    {"GetVendorName", [] { return GetVendorName(no_such_device, nullptr, 0, nullptr); }, no_result},
    {"GetVendorName", [] { return GetVendorName(no_such_device, some_text, 0, nullptr); }, size_0},
    {"GetVendorName", [] { return GetVendorName(no_such_device, some_text, 8, nullptr); }, no_reply},
    {"GetProductId", [] { return GetProductId(no_such_device, 0, nullptr); }, no_reply},
    {"GetVendorId", [] { return GetVendorId(no_such_device, nullptr); }, no_reply},
    {"GetUsbVersion", [] { return GetUsbVersion(no_such_device, nullptr); }, no_reply},
    {"GetUsedTransportProtocol", [] { return GetUsedTransportProtocol(no_such_device, nullptr); }, no_reply},
    {"GetBytesToSend", [] { return GetBytesToSend(no_such_device, nullptr); }, no_reply},
    {"GetEndPointCount", [] { return GetEndPointCount(no_such_device, nullptr); }, no_reply},
    {"GetFeatureReportSize", [] { return GetFeatureReportSize(no_such_device, 0, nullptr); }, no_reply},

    {"SetFeature", [] { return SetFeature(no_such_device, 0, nullptr, 0, nullptr); }, no_reply},
    {"SetFeature", [] { return SetFeature(no_such_device, 0, nullptr, 0, &some_number); }, no_source},
    {"SetFeature", [] { return SetFeature(no_such_device, 0, some_bytes, 0, &some_number); }, source_empty},
    {"GetFeature", [] { return GetFeature(no_such_device, 0, nullptr, 0, nullptr); }, no_reply},
    {"GetFeature", [] { return GetFeature(no_such_device, 0, nullptr, 0, &some_number); }, no_destination},
    {"GetFeature", [] { return GetFeature(no_such_device, 0, some_bytes, 0, &some_number); }, destination_short},
    {"GetFeature", [] { return GetFeature(no_such_device, 0, some_bytes, 1, &some_number); }, destination_short},
    {"WriteFile", [] { return WriteFile(no_such_device, 0, nullptr, 0, nullptr); }, no_reply},
    {"WriteFile", [] { return WriteFile(no_such_device, 0, nullptr, 0, &some_number); }, no_source},
    {"WriteFile", [] { return WriteFile(no_such_device, 0, some_bytes, 0, &some_number); }, source_empty},
    {"ReadFile", [] { return ReadFile(no_such_device, 0, nullptr, 0, nullptr); }, no_reply},
    {"ReadFile", [] { return ReadFile(no_such_device, 0, nullptr, 0, &some_number); }, no_destination},
    {"ReadFile", [] { return ReadFile(no_such_device, 0, some_bytes, 0, &some_number); }, destination_empty},
};

class BadArgument : public api::TwoPads, public testing::WithParamInterface<BadCall> {};

TEST_P(BadArgument, IsFiledUnderTheFunctionsNameAndTouchesNothing) {
    GetDeviceCount(nullptr); // a record to read, for the functions that read one
    std::fill(std::begin(some_text), std::end(some_text), u'x');
    std::fill(std::begin(some_bytes), std::end(some_bytes), static_cast<unsigned char>(7));
    some_number = api::preset;

    const int handle = GetParam().call();
    ASSERT_EQ(handle, 2);
    EXPECT_EQ(some_number, api::preset);
    EXPECT_TRUE(std::all_of(std::begin(some_text), std::end(some_text), [](char16_t unit) { return unit == u'x'; }));
    EXPECT_TRUE(
        std::all_of(std::begin(some_bytes), std::end(some_bytes), [](unsigned char byte) { return byte == 7; }));
    EXPECT_THAT(standins::bus().log(), testing::IsEmpty());
    EXPECT_EQ(record_of(handle), (Record{GetParam().code, GetParam().function, GetParam().message}));
}

INSTANTIATE_TEST_SUITE_P(Functions, BadArgument, testing::ValuesIn(bad_calls), [](const auto& tested) {
    return std::string(tested.param.function) + std::to_string(tested.index);
});

} // namespace
