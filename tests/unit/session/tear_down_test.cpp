// The tear-down beside calls that use a pad. The address and thread sanitizers are the stricter judges of these.
#include "receive_test.hpp"

#include <chrono>
#include <future>

namespace receive_test {
namespace {

using core_test::described_as;
using core_test::SspPad;

const Record no_list{257, "GetFeature", "Error of switching to device: 1"};

int get_feature(unsigned int device, unsigned int interface = 0) {
    Bytes report(65);
    unsigned int reply = 0;
    return GetFeature(device, interface, report.data(), 65, &reply);
}

class TearDown : public Receiving {
  protected:
    // A call that needs no answer of the current pad.
    static bool lets_nobody_in() {
        return comes_true([] { return SetUsedTransportProtocol(1, 1) != 0; });
    }
};

TEST_F(TearDown, WaitsForACallAndLetsNoOtherIn) {
    for (int (*end)() : {Deinitialize, Initialize}) {
        Gate gate;
        {
            const auto guard = bus().lock();
            bus().hooks.get_feature = [&gate](HidInterface&, std::span<unsigned char>) {
                EXPECT_TRUE(gate.pass());
                return std::optional<int>();
            };
        }
        auto call = std::async(std::launch::async, [] { return get_feature(1); });
        ASSERT_TRUE(gate.somebody_waits());
        auto ending = std::async(std::launch::async, end);
        ASSERT_TRUE(lets_nobody_in()) << "closed, but not yet over";
        EXPECT_EQ(record_of(get_feature(1)), no_list);
        unsigned int reply = preset;
        EXPECT_EQ(EnumerateDevicesStart(&reply), 0);
        EXPECT_EQ(reply, 0U);
        EXPECT_TRUE(IsInitialized());
        EXPECT_EQ(ending.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
        gate.open();
        EXPECT_EQ(call.get(), 0);
        EXPECT_EQ(ending.get(), 0);
        bus().hooks.get_feature = {};
        EXPECT_EQ(Initialize(), 0);
        EXPECT_EQ(get_feature(1), 0) << "what comes later works";
    }
}

TEST_F(TearDown, MayBeBegunByACallbackOfARemoval) {
    static int searches;
    searches = 0;
    const vxpad_device_callback search = [](void*, unsigned int) {
        ++searches;
        EXPECT_EQ(Initialize(), 0);
        EXPECT_EQ(get_feature(1), 0) << "the other pad";
    };
    SetOnDeviceRemovedHandler(search, nullptr);
    bus().unplug(*first_);
    bus().unplug(*further_);
    EXPECT_NE(get_feature(1), 0);
    EXPECT_EQ(searches, 1);
    EXPECT_EQ(get_feature(1), 0);
    EXPECT_EQ(Deinitialize(), 0) << "nobody is counted any more";
}

TEST_F(TearDown, MayBeBegunByACallbackOfARemovalThatASelectionMeets) {
    bus().unplug(*first_);
    bus().unplug(*further_);
    EXPECT_NE(get_feature(1), 0);
    EXPECT_EQ(get_feature(2), 0);
    SetOnDeviceRemovedHandler([](void*, unsigned int) { EXPECT_EQ(Initialize(), 0); }, nullptr);
    EXPECT_NE(get_feature(1), 0);
    EXPECT_EQ(get_feature(1), 0);
}

TEST_F(TearDown, DoesNotWaitForACallWhoseCallbackWaitsForIt) {
    // One thread's callback searches while another thread is inside the tear-down already.
    SetOnDeviceRemovedHandler([](void* gates_of_the_test,
                                 unsigned int) { static_cast<std::array<Gate, 4>*>(gates_of_the_test)->at(1).pass(); },
                              &gates);
    bus().unplug(*first_);
    bus().unplug(*further_);
    auto call = std::async(std::launch::async, [] { return get_feature(1); });
    ASSERT_TRUE(gates[1].somebody_waits());
    EXPECT_EQ(Deinitialize(), 0);
    gates[1].open();
    EXPECT_NE(call.get(), 0);
}

TEST_F(TearDown, IsRefusedToACallbackThatItWouldWaitFor) {
    for (int (*end)() : {Deinitialize, Initialize}) {
        const Interruption& heard = interrupt("Was switched to device: 1", [end] { EXPECT_EQ(end(), 0); });
        EXPECT_EQ(get_feature(1), 0);
        EXPECT_TRUE(heard.happened());
        EXPECT_TRUE(IsInitialized());
    }
    EXPECT_THAT(errors_.text(), HasSubstr("Deinitialize() was called by a callback that must not call it"));
    EXPECT_THAT(errors_.text(), HasSubstr("Initialize() was called by a callback that must not call it"));
}

// A new search in a call inside a logging callback would take the records from the call that has something to say.
TEST_F(TearDown, IsRefusedToARemovalInsideALoggingCallback) {
    static std::atomic<int> lists;
    lists = 0;
    SetOnDeviceRemovedHandler(
        [](void*, unsigned int) {
            EXPECT_EQ(Initialize(), 0);
            unsigned int reply = 0;
            lists += GetDeviceCount(&reply) == 2 ? 1 : 100;
        },
        nullptr);
    const Interruption& heard = interrupt("Was switched to device: 1", [this] {
        bus().unplug(*first_);
        EXPECT_NE(get_feature(1), 0);
        EXPECT_EQ(lists, 1) << "still the former one";
    });
    EXPECT_NE(get_feature(1), 0);
    EXPECT_TRUE(heard.happened());
    EXPECT_THAT(errors_.text(), HasSubstr("must not call it"));
}

TEST_F(TearDown, StillServesTheDataCallbackThatItWaitsFor) {
    Receiver receiver;
    std::atomic<int> result = -1;
    receiver.then = [&](const Received&) {
        EXPECT_TRUE(gates[1].pass());
        result = get_feature(1);
    };
    EXPECT_EQ(SetOnDataReceivedHandler(1, 0, Receiver::receive, &receiver), 0);
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    give(*first_, report_of(1, 1));
    ASSERT_TRUE(gates[1].somebody_waits());
    auto ending = std::async(std::launch::async, Deinitialize);
    ASSERT_TRUE(lets_nobody_in());
    gates[1].open();
    EXPECT_EQ(ending.get(), 0);
    EXPECT_EQ(result, 0);
}

TEST_F(TearDown, WritesNoLockLinesOfInterfacesThatNobodyUsed) {
    const auto lines_of = [](const char* lock, const auto& act) {
        const standins::EnvironmentGuard on("LIBVXPADCOM_DEBUG_MUTEX", "1");
        const standins::OutputCapture output(STDOUT_FILENO);
        act();
        const std::string text = output.text();
        int count = 0;
        for (auto at = text.find(lock); at != std::string::npos; at = text.find(lock, at + 1)) {
            ++count;
        }
        return count;
    };
    EXPECT_EQ(lines_of("devices[device].interfaces[interface_number]", [] { Deinitialize(); }), 0);

    ASSERT_EQ(Initialize(), 0);
    Receiver receiver;
    EXPECT_EQ(SetOnDataReceivedHandler(1, 0, Receiver::receive, &receiver), 0);
    EXPECT_EQ(SetDataReceivingEnabled(1, 1, 1), 0);
    EXPECT_GT(lines_of("info_lock", [] { Deinitialize(); }), 0) << "those that were used are locked";
    EXPECT_EQ(lines_of("devices[device].interfaces[interface_number]", [] { Deinitialize(); }), 0);
}

// Pads 1 and 2 over HID, pad 3 over VCOM; all use them while another starts and stops the library.
TEST_F(TearDown, StandsBesideTenThreadsThatTransfer) {
    UsbDevice vcom = standins::vcom_pad("usb1");
    vcom.configurations = {{{{{0x81, 64}, {0x01, 64}}}}};
    SspPad model = described_as(10);
    UsbDevice& third = bus().plug(std::move(vcom));
    model.attach(third);
    bus().cost_us["libusb_bulk_transfer"] = 1000;
    ASSERT_EQ(Initialize(), 0);
    unsigned int found = 0;
    ASSERT_EQ(GetDeviceCount(&found), 3);

    std::atomic<bool> over = false;
    std::atomic<int> succeeded = 0;
    std::vector<std::thread> threads;
    const auto keep_on = [&](auto use) {
        threads.emplace_back([&over, &succeeded, use] {
            while (!over) {
                succeeded += use() == 0 ? 1 : 0;
            }
        });
    };
    static const Bytes report(65, 1);
    for (unsigned int pad = 1; pad <= 3; ++pad) {
        keep_on([pad] { return get_feature(pad); });
        keep_on([pad] {
            unsigned int reply = 0;
            return SetFeature(pad, 0, report.data(), 65, &reply);
        });
    }
    keep_on([] {
        Bytes buffer(65);
        unsigned int reply = 0;
        return ReadFile(1, 1, buffer.data(), 65, &reply);
    });
    keep_on([] {
        unsigned int reply = 0;
        return WriteFileBuffer(1, 3, report.data(), 65, &reply);
    });
    keep_on([] {
        Bytes buffer(200);
        unsigned int reply = 0;
        return ReceiveSspMessage(3, 0, buffer.data(), 200, 3, &reply);
    });
    keep_on([] {
        std::array<char16_t, 32> text{};
        unsigned int reply = 0;
        return SetDataReceivingEnabled(2, 0, 1) + GetSerialNumber(2, text.data(), 32, &reply);
    });
    for (int i = 0; i < 30; ++i) {
        const int before = succeeded;
        EXPECT_EQ(i % 3 == 0 ? Deinitialize() : 0, 0);
        EXPECT_EQ(Initialize(), 0);
        EXPECT_TRUE(comes_true([&] { return succeeded > before + 20; }));
    }
    over = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(get_feature(1), 0);
    EXPECT_EQ(Deinitialize(), 0);
}

} // namespace
} // namespace receive_test
