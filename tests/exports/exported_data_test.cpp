// The library's exported data: sizes, first values, and that the library works on the objects that applications see.
#include "header_sizes.h"

#include "standins.hpp"
#include "usb_ids_file.hpp"
#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <iterator>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Pair = std::pair<std::uint32_t, std::uint32_t>;

std::vector<Pair> pairs_of(const vx_usb_id* list, std::size_t size) {
    std::vector<Pair> pairs;
    for (std::size_t i = 0; i < size && list[i].vendor_id != 0; ++i) {
        pairs.emplace_back(list[i].vendor_id, list[i].product_id);
    }
    return pairs;
}

TEST(IdTables, ConsistOfPairsOf32BitNumbers) {
    EXPECT_EQ(sizeof(vx_usb_id), 8U);
    EXPECT_EQ(sizeof hid_device_list, 55 * sizeof(vx_usb_id));
    EXPECT_EQ(sizeof vcom_device_list, 10 * sizeof(vx_usb_id));
}

TEST(IdTables, HoldDifferentPairsAndEndWithAZeroVendor) {
    const auto hid = pairs_of(hid_device_list, std::size(hid_device_list));
    EXPECT_EQ(hid.size(), 54U);
    EXPECT_EQ(std::set(hid.begin(), hid.end()).size(), 54U);
    EXPECT_EQ(hid_device_list[54].vendor_id, 0U);

    const auto vcom = pairs_of(vcom_device_list, std::size(vcom_device_list));
    EXPECT_EQ(vcom.size(), 9U);
    EXPECT_EQ(std::set(vcom.begin(), vcom.end()).size(), 9U);
    EXPECT_EQ(vcom_device_list[9].vendor_id, 0U);
}

TEST(IdTables, HoldFourVendorsOfThirteenProductsAndAFifthOfTwo) {
    const auto hid = pairs_of(hid_device_list, std::size(hid_device_list));
    ASSERT_EQ(hid.size(), 54U);
    std::vector<Pair> expected;
    for (const auto vendor : usb_ids::shared_vendors) {
        for (const auto& product : usb_ids::shared_products) {
            expected.emplace_back(vendor, product.product_id);
        }
    }
    for (const auto& product : usb_ids::classic_products) {
        expected.emplace_back(usb_ids::classic_vendor, product.product_id);
    }
    EXPECT_EQ(hid, expected);
}

class IdTableInUse : public testing::Test {
  protected:
    void SetUp() override {
        standins::bus().reset();
        standins::bus().plug(standins::pad_of_type(9));
    }
    void TearDown() override {
        std::copy(kept_.begin(), kept_.end(), std::begin(hid_device_list));
        Deinitialize();
    }

    std::array<vx_usb_id, 55> kept_ = std::to_array(hid_device_list);
};

TEST_F(IdTableInUse, IsTheOneThatApplicationsSee) {
    unsigned int reply = 0;
    Initialize();
    EXPECT_EQ(GetDeviceCount(&reply), 1);
    hid_device_list[0].vendor_id = 0; // an empty list
    Initialize();
    EXPECT_EQ(GetDeviceCount(&reply), 0);
}

TEST_F(IdTableInUse, OnlyLendsItsLow16BitsToTheSearch) {
    const vx_usb_id pad = hid_device_list[0];
    hid_device_list[0] = {0xABCD0000U | pad.vendor_id, 0x12340000U | pad.product_id};
    hid_device_list[1] = {0, 0};
    standins::bus().take_log();
    Initialize();
    EXPECT_THAT(standins::bus().log("hid_open_path"), testing::Contains("hid_open_path(1-1:1.0)"));
}

TEST(LibraryType, IsAWritablePointerToTheTypeText) {
    EXPECT_STREQ(lib_exception_type, "libvxpadcom");
}

TEST(UploadState, StartsAtRest) {
    EXPECT_EQ(interface_routine_count, 0);
    EXPECT_EQ(sizeof interface_routine_terminate, 1U);
}

TEST(UploadState, IsToldToEndByTheTearDown) {
    interface_routine_terminate = 0;
    Deinitialize();
    EXPECT_EQ(interface_routine_terminate, 1);
}

TEST(Daemon, StartsAsAnOrdinaryProgram) {
    EXPECT_EQ(daemon_proc, 0);
}

struct Exclusion {
    const char* name;
    pthread_mutex_t* mutex;
    void (*call)(); // what waits for the mutex
    friend std::ostream& operator<<(std::ostream& out, const Exclusion& one) { return out << one.name; }
};

class ExportedLock : public testing::TestWithParam<Exclusion> {};

TEST_P(ExportedLock, IsFreeAtRest) {
    EXPECT_EQ(pthread_mutex_trylock(GetParam().mutex), 0);
    EXPECT_EQ(pthread_mutex_unlock(GetParam().mutex), 0);
}

TEST_P(ExportedLock, HoldsTheLibraryUpWhileAnotherModuleHasIt) {
    ASSERT_EQ(pthread_mutex_lock(GetParam().mutex), 0);
    std::thread caller{GetParam().call};
    timespec soon{};
    clock_gettime(CLOCK_REALTIME, &soon);
    soon.tv_nsec += 20'000'000;
    soon.tv_sec += soon.tv_nsec / 1'000'000'000;
    soon.tv_nsec %= 1'000'000'000;
    EXPECT_EQ(pthread_timedjoin_np(caller.native_handle(), nullptr, &soon), ETIMEDOUT);
    EXPECT_EQ(pthread_mutex_unlock(GetParam().mutex), 0);
    caller.join();
}

INSTANTIATE_TEST_SUITE_P(
    Locks, ExportedLock,
    testing::Values(Exclusion{"gen_thread_mutex_lock", &gen_thread_mutex_lock, [] { Deinitialize(); }},
                    Exclusion{"dev_list_short_lock", &dev_list_short_lock, [] { IsInitialized(); }},
                    Exclusion{"exception_list_lock", &exception_list_lock,
                              [] {
                                  unsigned int code = 0;
                                  GetExceptionCode(1, &code);
                              }},
                    Exclusion{"print_wchar_to_asci_lock", &print_wchar_to_asci_lock,
                              [] { print_wchar_to_asci(u"text"); }}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST(UploadState, HasAFreeLock) {
    EXPECT_EQ(pthread_mutex_trylock(&interface_routine_count_lock), 0);
    EXPECT_EQ(pthread_mutex_unlock(&interface_routine_count_lock), 0);
}

TEST(Header, GivesTheSameSizesInBothLanguages) {
    const header_sizes c = header_sizes_in_c();
    const header_sizes cxx17 = header_sizes_in_cxx17();
    const header_sizes here = HEADER_SIZES;
    for (const header_sizes& other : {c, cxx17}) {
        EXPECT_EQ(other.frame, here.frame);
        EXPECT_EQ(other.queue, here.queue);
        EXPECT_EQ(other.device, here.device);
        EXPECT_EQ(other.registry, here.registry);
        EXPECT_EQ(other.version, here.version);
        EXPECT_EQ(other.status, here.status);
        EXPECT_EQ(other.text_unit, here.text_unit);
    }
    EXPECT_EQ(here.text_unit, 2U);
    EXPECT_EQ(here.status, 14U);
}

} // namespace
