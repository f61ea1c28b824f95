#include "api_test.hpp"
#include "vxpadcom/internals.h"

#include <cstdio>
#include <thread>

using api::Record;
using api::record_of;
using api::some_bytes;
using api::some_number;
using api::some_text;
using standins::bus;
using standins::LogCapture;
using testing::IsEmpty;

namespace {

struct Operation {
    const char* name;
    int (*call)(unsigned int interface);
    const char* failure; // message of a pad that is known to be removed; nullptr: it does not ask the core
    friend std::ostream& operator<<(std::ostream& out, const Operation& one) { return out << one.name; }
};

constexpr const char* no_size = "Error of getting max packet size of hid interfaces for device: 1";

const Operation operations[] = {
    {"GetSerialNumber", [](unsigned int) { return GetSerialNumber(1, some_text, 64, &some_number); },
     "Error of getting serial number for device: 1"},
    {"GetProductName", [](unsigned int interface) { return GetProductName(1, interface, some_text, 64, &some_number); },
     "Error of getting device's name for device: 1"},
    {"GetVendorName", [](unsigned int) { return GetVendorName(1, some_text, 64, &some_number); },
     "Error of getting device's manufacturer for device: 1"},
    {"GetProductId", [](unsigned int interface) { return GetProductId(1, interface, &some_number); },
     "Error of getting product ID for device: 1"},
    {"GetVendorId", [](unsigned int) { return GetVendorId(1, &some_number); },
     "Error of getting vendor ID for device: 1"},
    {"GetUsbVersion", [](unsigned int) { return GetUsbVersion(1, &some_number); },
     "Error of getting bcdDevice for device: 1"},
    {"GetEndPointCount", [](unsigned int) { return GetEndPointCount(1, &some_number); },
     "Error of getting count of hid interfaces for device: 1"},
    {"GetFeatureReportSize", [](unsigned int interface) { return GetFeatureReportSize(1, interface, &some_number); },
     no_size},
    {"SetFeature", [](unsigned int interface) { return SetFeature(1, interface, some_bytes, 65, &some_number); },
     no_size},
    {"GetFeature", [](unsigned int interface) { return GetFeature(1, interface, some_bytes, 65, &some_number); },
     no_size},
    {"WriteFile", [](unsigned int interface) { return WriteFile(1, interface, some_bytes, 65, &some_number); },
     no_size},
    {"ReadFile", [](unsigned int interface) { return ReadFile(1, interface, some_bytes, 65, &some_number); }, no_size},
    {"GetUsedTransportProtocol", [](unsigned int) { return GetUsedTransportProtocol(1, &some_number); }, nullptr},
    {"SetUsedTransportProtocol", [](unsigned int) { return SetUsedTransportProtocol(1, 1); }, nullptr},
    {"GetBytesToSend", [](unsigned int) { return GetBytesToSend(1, &some_number); }, nullptr},
};

struct Notice {
    const void* user_specific;
    unsigned int device;
    std::thread::id thread;
};

class Removal : public api::TwoPads {
  protected:
    void SetUp() override {
        TwoPads::SetUp();
        notices.clear();
        EXPECT_EQ(SetOnDeviceRemovedHandler(notice, &mark_), 0);
    }

    static void notice(void* user_specific, unsigned int device) {
        notices.push_back({user_specific, device, std::this_thread::get_id()});
    }

    void pull_out_first() {
        bus().unplug(*first_);
        bus().unplug(*further_);
    }

    // The pad is gone and an operation has found out.
    void find_out() {
        pull_out_first();
        EXPECT_NE(GetFeature(1, 0, some_bytes, 65, &reply_), 0);
        notices.clear();
        bus().take_log();
    }

    void expect_one_notice(unsigned int device = 1) {
        ASSERT_EQ(notices.size(), 1U);
        EXPECT_EQ(notices.front().user_specific, &mark_);
        EXPECT_EQ(notices.front().device, device);
        EXPECT_EQ(notices.front().thread, std::this_thread::get_id());
        notices.clear();
    }

    static std::vector<Notice> notices;
    int mark_ = 0;
};
std::vector<Notice> Removal::notices;

struct Discovery {
    const char* name;
    int (*call)(unsigned int interface);
    const char* failure;
    friend std::ostream& operator<<(std::ostream& out, const Discovery& one) { return out << one.name; }
};

class RemovalDiscovery : public Removal, public testing::WithParamInterface<Discovery> {};

TEST_P(RemovalDiscovery, IsReportedOnceBeforeTheTransferReturns) {
    pull_out_first();
    some_number = api::preset;
    std::fill(std::begin(some_bytes), std::end(some_bytes), static_cast<unsigned char>(7));
    const int handle = GetParam().call(0);
    ASSERT_NE(handle, 0);
    expect_one_notice();
    EXPECT_EQ(some_number, api::preset);
    EXPECT_TRUE(
        std::all_of(std::begin(some_bytes), std::end(some_bytes), [](unsigned char byte) { return byte == 7; }));
    EXPECT_EQ(record_of(handle), (Record{257, GetParam().name, GetParam().failure}));
}

TEST_P(RemovalDiscovery, OnAFurtherInterfaceIsReportedForThatTransferFirst) {
    EXPECT_EQ(GetParam().call(1), 0);
    bus().unplug(*further_);
    EXPECT_EQ(record_of(GetParam().call(1)), (Record{257, GetParam().name, GetParam().failure}));
    expect_one_notice();
    EXPECT_EQ(GetParam().call(0), 0) << "the pad itself is still there";
    EXPECT_EQ(record_of(GetParam().call(1)), (Record{257, GetParam().name, GetParam().failure}));
    expect_one_notice(); // the interface cannot be opened
    EXPECT_NE(GetVendorId(1, &reply_), 0) << "so the pad has gone";
    expect_one_notice();
}

TEST_P(RemovalDiscovery, WithoutAHandlerOnlyFails) {
    SetOnDeviceRemovedHandler(nullptr, &mark_);
    pull_out_first();
    EXPECT_EQ(record_of(GetParam().call(0)), (Record{257, GetParam().name, GetParam().failure}));
    EXPECT_THAT(notices, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Functions, RemovalDiscovery,
    testing::Values(
        Discovery{"SetFeature",
                  [](unsigned int interface) { return SetFeature(1, interface, some_bytes, 65, &some_number); },
                  "Error of write HID feature for device: 1"},
        Discovery{"GetFeature",
                  [](unsigned int interface) { return GetFeature(1, interface, some_bytes, 65, &some_number); },
                  "Error of read HID feature for device: 1"},
        Discovery{"WriteFile",
                  [](unsigned int interface) { return WriteFile(1, interface, some_bytes, 65, &some_number); },
                  "Error of set HID output report for device: 1"},
        Discovery{"ReadFile",
                  [](unsigned int interface) { return ReadFile(1, interface, some_bytes, 65, &some_number); },
                  "Error of read HID input report for device: 1"}),
    [](const auto& tested) { return std::string(tested.param.name); });

class RemovedPad : public Removal, public testing::WithParamInterface<Operation> {};

TEST_P(RemovedPad, FailsEveryOperationWithOneNoticeEach) {
    find_out();
    for (const unsigned int interface : {0U, 1U, 7U, 8U, 9U, 0xFFFFFFFFU}) {
        some_number = api::preset;
        const int result = GetParam().call(interface);
        if (GetParam().failure == nullptr) {
            EXPECT_EQ(result, 0);
            EXPECT_THAT(notices, IsEmpty());
            continue;
        }
        ASSERT_NE(result, 0);
        expect_one_notice();
        EXPECT_EQ(some_number, api::preset);
        EXPECT_EQ(record_of(result), (Record{257, GetParam().name, GetParam().failure}));
    }
    EXPECT_THAT(bus().log(), IsEmpty()) << "a removed pad is not asked again";
}

INSTANTIATE_TEST_SUITE_P(Operations, RemovedPad, testing::ValuesIn(operations),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(Removal, IsLoggedWithTheCoresFunction) {
    find_out();
    const LogCapture log;
    for (const Operation& operation : operations) {
        operation.call(0);
    }
    for (const char* function : {"core_get_serial_number(char *)", "core_get_pad_product_id()", "core_get_vendor_id()",
                                 "core_get_pad_bcd_device()", "core_get_count_of_hid_interfaces()"}) {
        EXPECT_EQ(log.count(std::string("Error, function ") + function + " return -20"), 1) << function;
    }
}

TEST_F(Removal, LastsUntilTheNextInitialize) {
    find_out();
    bus().plug_again(*first_);
    bus().plug_again(*further_);
    EXPECT_NE(GetVendorId(1, &reply_), 0);
    EXPECT_NE(GetFeature(1, 0, some_bytes, 65, &reply_), 0);
    EXPECT_EQ(Initialize(), 0);
    EXPECT_EQ(GetVendorId(1, &reply_), 0);
    EXPECT_EQ(GetFeature(1, 0, some_bytes, 65, &reply_), 0);
    EXPECT_EQ(GetFeature(1, 1, some_bytes, 65, &reply_), 0);
}

TEST_F(Removal, LeavesTheOtherPadInUse) {
    find_out();
    EXPECT_EQ(GetFeature(2, 0, some_bytes, 65, &reply_), 0);
    EXPECT_EQ(GetVendorId(2, &reply_), 0);
    EXPECT_THAT(notices, IsEmpty());
}

TEST_F(Removal, OfAPadThatIsSelectedAgainFailsTheSelectionWithOneNotice) {
    find_out();
    ASSERT_EQ(GetVendorId(2, &reply_), 0);
    EXPECT_EQ(record_of(GetVendorId(1, &reply_)), (Record{257, "GetVendorId", "Error of switching to device: 1"}));
    expect_one_notice();
}

TEST_F(Removal, IsReportedByAnEnumerationThatMeetsThePad) {
    find_out();
    ASSERT_EQ(GetVendorId(2, &reply_), 0);
    notices.clear();
    EXPECT_EQ(EnumerateDevicesStart(&reply_), 0);
    EXPECT_EQ(reply_, 0U);
    expect_one_notice();
    EXPECT_EQ(GetDeviceCount(&reply_), 2) << "the list keeps its numbers";
}

TEST_F(Removal, LeavesNothingToTheStop) {
    find_out();
    EXPECT_EQ(Deinitialize(), 0);
    EXPECT_EQ(bus().open_handles(), 0);
}

TEST_F(Removal, OfAllPadsLeavesAnEmptyListAfterInitialize) {
    find_out();
    bus().unplug(*second_);
    EXPECT_EQ(Initialize(), 0);
    EXPECT_EQ(GetDeviceCount(&reply_), 0);
}

TEST_F(Removal, IsReportedToTheHandlerSetLast) {
    static unsigned int seen = 0;
    seen = 0;
    find_out();
    EXPECT_EQ(SetOnDeviceRemovedHandler([](void*, unsigned int device) { seen = device; }, nullptr), 0);
    GetVendorId(1, &reply_);
    EXPECT_EQ(seen, 1U);
    EXPECT_THAT(notices, IsEmpty());
}

TEST_F(Removal, MayBeLoggedFromTheHandler) {
    // The handler reads records and calls the library: no lock is held while it runs.
    static int codes = 0;
    codes = 0;
    find_out();
    SetOnDeviceRemovedHandler(
        [](void*, unsigned int device) {
            unsigned int value = 0;
            EXPECT_EQ(GetDeviceCount(&value), 2);
            EXPECT_EQ(GetVendorId(device == 1 ? 2 : 1, &value), 0);
            codes += GetExceptionCode(1, &value) == 0 ? 1 : 0;
        },
        nullptr);
    EXPECT_NE(GetVendorId(1, &reply_), 0);
    EXPECT_EQ(codes, 1);
}

class CatchRemoving : public Removal {};

TEST_F(CatchRemoving, ReactsToItsCodeOnly) {
    for (const int code : {0, 1, -1, -2, -4, -7, -19, -21, 20, 258}) {
        catch_removing_device(code, 1, 0);
    }
    EXPECT_THAT(notices, IsEmpty());
    catch_removing_device(-20, 1, 0);
    expect_one_notice();
}

TEST_F(CatchRemoving, PassesEveryNumberOnAndIndexesNothingWithIt) {
    for (const unsigned int device : {0U, 1U, 15U, 16U, 17U, 0x80000000U, 0xFFFFFFFFU}) {
        for (const unsigned int interface : {0U, 7U, 8U, 9U, 0x80000000U, 0xFFFFFFFFU}) {
            catch_removing_device(-20, device, interface);
            expect_one_notice(device);
        }
    }
}

TEST_F(CatchRemoving, WorksBeforeTheStart) {
    Deinitialize();
    SetOnDeviceRemovedHandler(notice, &mark_);
    catch_removing_device(-20, 3, 0);
    expect_one_notice(3);
}

TEST_F(CatchRemoving, WithoutAHandlerDoesNothing) {
    SetOnDeviceRemovedHandler(nullptr, nullptr);
    catch_removing_device(-20, 1, 0);
    EXPECT_THAT(notices, IsEmpty());
}

TEST_F(CatchRemoving, IsNoBusinessOfTheArrivalHandler) {
    static int arrivals = 0;
    arrivals = 0;
    EXPECT_EQ(SetOnDeviceArrivedHandler([](void*, unsigned int) { ++arrivals; }, nullptr), 0);
    catch_removing_device(-20, 1, 0);
    EXPECT_EQ(arrivals, 0);
    expect_one_notice();
}

TEST(DeviceEvents, SettingAHandlerIsLogged) {
    Deinitialize();
    const LogCapture log;
    int mark = 0;
    const vxpad_device_callback handler = [](void*, unsigned int) {};
    EXPECT_EQ(SetOnDeviceRemovedHandler(handler, &mark), 0);
    std::array<char, 200> expected{};
    std::snprintf(expected.data(), expected.size(),
                  "Pointer %p with user_specific %p was set like callback for catch of removing device",
                  reinterpret_cast<void*>(handler), static_cast<void*>(&mark));
    EXPECT_EQ(log.count(expected.data()), 1);
    Deinitialize();
}

TEST(DeviceEvents, WhatIsNotImplementedSaysSoAndSucceeds) {
    Deinitialize();
    const LogCapture log;
    EXPECT_EQ(SetOnDeviceArrivedHandler(nullptr, nullptr), 0);
    EXPECT_EQ(TriggerOnDeviceArrivedEvents(), 0);
    standins::OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(LogDeviceStatistics(17), 0);
    EXPECT_THAT(errors.text(), testing::HasSubstr("Function LogDeviceStatistics() not implemented yet."));
    for (const char* name : {"SetOnDeviceArrivedHandler", "TriggerOnDeviceArrivedEvents", "LogDeviceStatistics"}) {
        EXPECT_EQ(log.count(std::string("Function ") + name + "() not implemented yet."), 1) << name;
    }
}

} // namespace
