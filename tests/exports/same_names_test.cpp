// This program has a function of every name that the library exports. The library must never call one of them.
#include "standins.hpp"
#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" void vxpad_called_by_the_library(const char* name) {
    std::fprintf(stderr, "the library called the application's %s()\n", name);
    std::abort();
}

namespace {

void* address_in_library(const char* name) {
    void* const library = dlopen(LIBRARY_FILE, RTLD_NOW | RTLD_NOLOAD);
    void* const address = library == nullptr ? nullptr : dlsym(library, name);
    if (address == nullptr) {
        std::fprintf(stderr, "%s: %s\n", name, dlerror());
        std::abort();
    }
    return address;
}

// The library's function, not this program's.
#define LIBRARY(name) reinterpret_cast<decltype(&name)>(address_in_library(#name))

class SameNames : public testing::Test {
  protected:
    void SetUp() override {
        standins::bus().reset();
        pad_ = &standins::bus().plug(standins::pad_of_type(9));
        further_ = &standins::bus().plug(standins::pad_of_type(9, "1-1:1.1", 1));
        standins::bus().plug(standins::pad_of_type(1, "1-2:1.0", 0, L"SN0002"));
        // Trace points call much of what the library has.
        for (const char* name : {"LIBVXPADCOM_DEBUG", "LIBVXPADCOM_DEBUG_FUNC", "LIBVXPADCOM_DEBUG_MUTEX"}) {
            setenv(name, "1", 1);
        }
        testing::internal::CaptureStdout();
        LIBRARY(Initialize)();
    }
    void TearDown() override {
        LIBRARY(Deinitialize)();
        testing::internal::GetCapturedStdout();
    }

    standins::HidInterface* pad_ = nullptr;
    standins::HidInterface* further_ = nullptr;
    unsigned int reply_ = 0;
    std::array<char16_t, 256> text_{};
    std::array<unsigned char, 65> report_{};
};

TEST_F(SameNames, DoNotDisturbSearchAndQueries) {
    EXPECT_EQ(LIBRARY(GetDeviceCount)(&reply_), 2);
    EXPECT_EQ(LIBRARY(EnumerateDevicesStart)(&reply_), 0);
    EXPECT_EQ(reply_, 1U);
    EXPECT_EQ(LIBRARY(EnumerateDevicesNext)(&reply_), 0);
    EXPECT_EQ(reply_, 2U);
    EXPECT_EQ(LIBRARY(GetSerialNumber)(2, text_.data(), 256, &reply_), 0);
    EXPECT_EQ(LIBRARY(GetProductName)(2, 0, text_.data(), 256, &reply_), 0);
    EXPECT_EQ(LIBRARY(GetVendorName)(2, text_.data(), 256, &reply_), 0);
    for (auto* query : {LIBRARY(GetVendorId), LIBRARY(GetUsbVersion), LIBRARY(GetBytesToSend),
                        LIBRARY(GetEndPointCount), LIBRARY(GetUsedTransportProtocol)}) {
        EXPECT_EQ(query(2, &reply_), 0);
    }
    EXPECT_EQ(LIBRARY(GetProductId)(1, 0, &reply_), 0);
    EXPECT_EQ(LIBRARY(GetFeatureReportSize)(1, 0, &reply_), 0);
    EXPECT_EQ(LIBRARY(SetUsedTransportProtocol)(1, 1), 0);
    EXPECT_EQ(LIBRARY(SayHello)(u"text", text_.data(), 256, &reply_), 0);
}

TEST_F(SameNames, DoNotDisturbReports) {
    for (const unsigned int interface : {0U, 1U}) {
        EXPECT_EQ(LIBRARY(SetFeature)(1, interface, report_.data(), 65, &reply_), 0);
        EXPECT_EQ(LIBRARY(GetFeature)(1, interface, report_.data(), 65, &reply_), 0);
        EXPECT_EQ(LIBRARY(WriteFile)(1, interface, report_.data(), 65, &reply_), 0);
        EXPECT_EQ(LIBRARY(ReadFile)(1, interface, report_.data(), 65, &reply_), 0);
    }
}

TEST_F(SameNames, DoNotDisturbFailures) {
    testing::internal::CaptureStderr();
    LIBRARY(SetOnDeviceRemovedHandler)([](void*, unsigned int) {}, nullptr);
    LIBRARY(RegisterLoggingCallBackProcedure)(reinterpret_cast<void*>(+[](void*, const char16_t*) {}), nullptr);
    EXPECT_NE(LIBRARY(GetDeviceCount)(nullptr), 0);
    EXPECT_NE(LIBRARY(GetVendorId)(17, &reply_), 0);
    EXPECT_EQ(LIBRARY(GetExceptionCode)(1, &reply_), 0);
    EXPECT_EQ(LIBRARY(GetExceptionType)(1, text_.data(), 256, &reply_), 0);
    EXPECT_EQ(LIBRARY(GetExceptionName)(1, text_.data(), 256, &reply_), 0);
    EXPECT_EQ(LIBRARY(GetExceptionMessage)(1, text_.data(), 256, &reply_), 0);
    EXPECT_EQ(LIBRARY(TranslateErrorCode)(258, text_.data(), 256, &reply_), 0);
    EXPECT_NE(LIBRARY(TranslateErrorCode)(258, nullptr, 256, &reply_), 0);
    standins::bus().unplug(*pad_);
    standins::bus().unplug(*further_);
    EXPECT_NE(LIBRARY(GetFeature)(1, 0, report_.data(), 65, &reply_), 0);
    EXPECT_NE(LIBRARY(GetVendorId)(1, &reply_), 0);
    EXPECT_EQ(LIBRARY(LogDeviceStatistics)(1), 0);
    EXPECT_EQ(LIBRARY(SetOnDeviceArrivedHandler)(nullptr, nullptr), 0);
    EXPECT_EQ(LIBRARY(TriggerOnDeviceArrivedEvents)(), 0);
    EXPECT_EQ(LIBRARY(hid_open_dev)(nullptr), nullptr);
    testing::internal::GetCapturedStderr();
}

TEST_F(SameNames, DoNotDisturbASecondSearch) {
    LIBRARY(Deinitialize)();
    EXPECT_EQ(LIBRARY(EnumerateDevicesStart)(&reply_), 0);
    EXPECT_EQ(reply_, 1U);
}

TEST_F(SameNames, DoNotDisturbCommandsAndSupport) {
    std::array<char, 256> settings{};
    EXPECT_GT(LIBRARY(core_get_pad_settings)(settings.data()), 0);
    EXPECT_EQ(LIBRARY(core_set_device_to_current)(nullptr), 0);
    EXPECT_EQ(LIBRARY(__core_reopen_devs)(), 1);
    EXPECT_EQ(LIBRARY(core_enable_ssp_biodata_sending)(), 0);
    EXPECT_EQ(LIBRARY(core_disable_ssp_biodata_sending)(), 0);

    uni_queue* const queue = LIBRARY(init_uni_queue)();
    EXPECT_EQ(LIBRARY(add_uni_frame)(queue, std::malloc(5), 5), 1);
    EXPECT_EQ(LIBRARY(__lock_uni_queue)(queue), 0);
    EXPECT_EQ(LIBRARY(quiet_unlock_queue)(queue), 0);
    LIBRARY(destroy_uni_queue)(queue);

    const std::string name = testing::TempDir() + "vxpad-same-names-" + std::to_string(getpid());
    EXPECT_EQ(LIBRARY(save_file)(name.c_str(), "text", 4), 4);
    std::free(LIBRARY(load_file)(name.c_str(), &reply_));
    EXPECT_EQ(reply_, 4U);
    unlink(name.c_str());

    const std::vector<unsigned char> bytes(8);
    EXPECT_STREQ(LIBRARY(print_bytes)(bytes.data(), 2), "[ 00 00 ]");
    EXPECT_STREQ(LIBRARY(print_bits)(1), "00000001");
    EXPECT_STREQ(LIBRARY(print_wchar_to_asci)(u"text"), "text");
    LIBRARY(print_current_time)();
}

} // namespace
