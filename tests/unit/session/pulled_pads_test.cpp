// Pads that are pulled while they are closed, or while they are being opened again: the application is told.
#include "receive_test.hpp"

namespace receive_test {
namespace {

struct DeviceCall {
    const char* name;
    std::function<int(unsigned int device)> call;
};
void PrintTo(const DeviceCall& call, std::ostream* stream) {
    *stream << call.name;
}

std::vector<DeviceCall> device_calls() {
    return {
        {"GetSerialNumber", [](unsigned int device) { return GetSerialNumber(device, some_text, 64, &some_number); }},
        {"GetProductName", [](unsigned int device) { return GetProductName(device, 0, some_text, 64, &some_number); }},
        {"GetVendorName", [](unsigned int device) { return GetVendorName(device, some_text, 64, &some_number); }},
        {"GetProductId", [](unsigned int device) { return GetProductId(device, 0, &some_number); }},
        {"GetVendorId", [](unsigned int device) { return GetVendorId(device, &some_number); }},
        {"GetUsbVersion", [](unsigned int device) { return GetUsbVersion(device, &some_number); }},
        {"GetEndPointCount", [](unsigned int device) { return GetEndPointCount(device, &some_number); }},
        {"GetFeatureReportSize", [](unsigned int device) { return GetFeatureReportSize(device, 0, &some_number); }},
        {"GetUsedTransportProtocol",
         [](unsigned int device) { return GetUsedTransportProtocol(device, &some_number); }},
        {"SetUsedTransportProtocol", [](unsigned int device) { return SetUsedTransportProtocol(device, 1); }},
        {"GetBytesToSend", [](unsigned int device) { return GetBytesToSend(device, &some_number); }},
        {"SetFeature", [](unsigned int device) { return SetFeature(device, 0, some_bytes, 65, &some_number); }},
        {"GetFeature", [](unsigned int device) { return GetFeature(device, 0, some_bytes, 65, &some_number); }},
        {"WriteFile", [](unsigned int device) { return WriteFile(device, 0, some_bytes, 65, &some_number); }},
        {"ReadFile", [](unsigned int device) { return ReadFile(device, 0, some_bytes, 65, &some_number); }},
        {"WriteFileBuffer",
         [](unsigned int device) { return WriteFileBuffer(device, 1, some_bytes, 65, &some_number); }},
        {"SendSspMessage", [](unsigned int device) { return SendSspMessage(device, 0, some_bytes, 4); }},
        {"ReceiveSspMessage",
         [](unsigned int device) { return ReceiveSspMessage(device, 0, some_bytes, 65, 10, &some_number); }},
    };
}

std::string message_of(int result) {
    return result == 0 ? "" : record_of(result).message;
}

using Devices = std::vector<unsigned int>;

// Who was told to have gone, by any thread.
class Notices {
  public:
    Notices() { SetOnDeviceRemovedHandler(&Notices::removed, this); }
    ~Notices() { SetOnDeviceRemovedHandler(nullptr, nullptr); }
    Notices(const Notices&) = delete;
    Notices& operator=(const Notices&) = delete;

    Devices take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(devices_, {});
    }
    std::size_t count() const {
        const std::lock_guard lock(mutex_);
        return devices_.size();
    }

  private:
    static void removed(void* self, unsigned int device) {
        auto& own = *static_cast<Notices*>(self);
        const std::lock_guard lock(own.mutex_);
        own.devices_.push_back(device);
    }

    mutable std::mutex mutex_;
    Devices devices_;
};

class PulledPad : public Receiving {
  protected:
    void SetUp() override {
        Receiving::SetUp();
        notices_.emplace();
    }
    void TearDown() override {
        Receiving::TearDown();
        notices_.reset();
    }

    void pull_first() {
        bus().unplug(*first_);
        bus().unplug(*further_);
    }

    std::optional<Notices> notices_;
};

class CallOfPulledPad : public PulledPad, public testing::WithParamInterface<DeviceCall> {
  protected:
    void expect_told(unsigned int device) {
        const int result = GetParam().call(device);
        ASSERT_NE(result, 0);
        EXPECT_EQ(record_of(result),
                  (Record{invalid_handle, GetParam().name, "Error of switching to device: " + std::to_string(device)}));
        EXPECT_EQ(notices_->take(), Devices{device});
    }
};

INSTANTIATE_TEST_SUITE_P(Functions, CallOfPulledPad, testing::ValuesIn(device_calls()),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(CallOfPulledPad, BeforeTheSwitchTellsEachTime) {
    bus().unplug(*second_);
    expect_told(2);
    EXPECT_FALSE(bus().take_log("hid_open_path").empty());
    for (int i = 0; i < 2; ++i) {
        expect_told(2);
    }
    EXPECT_THAT(bus().take_log(), IsEmpty()) << "it is not asked again";
    EXPECT_EQ(GetVendorId(1, &some_number), 0) << "the other pad is not concerned";
    expect_told(2);
    EXPECT_THAT(bus().log("hid_open_path"), Each("hid_open_path(1-1:1.0)"));
}

TEST_P(CallOfPulledPad, BetweenClosingAndOpeningTells) {
    ASSERT_EQ(GetVendorId(2, &some_number), 0); // open from now on
    ASSERT_EQ(GetVendorId(1, &some_number), 0);
    bus().take_log();
    bus().hooks.open_path = [this](const std::string& path) {
        if (path == "1-2:1.0") {
            bus().unplug(*second_);
        }
        return std::optional<int>();
    };
    expect_told(2);
    EXPECT_THAT(bus().log("hid_close"), ElementsAre("hid_close(1-2:1.0)"));
    expect_told(2);
}

// A pad that stays current is not reopened: the transfers find out, what is known without the pad is answered.
TEST_F(PulledPad, IsFoundByTheFirstCallThatReachesAClosedInterface) {
    pull_first();
    EXPECT_EQ(message_of(GetFeature(1, 1, some_bytes, 65, &some_number)),
              "Error of read HID feature for device: 1"); // not opened so far
    EXPECT_EQ(notices_->take(), Devices{1});
    EXPECT_EQ(message_of(GetProductId(1, 0, &some_number)), "Error of getting product ID for device: 1");
    EXPECT_EQ(notices_->take(), Devices{1});
    bus().take_log();
    for (const unsigned int interface : {0U, 1U}) {
        EXPECT_NE(core_get_hid_feature_report(interface, some_bytes, 64), 0);
    }
    EXPECT_THAT(bus().log("hid_open_path"), Each("hid_open_path(1-1:1.0)")) << "the interface is not asked again";
}

TEST_F(PulledPad, IsFoundByTheFirstMessageToAClosedInterface) {
    pull_first();
    EXPECT_NE(SendSspMessage(1, 1, some_bytes, 4), 0);
    EXPECT_EQ(notices_->take(), Devices{1});
    EXPECT_NE(GetProductId(1, 0, &some_number), 0);
}

TEST_F(PulledPad, IsNotMeantByTheNumberBehindTheLastInterface) {
    EXPECT_NE(GetFeature(1, 2, some_bytes, 65, &some_number), 0);
    EXPECT_NE(SendSspMessage(1, 2, some_bytes, 4), 0);
    EXPECT_EQ(notices_->take(), Devices{});
    EXPECT_EQ(GetProductId(1, 0, &some_number), 0);
    EXPECT_EQ(GetFeature(1, 0, some_bytes, 65, &some_number), 0);
}

TEST_F(PulledPad, LeavesTheCurrentPadWhatItWas) {
    bus().unplug(*second_);
    EXPECT_NE(GetVendorId(2, &some_number), 0);
    unsigned int next = 0;
    EXPECT_EQ(EnumerateDevicesNext(&next), 0);
    EXPECT_EQ(next, 0U) << "pad 2 comes behind pad 1, and it has gone";
    EXPECT_EQ(notices_->take(), (Devices{2, 2}));
    EXPECT_EQ(GetFeature(1, 0, some_bytes, 65, &some_number), 0);
}

// Pulled while the library starts.

TEST_F(PulledPad, DuringTheSearchIsListedAndTold) {
    int opened = 0;
    bus().hooks.open_path = [&](const std::string& path) {
        if (path == "1-1:1.0" && ++opened == 2) { // found, and now made current
            pull_first();
        }
        return std::optional<int>();
    };
    ASSERT_EQ(Initialize(), 0);
    EXPECT_EQ(GetDeviceCount(&some_number), 2);
    notices_.emplace();
    EXPECT_EQ(GetFeature(2, 0, some_bytes, 65, &some_number), 0) << "the pad behind it";
    EXPECT_EQ(notices_->take(), Devices{});
    EXPECT_NE(GetProductId(1, 0, &some_number), 0);
    EXPECT_EQ(notices_->take(), Devices{1});
}

TEST_F(PulledPad, DuringTheSearchHidesNoneBehindIt) {
    int opened = 0;
    bus().hooks.open_path = [&](const std::string& path) {
        if (path == "1-2:1.0" && ++opened == 2) {
            bus().unplug(*second_);
        }
        return std::optional<int>();
    };
    bus().plug(standins::pad_of_type(9, "1-3:1.0", 0, L"SN0003"));
    ASSERT_EQ(Initialize(), 0);
    EXPECT_EQ(GetDeviceCount(&some_number), 3);
    notices_.emplace();
    EXPECT_EQ(GetFeature(3, 0, some_bytes, 65, &some_number), 0);
    EXPECT_EQ(GetFeature(1, 0, some_bytes, 65, &some_number), 0);
    EXPECT_NE(GetProductId(2, 0, &some_number), 0);
    EXPECT_EQ(notices_->take(), Devices{2});
}

// The start of receiving.

struct StartOfPad {
    unsigned int device;
    unsigned int interface;
    bool is_known; // before the start
    friend void PrintTo(const StartOfPad& start, std::ostream* stream) {
        *stream << start.device << '/' << start.interface << (start.is_known ? " known" : "");
    }
};

class StartOnPulledPad : public PulledPad, public testing::WithParamInterface<StartOfPad> {};

INSTANTIATE_TEST_SUITE_P(Interfaces, StartOnPulledPad,
                         testing::Values(StartOfPad{1, 0, false}, StartOfPad{1, 1, false}, StartOfPad{1, 0, true},
                                         StartOfPad{1, 1, true}, StartOfPad{2, 0, false}, StartOfPad{2, 0, true}));

TEST_P(StartOnPulledPad, EndsByItselfAndTellsOnce) {
    const unsigned int device = GetParam().device;
    const unsigned int interface = GetParam().interface;
    const LogCapture& log = overhear();
    if (device == 1) {
        pull_first();
    } else {
        bus().unplug(*second_);
    }
    if (GetParam().is_known) {
        EXPECT_NE(GetFeature(device, 0, some_bytes, 65, &some_number), 0);
        notices_->take();
        EXPECT_EQ(GetProductId(3 - device, 0, &some_number), 0); // so that the start has to switch
    }
    bus().take_log();
    EXPECT_EQ(SetDataReceivingEnabled(device, interface, 1), 0);
    const std::string failure = "error: start_routine(): Error of send ssp message for device: ";
    EXPECT_TRUE(comes_true([&] { return log.count(failure + std::to_string(device)) == 2; })) << "on and off";
    EXPECT_EQ(notices_->take(), Devices{device});
    EXPECT_EQ(log.count("Sending of SSP Biodata was"), 0);
    EXPECT_EQ(log.count("ReadFile() return exception"), 0);
    EXPECT_THAT(bus().log("hid_read"), IsEmpty());
    EXPECT_EQ(SetDataReceivingEnabled(device, interface, 0), 0);
    EXPECT_EQ(notices_->take(), Devices{});
}

TEST_F(PulledPad, WhileItIsReopenedForReceivingIsToldOnce) {
    bus().hooks.open_path = [this](const std::string&) {
        pull_first();
        return std::optional<int>();
    };
    const LogCapture& log = overhear();
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    EXPECT_TRUE(
        comes_true([&] { return log.count("error: start_routine(): Error of send ssp message for device: 1") == 2; }));
    EXPECT_EQ(notices_->take(), Devices{1});
}

// The interface from which is read is opened by the first reading.
TEST_F(PulledPad, BesideAnotherReceivingInterfaceIsTold) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0); // keeps the pad open
    bus().hooks.read = [](HidInterface& pad, std::span<unsigned char>) {
        return pad.path == "1-1:1.0" ? std::optional<int>(0) : std::nullopt; // notices nothing
    };
    pull_first();
    EXPECT_EQ(SetDataReceivingEnabled(1, 1, 1), 0);
    EXPECT_TRUE(comes_true([&] { return notices_->count() >= 2; })) << "by both threads";
    EXPECT_TRUE(is_quiet("1-1:1.0"));
    EXPECT_TRUE(is_quiet("1-1:1.1"));
    EXPECT_NE(GetProductId(1, 0, &some_number), 0);
}

// What a receive thread has read from last, on that thread.
std::string& read_from() {
    thread_local std::string path;
    return path;
}

TEST_F(PulledPad, ThatASelectionFindsEndsTheReceivingOfItsFirstInterfaceAlone) {
    std::mutex mutex;
    Lines found_out; // by reading once more
    bus().hooks.read = [](HidInterface& pad, std::span<unsigned char>) {
        read_from() = pad.path;
        return std::optional<int>();
    };
    bus().hooks.usleep = [&](unsigned int microseconds) {
        if (microseconds == 500) {
            EXPECT_TRUE(gates[read_from() == "1-1:1.0" ? 0 : 1].pass());
        } else if (microseconds == 900'000) {
            const std::lock_guard lock(mutex);
            found_out.push_back(read_from());
        }
    };
    for (const unsigned int interface : {0U, 1U}) {
        ASSERT_EQ(SetDataReceivingEnabled(1, interface, 1), 0);
        ASSERT_TRUE(gates[interface].somebody_waits());
    }
    pull_first();
    EXPECT_EQ(core_get_hid_feature_report(0, some_bytes, 64), -20) << "who asks the core tells nobody";
    EXPECT_EQ(GetProductId(2, 0, &some_number), 0);
    EXPECT_NE(GetProductId(1, 0, &some_number), 0);
    EXPECT_EQ(notices_->take(), Devices{1});
    const LogCapture& log = overhear();
    for (const int interface : {0, 1}) {
        gates[static_cast<std::size_t>(interface)].open();
        EXPECT_TRUE(comes_true([&] { // behind its loop
            return log.count("error: start_routine(): Error of send ssp message for device: 1") == interface + 1;
        }));
    }
    EXPECT_EQ(Deinitialize(), 0);
    EXPECT_THAT(found_out, ElementsAre("1-1:1.1"));
}

// The callback.

TEST_F(PulledPad, IsNotToldAgainInsideTheCallback) {
    static int times;
    static int told_elsewhere;
    times = told_elsewhere = 0;
    std::thread::id self = std::this_thread::get_id();
    const vxpad_device_callback callback = [](void* thread, unsigned int device) {
        if (std::this_thread::get_id() != *static_cast<std::thread::id*>(thread)) {
            ++told_elsewhere;
            return;
        }
        if (++times > 2) {
            return; // or it would never end
        }
        unsigned int reply = 0;
        EXPECT_NE(GetProductId(device, 0, &reply), 0);
        EXPECT_NE(GetFeature(device, 0, some_bytes, 65, &reply), 0);
        std::thread([&] { EXPECT_NE(GetProductId(device, 0, &reply), 0); }).join();
    };
    SetOnDeviceRemovedHandler(callback, &self);
    bus().unplug(*second_);
    EXPECT_NE(GetProductId(2, 0, &some_number), 0);
    EXPECT_EQ(times, 1);
    EXPECT_EQ(told_elsewhere, 1) << "another thread's call tells on its thread";
    EXPECT_NE(GetProductId(2, 0, &some_number), 0);
    EXPECT_EQ(times, 2) << "outside of the callback it is told again";
}

TEST_F(PulledPad, IsToldWithThePointerOfItsHandler) {
    static std::atomic<int> astray;
    static int marks[2];
    astray = 0;
    bus().unplug(*second_);
    std::atomic<bool> finished = false;
    std::thread exchanging([&] {
        while (!finished) {
            SetOnDeviceRemovedHandler([](void* user, unsigned int) { astray += user == &marks[0] ? 0 : 1; }, &marks[0]);
            SetOnDeviceRemovedHandler([](void* user, unsigned int) { astray += user == &marks[1] ? 0 : 1; }, &marks[1]);
        }
    });
    for (int i = 0; i < 100'000; ++i) {
        catch_removing_device(-20, 2, 0);
    }
    finished = true;
    exchanging.join();
    EXPECT_EQ(astray, 0);
}

// Who waits for whom.

TEST_F(PulledPad, ThatIsSwitchedToHoldsUpNobodyElse) {
    bus().hooks.open_path = [this](const std::string& path) {
        if (path == "1-2:1.0") {
            bus().unplug(*second_);
            EXPECT_TRUE(gates[0].pass());
        }
        return std::optional<int>();
    };
    std::thread switching([] { EXPECT_NE(GetProductId(2, 0, &some_number), 0); });
    ASSERT_TRUE(gates[0].somebody_waits());
    std::atomic<bool> over = false;
    std::thread others([&over] {
        unsigned int reply = 0;
        std::array<unsigned char, 65> report{};
        EXPECT_EQ(GetDeviceCount(&reply), 2);
        EXPECT_EQ(GetFeature(1, 0, report.data(), 65, &reply), 0);
        EXPECT_EQ(GetProductId(1, 0, &reply), 0);
        over = true;
    });
    EXPECT_TRUE(comes_true([&over] { return over.load(); })) << "calls to pad 1 wait for pad 2";
    gates[0].open();
    switching.join();
    others.join();
    EXPECT_EQ(notices_->take(), Devices{2});
}

// A call of another thread that comes while the pad is being reopened waits for it.
TEST_F(PulledPad, IsNotMistakenForOneThatIsJustBeingReopened) {
    bus().hooks.open_path = [this](const std::string& path) {
        if (path == "1-2:1.0") {
            EXPECT_TRUE(gates[0].pass());
        }
        return std::optional<int>();
    };
    std::thread switching([] {
        unsigned int reply = 0;
        EXPECT_EQ(GetProductId(2, 0, &reply), 0);
    });
    ASSERT_TRUE(gates[0].somebody_waits());
    std::thread second([] {
        unsigned int reply = 0;
        std::array<unsigned char, 65> report{};
        EXPECT_EQ(GetFeature(2, 0, report.data(), 65, &reply), 0);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // it waits by now, or soon
    EXPECT_EQ(GetProductId(1, 0, &some_number), 0) << "and the first pad becomes current meanwhile";
    gates[0].open();
    switching.join();
    second.join();
    EXPECT_EQ(notices_->take(), Devices{});
}

TEST_F(PulledPad, OrBusyPadIsSelectedWithoutWaiting) {
    ASSERT_EQ(GetProductId(2, 0, &some_number), 0);
    bus().take_log();
    bus().hooks.get_feature = [this](HidInterface& pad, std::span<unsigned char>) {
        if (&pad == second_) {
            EXPECT_TRUE(gates[0].pass());
        }
        return std::optional<int>();
    };
    std::thread busy([] {
        unsigned int reply = 0;
        std::array<unsigned char, 65> report{};
        EXPECT_EQ(GetFeature(2, 0, report.data(), 65, &reply), 0);
    });
    ASSERT_TRUE(gates[0].somebody_waits());
    std::atomic<bool> over = false;
    std::thread others([&over] {
        unsigned int reply = 0;
        EXPECT_EQ(GetProductId(1, 0, &reply), 0);
        EXPECT_EQ(GetProductId(2, 0, &reply), 0);
        EXPECT_EQ(GetDeviceCount(&reply), 2);
        over = true;
    });
    EXPECT_TRUE(comes_true([&over] { return over.load(); }));
    EXPECT_THAT(bus().log("hid_close"), Not(Contains("hid_close(1-2:1.0)")));
    gates[0].open();
    busy.join();
    others.join();
}

} // namespace
} // namespace receive_test
