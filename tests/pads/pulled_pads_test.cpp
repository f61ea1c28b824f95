// Pads that are pulled out while they are closed, or just being opened again. Pad 1 stays and is current at first; the
// second HID pad and the VCOM pad go. The library's pauses are skipped.
#include "ssp_pad_test.hpp"

#include <dlfcn.h>
#include <libusb.h>
#include <mutex>

using namespace pads;

namespace {

std::function<void()> before_opening; // of any pad, on the opening thread

} // namespace

// Also keeps hidapi from going on with the handle of a failed open.
extern "C" int libusb_open(libusb_device* device, libusb_device_handle** handle) {
    static const auto next = reinterpret_cast<decltype(&libusb_open)>(dlsym(RTLD_NEXT, "libusb_open"));
    *handle = nullptr;
    if (before_opening) {
        before_opening();
    }
    return next(device, handle);
}

namespace {

using Devices = std::vector<unsigned int>;

// Removals that any thread tells. A receive thread may still do so while it ends.
class Told {
  public:
    Told() {
        take();
        SetOnDeviceRemovedHandler(&Told::removed, nullptr);
    }
    ~Told() { SetOnDeviceRemovedHandler(nullptr, nullptr); }
    Told(const Told&) = delete;
    Told& operator=(const Told&) = delete;

    static Devices take() {
        const std::lock_guard lock{mutex_};
        return std::exchange(devices_, {});
    }
    static bool is_empty() {
        const std::lock_guard lock{mutex_};
        return devices_.empty();
    }

  private:
    static void removed(void*, unsigned int device) {
        const std::lock_guard lock{mutex_};
        devices_.push_back(device);
    }

    inline static std::mutex mutex_;
    inline static Devices devices_;
};

// The library numbers the pads as the emulator does.
struct Pulled {
    const char* name;
    int pad;

    unsigned int device() const { return static_cast<unsigned int>(pad); }
};
void PrintTo(const Pulled& pulled, std::ostream* stream) {
    *stream << pulled.name;
}

class PulledPads : public InitializedPads, public testing::WithParamInterface<Pulled> {
  protected:
    void TearDown() override {
        before_opening = {};
        InitializedPads::TearDown();
    }

    static int pad() { return GetParam().pad; }
    static unsigned int device() { return GetParam().device(); }

    void start_over() {
        before_opening = {};
        heal();
        ASSERT_EQ(Initialize(), 0);
        unsigned int reply = 0;
        ASSERT_EQ(GetDeviceCount(&reply), 3);
        ASSERT_EQ(serial_number(1), u"STAYS");
    }
    static void pull_at_the_next_opening() {
        before_opening = [] {
            before_opening = {};
            to_pad("unplug", pad());
        };
    }
    static void expect_failed_switch(const DeviceCall& tested, Told& told) {
        EXPECT_EQ(failure(tested.call(device())),
                  invalid_handle(tested.name, "Error of switching to device: " + std::to_string(device())));
        EXPECT_EQ(told.take(), Devices{device()}) << tested.name;
    }
    // Whatever has happened: from now on it is known.
    static void expect_known(Told& told) {
        for (int time = 0; time < 2; ++time) {
            for (const auto& tested : device_calls()) {
                const int result = tested.call(device());
                if (tested.failure != nullptr) {
                    EXPECT_NE(result, 0) << tested.name;
                    EXPECT_EQ(told.take(), Devices{device()}) << tested.name;
                }
                told.take();
            }
            EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0) << "the other pad is not concerned";
        }
        told.take();
    }
};

INSTANTIATE_TEST_SUITE_P(On, PulledPads, testing::Values(Pulled{"hid", 2}, Pulled{"vcom", 3}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(PulledPads, BeforeTheSwitchAreTold) {
    for (const auto& tested : device_calls()) {
        ASSERT_NO_FATAL_FAILURE(start_over());
        Told told;
        to_pad("unplug", pad());
        for (int time = 0; time < 3; ++time) {
            expect_failed_switch(tested, told);
        }
        expect_known(told);
    }
}

TEST_P(PulledPads, BetweenClosingAndOpeningAreTold) {
    for (const auto& tested : device_calls()) {
        ASSERT_NO_FATAL_FAILURE(start_over());
        EXPECT_EQ(set_feature(device(), 0, report(65, 0x80)), 0); // open from now on
        EXPECT_EQ(serial_number(1), u"STAYS");
        Told told;
        pull_at_the_next_opening();
        expect_failed_switch(tested, told);
        expect_known(told);
    }
}

TEST_P(PulledPads, DuringTheSwitchAreTold) {
    for (const auto& tested : device_calls()) {
        int result = 0;
        pull_out_at_each_transfer(
            pad(), [this] { start_over(); }, [&] { result = tested.call(device()); },
            [&] {
                Told told;
                if (result == 0) { // pulled behind its last transfer
                    EXPECT_NE(set_feature(device(), 0, report(65, 0x80)), 0);
                }
                told.take();
                // Where only the reply was lost, the transfer that finds out is still to come.
                EXPECT_NE(set_feature(device(), 0, report(65, 0x80)), 0);
                EXPECT_EQ(told.take(), Devices{device()});
                expect_known(told);
            });
    }
}

// A further interface is opened by its first transfer.
TEST_P(PulledPads, AreToldByAnInterfaceThatWasClosed) {
    if (pad() == 3) {
        GTEST_SKIP() << "a VCOM pad has one interface";
    }
    ASSERT_NO_FATAL_FAILURE(start_over());
    EXPECT_EQ(serial_number(device()), u"GOES");
    Told told;
    to_pad("unplug", pad());
    EXPECT_EQ(failure(set_feature(device(), 1, report(65, 0x80))),
              invalid_handle("SetFeature", "Error of write HID feature for device: 2"));
    EXPECT_EQ(told.take(), Devices{device()});
    expect_known(told);
}

class ReceivingFromPulledPads : public PulledPads {
  protected:
    // The start succeeds, its thread tells and ends.
    static void expect_one_told(Told& told) {
        EXPECT_EQ(SetDataReceivingEnabled(device(), 0, 1), 0);
        EXPECT_TRUE(wait_for([&] { return !told.is_empty(); })) << "nobody is told";
        EXPECT_EQ(SetDataReceivingEnabled(device(), 0, 0), 0);
        std::this_thread::sleep_for(50ms);
        EXPECT_EQ(told.take(), Devices{device()}) << "more than once";
        expect_known(told);
    }
};

INSTANTIATE_TEST_SUITE_P(On, ReceivingFromPulledPads, testing::Values(Pulled{"hid", 2}, Pulled{"vcom", 3}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(ReceivingFromPulledPads, ThatWereNotCurrentIsTold) {
    ASSERT_NO_FATAL_FAILURE(start_over());
    Told told;
    to_pad("unplug", pad());
    expect_one_told(told);
}

TEST_P(ReceivingFromPulledPads, ThatWereCurrentIsTold) {
    ASSERT_NO_FATAL_FAILURE(start_over());
    EXPECT_EQ(set_feature(device(), 0, report(65, 0x80)), 0);
    Told told;
    to_pad("unplug", pad());
    expect_one_told(told);
}

TEST_P(ReceivingFromPulledPads, JustBeingReopenedIsTold) {
    ASSERT_NO_FATAL_FAILURE(start_over());
    EXPECT_EQ(set_feature(device(), 0, report(65, 0x80)), 0);
    Told told;
    pull_at_the_next_opening();
    expect_one_told(told);
}

TEST_P(ReceivingFromPulledPads, DuringTheStartIsTold) {
    const int transfers = pull_out_at_each_transfer(
        pad(), [this] { start_over(); },
        [this] {
            Told told;
            EXPECT_EQ(SetDataReceivingEnabled(device(), 0, 1), 0);
            if (!is_plugged(pad())) {
                EXPECT_TRUE(wait_for([&] { return !told.is_empty(); })) << "nobody is told";
            }
            EXPECT_EQ(SetDataReceivingEnabled(device(), 0, 0), 0);
        },
        [] {
            EXPECT_EQ(SetDataReceivingEnabled(device(), 0, 1), 0); // waits until the first thread has gone
            EXPECT_EQ(SetDataReceivingEnabled(device(), 0, 0), 0);
            Told told;
            expect_known(told);
        });
    EXPECT_LT(transfers, 100);
}

} // namespace
