// An application with functions of its own that are called like the library's (same_names.c) works all the same.
#include "pad_test.hpp"

using namespace pads;

namespace {

class SameNames : public InitializedPads {};

TEST_F(SameNames, DoNotDisturbAnyCall) {
    unsigned int reply = 0;
    EXPECT_EQ(GetDeviceCount(&reply), 1);
    EXPECT_EQ(number_of(EnumerateDevicesStart), 1U);
    for (const auto& [name, call, _] : device_calls()) {
        EXPECT_EQ(call(1), 0) << name;
    }
    EXPECT_EQ(read(GetFeature, 1, 1).result, 0);
    to_pad("input", 1, "1 07");
    EXPECT_EQ(next_input(1, 1).buffer[1], 7);
    EXPECT_EQ(text_of([](auto... rest) { return SayHello(u"abc", rest...); }), u"someText = \"abc\"");
}

TEST_F(SameNames, DoNotDisturbFailures) {
    Removals removals;
    EXPECT_EQ(failure(GetVendorId(0, nullptr)),
              invalid_parameter("GetVendorId", "Error of input parameters, unsigned int *reply is NULL"));
    to_pad("fault", 1, "stall,on=set-feature");
    EXPECT_EQ(failure(set_feature(1, 0, report(65, 0x80))),
              invalid_handle("SetFeature", "Error of write HID feature for device: 1"));
    to_pad("unplug", 1);
    EXPECT_NE(read(GetFeature, 1, 0).result, 0);
    EXPECT_EQ(removals.take(), std::vector<unsigned int>{1});
    heal();
    EXPECT_EQ(Initialize(), 0);
    EXPECT_EQ(serial_number(1), u"SN0001");
}

TEST_F(SameNames, DoNotDisturbTheTrace) {
    for (const auto* variable : {"LIBVXPADCOM_DEBUG", "LIBVXPADCOM_DEBUG_FUNC", "LIBVXPADCOM_DEBUG_MUTEX"}) {
        setenv(variable, "1", 1);
    }
    testing::internal::CaptureStdout();
    Initialize();
    EXPECT_EQ(set_feature(1, 1, report(65, 0x80)), 0);
    EXPECT_EQ(read(GetFeature, 1, 1).result, 0);
    Deinitialize();
    EXPECT_NE(testing::internal::GetCapturedStdout().find("FW info"), std::string::npos);
    for (const auto* variable : {"LIBVXPADCOM_DEBUG", "LIBVXPADCOM_DEBUG_FUNC", "LIBVXPADCOM_DEBUG_MUTEX"}) {
        unsetenv(variable);
    }
}

} // namespace
