#include "api_test.hpp"
#include "vxpadcom/internals.h"

using api::GuardedText;
using standins::bus;
using standins::LogCapture;
using standins::pad_of_type;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class Lifecycle : public api::Test {
  protected:
    static int count() {
        unsigned int untouched = api::preset;
        const int result = GetDeviceCount(&untouched);
        EXPECT_EQ(untouched, api::preset);
        return result;
    }

    // A pad for each number from 1, all of one model.
    static void plug(int pads) {
        for (int pad = 1; pad <= pads; ++pad) {
            bus().plug(pad_of_type(9, "1-" + std::to_string(pad) + ":1.0", 0, L"SN" + std::to_wstring(pad)));
        }
    }
};

TEST_F(Lifecycle, IsInitializedBetweenStartAndStop) {
    EXPECT_FALSE(IsInitialized());
    EXPECT_EQ(Initialize(), 0);
    EXPECT_TRUE(IsInitialized());
    EXPECT_EQ(Deinitialize(), 0);
    EXPECT_FALSE(IsInitialized());
}

TEST_F(Lifecycle, IsInitializedSaysSo) {
    Initialize();
    const LogCapture log;
    IsInitialized();
    EXPECT_EQ(log.count("info: IsInitialized(): Was initialized\n"), 1);
}

TEST_F(Lifecycle, StoppingTwiceOrBeforeStartingIsHarmless) {
    EXPECT_EQ(Deinitialize(), 0);
    plug(1);
    Initialize();
    EXPECT_EQ(Deinitialize(), 0);
    EXPECT_EQ(bus().open_handles(), 0);
    EXPECT_EQ(Deinitialize(), 0);
}

TEST_F(Lifecycle, TheCountIsTheResult) {
    EXPECT_EQ(count(), 0) << "before the start";
    plug(3);
    Initialize();
    EXPECT_EQ(count(), 3);
    Deinitialize();
    EXPECT_EQ(count(), 0);
}

TEST_F(Lifecycle, StartingWithoutPadsSucceeds) {
    EXPECT_EQ(Initialize(), 0);
    EXPECT_TRUE(IsInitialized());
    EXPECT_EQ(count(), 0);
}

TEST_F(Lifecycle, StartingSucceedsThoughNothingWorks) {
    bus().libusb_init_result = -99;
    plug(2);
    bus().hooks.open_path = standins::always{1};
    EXPECT_EQ(Initialize(), 0);
    EXPECT_TRUE(IsInitialized());
    EXPECT_EQ(count(), 0);
}

TEST_F(Lifecycle, StartingAgainSearchesAgain) {
    plug(1);
    Initialize();
    EXPECT_EQ(count(), 1);
    standins::HidInterface& second = bus().plug(pad_of_type(9, "1-7:1.0", 0, L"SN0007"));
    EXPECT_EQ(count(), 1);
    Initialize();
    EXPECT_EQ(count(), 2);
    bus().unplug(second);
    Initialize();
    EXPECT_EQ(count(), 1);
    EXPECT_EQ(bus().open_handles(), 1);
}

TEST_F(Lifecycle, StartingAgainDropsRecordsAndCallbacks) {
    static int removals = 0;
    removals = 0;
    plug(1);
    Initialize();
    GetDeviceCount(nullptr);
    GetDeviceCount(nullptr);
    const LogCapture log;
    SetOnDeviceRemovedHandler([](void*, unsigned int) { ++removals; }, nullptr);
    Initialize();
    const auto heard = log.messages().size();
    EXPECT_EQ(GetDeviceCount(nullptr), 1);
    catch_removing_device(-20, 1, 0);
    EXPECT_EQ(removals, 0);
    EXPECT_EQ(log.messages().size(), heard);
}

TEST_F(Lifecycle, StoppingDropsRecordsAndCallbacks) {
    static int removals = 0;
    removals = 0;
    GetDeviceCount(nullptr);
    SetOnDeviceRemovedHandler([](void*, unsigned int) { ++removals; }, nullptr);
    Deinitialize();
    EXPECT_EQ(GetDeviceCount(nullptr), 1);
    catch_removing_device(-20, 1, 0);
    EXPECT_EQ(removals, 0);
}

TEST_F(Lifecycle, StartAndStopLeaveLibusbAndHidapiInOrder) {
    plug(2);
    Initialize();
    Initialize();
    Deinitialize();
    EXPECT_EQ(bus().open_handles(), 0);
    EXPECT_EQ(bus().open_lists(), 0);
    EXPECT_THAT(bus().misuses(), IsEmpty());
    EXPECT_THAT(bus().log("hid_exit"), Not(IsEmpty()));
}

TEST_F(Lifecycle, TheTearDownReleasesTheListBeforeItLocksTheRecords) {
    std::string printed;
    {
        const standins::EnvironmentGuard on("LIBVXPADCOM_DEBUG_MUTEX", "1");
        standins::OutputCapture output(STDOUT_FILENO);
        Deinitialize();
        printed = output.text();
    }
    for (const char* line :
         {"Deinitialize(): ########   was called pthread_mutex_lock() -> &gen_thread_mutex_lock\n",
          "__deinitialize(): ########   was called pthread_mutex_lock() -> &dev_list_short_lock\n",
          "__deinitialize(): <<<<<<<< was called pthread_mutex_unlock() -> &dev_list_short_lock\n",
          "__deinitialize(): ########   was called pthread_mutex_lock() -> &exception_list_lock\n",
          "__deinitialize(): <<<<<<<< was called pthread_mutex_unlock() -> &exception_list_lock\n",
          "Deinitialize(): <<<<<<<< was called pthread_mutex_unlock() -> &gen_thread_mutex_lock\n"}) {
        const auto found = printed.find(line);
        ASSERT_NE(found, std::string::npos) << line;
        printed.erase(0, found);
    }
}

TEST_F(Lifecycle, TheTearDownTellsItsResult) {
    const standins::EnvironmentGuard on("LIBVXPADCOM_DEBUG_FUNC", "1");
    standins::OutputCapture output(STDOUT_FILENO);
    Deinitialize();
    EXPECT_THAT(output.text(), HasSubstr("__deinitialize(): exit. returned int: 0.\n"));
}

TEST_F(Lifecycle, TheTearDownDestroysNoQueueThatWasNeverMade) {
    plug(1);
    Initialize();
    const standins::EnvironmentGuard on("LIBVXPADCOM_DEBUG_FUNC", "1");
    standins::OutputCapture output(STDOUT_FILENO);
    Deinitialize();
    const std::string printed = output.text();
    EXPECT_THAT(printed, HasSubstr("core_close_all_devs_clear_mem(): enter."));
    EXPECT_THAT(printed, Not(HasSubstr("destroy_uni_queue()")));
}

TEST_F(Lifecycle, TheFirstPadIsSelected) {
    plug(2);
    EXPECT_THAT(said_during([] { Initialize(); }), HasSubstr("Was switched to device: 1\n"));
    unsigned int reply = 0;
    EXPECT_EQ(EnumerateDevicesNext(&reply), 0);
    EXPECT_EQ(reply, 2U);
}

TEST_F(Lifecycle, TheSearchSaysWhatItFound) {
    const std::string nothing = said_during([] { Initialize(); });
    EXPECT_THAT(nothing, HasSubstr("sizeof(wchar_t): 2\n"));
    EXPECT_THAT(nothing, HasSubstr("Devices not found!"));
    EXPECT_THAT(nothing, HasSubstr("Number of devices found: 0"));
    plug(1);
    EXPECT_THAT(said_during([] { Initialize(); }), HasSubstr("No any devices for switching"));
    bus().plug(pad_of_type(9, "1-2:1.0", 0, L"SN2"));
    const std::string two = said_during([] { Initialize(); });
    EXPECT_THAT(two, HasSubstr("Was found 2 devices"));
    EXPECT_THAT(two, HasSubstr("libvxpadcom: Indexed pad: 000000000000000001HID: ACME Pad 100 ("));
    EXPECT_THAT(two, HasSubstr("/000D/SN2)"));
    EXPECT_THAT(two, HasSubstr("Number of devices found: 2"));
}

TEST_F(Lifecycle, FifteenPadsAreUsable) {
    plug(15);
    Initialize();
    EXPECT_EQ(count(), 15);
    unsigned int reply = 0;
    GuardedText serial(8);
    EXPECT_EQ(GetSerialNumber(15, serial.data(), 8, &reply), 0);
    EXPECT_EQ(serial.text(reply), "SN15");
    EXPECT_EQ(GetSerialNumber(1, serial.data(), 8, &reply), 0);
    EXPECT_EQ(serial.text(reply), "SN1");
}

TEST_F(Lifecycle, MoreThanFifteenPadsAreCutAndLogged) {
    for (const int pads : {16, 17, 30}) {
        start_over();
        const std::string fifteen = said_during([] { Initialize(); });
        plug(pads);
        const std::string more = said_during([] { Initialize(); });
        EXPECT_THAT(more, HasSubstr("15")) << pads;
        EXPECT_EQ(count(), 15) << pads;

        unsigned int reply = 0;
        EXPECT_EQ(EnumerateDevicesStart(&reply), 0);
        for (unsigned int expected = 1; expected <= 15; ++expected) {
            EXPECT_EQ(reply, expected);
            EXPECT_EQ(EnumerateDevicesNext(&reply), 0);
        }
        EXPECT_EQ(reply, 0U);
        EXPECT_NE(GetVendorId(16, &reply), 0);
    }
}

TEST_F(Lifecycle, AnEnumerationVisitsEveryPadOnce) {
    plug(2);
    Initialize();
    unsigned int reply = 0;
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(EnumerateDevicesStart(&reply), 0);
        EXPECT_EQ(reply, 1U);
        EXPECT_EQ(EnumerateDevicesNext(&reply), 0);
        EXPECT_EQ(reply, 2U);
        EXPECT_EQ(EnumerateDevicesNext(&reply), 0);
        EXPECT_EQ(reply, 0U);
        EXPECT_EQ(EnumerateDevicesNext(&reply), 0);
        EXPECT_EQ(reply, 0U);
    }
}

TEST_F(Lifecycle, TheSelectedPadIsTheCursor) {
    plug(3);
    Initialize();
    unsigned int reply = 0;
    EnumerateDevicesStart(&reply);
    EXPECT_EQ(GetVendorId(2, &reply), 0);
    EXPECT_THAT(said_during([&] { EnumerateDevicesNext(&reply); }),
                HasSubstr("Current device: 2, pad_settings: 000000000000000001HID: "));
    EXPECT_EQ(reply, 3U);
    EXPECT_EQ(SetUsedTransportProtocol(1, 0), 0);
    EnumerateDevicesNext(&reply);
    EXPECT_EQ(reply, 2U);
    EXPECT_NE(GetVendorId(9, &reply), 0); // a failed selection moves nothing
    EnumerateDevicesNext(&reply);
    EXPECT_EQ(reply, 3U);
}

TEST_F(Lifecycle, AnEnumerationWithPadsSearchesNoMore) {
    plug(2);
    Initialize();
    GetDeviceCount(nullptr);
    bus().take_log();
    unsigned int reply = 0;
    EnumerateDevicesStart(&reply);
    EXPECT_THAT(bus().log("hid_enumerate"), IsEmpty());
    EXPECT_EQ(GetDeviceCount(nullptr), 2) << "the records must still be there";
}

TEST_F(Lifecycle, AnEnumerationWithoutPadsSearchesAgain) {
    Initialize();
    GetDeviceCount(nullptr);
    unsigned int reply = api::preset;
    EXPECT_EQ(EnumerateDevicesStart(&reply), 0);
    EXPECT_EQ(reply, 0U);
    plug(1);
    EXPECT_EQ(EnumerateDevicesStart(&reply), 0);
    EXPECT_EQ(reply, 1U);
    EXPECT_EQ(count(), 1);
    EXPECT_EQ(GetDeviceCount(nullptr), 1) << "the records must be gone";
}

TEST_F(Lifecycle, AnEnumerationBeforeTheStartStartsTheLibrary) {
    plug(1);
    unsigned int reply = api::preset;
    EXPECT_EQ(EnumerateDevicesStart(&reply), 0);
    EXPECT_EQ(reply, 1U);
    EXPECT_TRUE(IsInitialized());
}

TEST_F(Lifecycle, TheNextPadBeforeTheStartIsNone) {
    const LogCapture log;
    unsigned int reply = api::preset;
    EXPECT_EQ(EnumerateDevicesNext(&reply), 0);
    EXPECT_EQ(reply, 0U);
    EXPECT_EQ(log.count("dev_shared_short is NULL.. Use Initialize() first."), 1);
    EXPECT_EQ(log.count("Error of getting info about current device"), 1);
}

TEST_F(Lifecycle, TheNextOfNoPadsIsNone) {
    Initialize();
    const LogCapture log;
    unsigned int reply = api::preset;
    EXPECT_EQ(EnumerateDevicesNext(&reply), 0);
    EXPECT_EQ(reply, 0U);
    EXPECT_EQ(log.count("Error of getting info about current device"), 1);
    EXPECT_EQ(GetDeviceCount(nullptr), 1) << "no record is filed for it";
}

TEST_F(Lifecycle, SearchingWithoutPadsSaysSo) {
    Initialize();
    unsigned int reply = 0;
    const std::string said = said_during([&] { EnumerateDevicesStart(&reply); });
    EXPECT_THAT(said, HasSubstr("set_dev_to_current() was return -1"));
    EXPECT_THAT(said, HasSubstr("Error of switching to device: 1"));
    EXPECT_THAT(said, HasSubstr("No device detected"));
    EXPECT_EQ(GetDeviceCount(nullptr), 1) << "no record is filed for it";
}

// The core lost its second pad in a search that the table of the exported functions has not seen.
class LostPad : public api::TwoPads {
  protected:
    void SetUp() override {
        TwoPads::SetUp();
        bus().unplug(*second_);
        ASSERT_EQ(core_looking_for_devices(), 1);
    }
};

TEST_F(LostPad, CannotBeSelected) {
    EXPECT_EQ(api::record_of(GetVendorId(2, &reply_)),
              (api::Record{257, "GetVendorId", "Can not switch to device: 2"}));
    EXPECT_EQ(reply_, api::preset);
}

TEST_F(LostPad, EndsAnEnumerationWithoutARecord) {
    const LogCapture log;
    EXPECT_EQ(EnumerateDevicesStart(&reply_), 0);
    EXPECT_EQ(reply_, 1U);
    EXPECT_EQ(EnumerateDevicesNext(&reply_), 0);
    EXPECT_EQ(reply_, 0U);
    EXPECT_EQ(log.count("Can not switch to device: 2"), 1);
    EXPECT_EQ(log.count("for switching\n"), 1);
    EXPECT_EQ(GetDeviceCount(nullptr), 1) << "no record is filed for it";
}

TEST_F(LostPad, ThatTheCoreNoLongerHasAtAllIsAnError) {
    core_uninitialize();
    const LogCapture log;
    EXPECT_EQ(api::record_of(GetVendorId(2, &reply_)),
              (api::Record{257, "GetVendorId", "Error of switching to device: 2"}));
    EXPECT_EQ(log.count("Error: core_set_device_to_current() return -1"), 1);
    EXPECT_EQ(EnumerateDevicesNext(&reply_), 0);
    EXPECT_EQ(reply_, 0U);
}

// The core's own failure behind a pad that is selected already.
TEST_F(LostPad, ThatIsSelectedFailsInTheCore) {
    core_uninitialize();
    EXPECT_EQ(api::record_of(GetVendorId(1, &reply_)),
              (api::Record{257, "GetVendorId", "Error of getting vendor ID for device: 1"}));
    EXPECT_EQ(reply_, api::preset);
}

} // namespace
