// What callbacks may do. Each of them runs on a thread of the library's, with none of its locks held.
#include "receive_pad_test.hpp"

#include <algorithm>
#include <condition_variable>
#include <future>

using namespace pads;

namespace {

// Holds threads up until it is opened.
class Gate {
  public:
    ~Gate() { open(); }
    void open() {
        const std::lock_guard lock{mutex_};
        open_ = true;
        opened_.notify_all();
    }
    void pass() {
        std::unique_lock lock{mutex_};
        ++waiting_;
        EXPECT_TRUE(opened_.wait_for(lock, 30s, [this] { return open_; }));
        --waiting_;
    }
    int waiting() {
        const std::lock_guard lock{mutex_};
        return waiting_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = false;
    int waiting_ = 0;
};

class Callbacks : public ReceivingPads, public testing::WithParamInterface<int> {
  protected:
    void SetUp() override {
        ReceivingPads::SetUp();
        longest_pause_us = 1'000'000; // all of them
    }
    void TearDown() override {
        ReceivingPads::TearDown();
        longest_pause_us = 0;
    }

    static int pad() { return GetParam(); }

    Receiver& start(int of_pad, unsigned int rate, std::function<void(Receiver&, std::uint32_t)> on_packet = {}) {
        auto& application = receiver(of_pad);
        application.on_packet = std::move(on_packet);
        application.listen();
        application.enable();
        play(of_pad, rate);
        return application;
    }
};

INSTANTIATE_TEST_SUITE_P(On, Callbacks, testing::Values(hid_pad, vcom_pad), name_of_pad);

TEST_P(Callbacks, ThatAreSlowDelayNobodyElse) {
    initialize({pad(), other_hid_pad});
    Gate gate;
    auto& slow = start(pad(), 300, [&](Receiver&, std::uint32_t) { gate.pass(); });
    auto& other = start(other_hid_pad, 300);
    EXPECT_TRUE(wait_for([&] { return gate.waiting() == 1 && slow.waiting() >= 100 && other.count() >= 100; }));
    EXPECT_EQ(slow.count(), 1U);
    EXPECT_EQ(gate.waiting(), 1) << "one thread calls";
    expect_all_received(other);
    gate.open();
    expect_all_received(slow); // in order, and nothing lost meanwhile
    deinitialize();
}

TEST_P(Callbacks, CallTheLibrary) {
    initialize({pad(), other_hid_pad});
    std::atomic<int> calls{0};
    start(other_hid_pad, 300);
    auto& application = start(pad(), 300, [&](Receiver& self, std::uint32_t number) {
        const unsigned int device = self.device();
        exchange_features(self, number);
        EXPECT_EQ(serial_number(device), u"PAD" + std::u16string(1, static_cast<char16_t>(u'0' + self.pad())));
        EXPECT_EQ(serial_number(device_of(other_hid_pad)), u"PAD2"); // makes another pad current
        EXPECT_LT(self.waiting(), 1'000'000U);
        EXPECT_TRUE(IsInitialized());
        EXPECT_EQ(failure(SetFeature(device, 0, nullptr, 65, nullptr)).code,
                  static_cast<unsigned int>(VXPCEC_INVALID_PARAMETER));
        EXPECT_EQ(SetOnDataReceivedHandler(device, 0, Receiver::receive, &self), 0);
        EXPECT_EQ(RegisterLoggingCallBackProcedure(nullptr, nullptr), 0);
        ++calls;
    });
    EXPECT_TRUE(wait_for([&] { return calls >= 100; }, 30s));
    expect_all_received(application);
    deinitialize();
}

TEST_P(Callbacks, DropWhatWaits) {
    initialize({pad()});
    std::atomic<int> flushes{0};
    auto& application = start(pad(), 500, [&](Receiver& self, std::uint32_t) {
        EXPECT_TRUE(wait_for([&] { return self.waiting() >= 5; }));
        EXPECT_EQ(FlushDataPackets(self.device(), 0), 0);
        ++flushes;
    });
    EXPECT_TRUE(wait_for([&] { return flushes >= 20; }, 30s));
    const auto numbers = application.numbers();
    for (std::size_t i = 1; i < numbers.size(); ++i) {
        EXPECT_GE(numbers[i], numbers[i - 1] + 5);
    }
    deinitialize();
}

TEST_P(Callbacks, StopAndStartReceiving) {
    initialize({pad()});
    std::atomic<int> restarts{0};
    auto& application = start(pad(), 500, [&](Receiver& self, std::uint32_t number) {
        if (number % 4 == 0) {
            self.disable();
        }
        if (number % 2 == 0) {
            self.enable();
            ++restarts;
        }
    });
    EXPECT_TRUE(wait_for([&] { return restarts >= 20; }, 30s));
    application.disable();
    const auto numbers = application.numbers();
    EXPECT_TRUE(std::ranges::is_sorted(numbers));
    EXPECT_EQ(std::ranges::adjacent_find(numbers), numbers.end());
    deinitialize();
}

TEST_P(Callbacks, StopReceivingForGood) {
    initialize({pad()});
    std::atomic<bool> flushed{false};
    auto& application = start(pad(), 500, [&](Receiver& self, std::uint32_t) {
        self.disable();
        EXPECT_EQ(FlushDataPackets(self.device(), 0), 0);
        flushed = true;
    });
    EXPECT_TRUE(wait_for([&] { return flushed.load(); }));
    application.disable(); // waits for nobody who has left
    EXPECT_EQ(application.waiting(), 0U);
    EXPECT_EQ(application.count(), 1U);
    deinitialize();
}

// The tear-down waits for a callback, and whatever that calls returns.
TEST_P(Callbacks, AreWaitedForByTheTearDown) {
    initialize({pad()});
    Gate gate;
    std::atomic<bool> over{false};
    auto& application = start(pad(), 500, [&](Receiver& self, std::uint32_t) {
        gate.pass();
        unsigned int reply = 0;
        for (int i = 0; i < 20; ++i) {
            GetDeviceCount(&reply);
            GetProductId(self.device(), 0, &reply);
            GetDataPacketsAvailable(self.device(), 0, &reply);
            FlushDataPackets(self.device(), 0);
            SetDataReceivingEnabled(self.device(), 0, static_cast<unsigned int>(i % 2));
            SetOnDataReceivedHandler(self.device(), 0, Receiver::receive, &self);
        }
        EXPECT_FALSE(over);
    });
    EXPECT_TRUE(wait_for([&] { return gate.waiting() == 1; }));
    auto tear_down = std::async(std::launch::async, [&] {
        EXPECT_EQ(Deinitialize(), 0);
        over = true;
    });
    EXPECT_EQ(tear_down.wait_for(50ms), std::future_status::timeout);
    gate.open();
    EXPECT_EQ(tear_down.wait_for(30s), std::future_status::ready);
    application.close();

    deinitialize();
}

// From the next packet on it is the other one's turn.
TEST_P(Callbacks, ReplaceThemselves) {
    initialize({pad()});
    auto& second = receiver(pad());
    std::atomic<bool> replaced{false};
    auto& first = start(pad(), 500, [&](Receiver& self, std::uint32_t) {
        EXPECT_FALSE(replaced);
        if (self.count() == 10) {
            second.listen();
            replaced = true;
        }
    });
    EXPECT_TRUE(wait_for([&] { return second.count() >= 50; }));
    EXPECT_EQ(first.count(), 10U);
    to_pad("stop", pad());
    EXPECT_TRUE(wait_for([&] { return second.last() == sent_by(pad()) - 1; }));
    EXPECT_EQ(second.numbers().front(), first.numbers().back() + 1);
    deinitialize();
}

TEST_P(Callbacks, RemoveThemselves) {
    initialize({pad()});
    const auto threads_at_rest = resources().threads;
    auto& application = start(pad(), 500, [&](Receiver& self, std::uint32_t) {
        if (self.count() == 10) {
            EXPECT_EQ(SetOnDataReceivedHandler(self.device(), 0, nullptr, nullptr), 0);
        }
    });
    // Both threads end by themselves; of a HID pad hidapi's own stays.
    EXPECT_TRUE(wait_for([&] { return resources().threads <= threads_at_rest; }));
    EXPECT_EQ(application.count(), 10U);
    application.listen();
    application.enable();
    EXPECT_TRUE(wait_for([&] { return application.count() > 10; })) << "receives no more";
    deinitialize();
}

TEST_P(Callbacks, AreReplacedAndRemovedByOthers) {
    initialize({pad()});
    auto& first = start(pad(), 500);
    auto& second = receiver(pad());
    const int rounds = times(30, 300);
    for (int i = 0; i < rounds; ++i) {
        const auto before = second.count();
        second.listen();
        EXPECT_TRUE(wait_for([&] { return second.count() > before; }));
        EXPECT_EQ(SetOnDataReceivedHandler(first.device(), 0, nullptr, nullptr), 0);
        first.listen();
        if (i % 5 == 0) {
            first.enable();
        }
        first.enable();
    }
    const auto before = first.count();
    EXPECT_TRUE(wait_for([&] { return first.count() > before; }));
    deinitialize();
}

// A removal is told on the receiving thread, or on that of any call.
TEST_P(Callbacks, OfARemovalCallTheLibrary) {
    longest_pause_us = 500; // for opening the pad is tried for a second
    for (int time = 0; time < times(5, 50); ++time) {
        initialize({pad(), other_hid_pad});
        auto& application = start(pad(), 500);
        auto& other = start(other_hid_pad, 500);
        struct Told {
            Receiver& gone;
            Receiver& other;
            std::atomic<int> times{0};
            std::atomic<bool> is_over{false};
        } told{application, other};
        SetOnDeviceRemovedHandler(
            [](void* user, unsigned int device) {
                auto& about = *static_cast<Told*>(user);
                EXPECT_EQ(device, about.gone.device());
                if (about.times++ == 0) { // asking the pad reports its removal again
                    unsigned int reply = 0;
                    EXPECT_NE(GetEndPointCount(device, &reply), 0);
                    EXPECT_EQ(serial_number(about.other.device()), u"PAD2");
                    about.gone.waiting();
                    EXPECT_EQ(FlushDataPackets(device, 0), 0);
                    EXPECT_EQ(SetOnDataReceivedHandler(device, 0, nullptr, nullptr), 0);
                    about.is_over = true;
                }
            },
            &told);
        EXPECT_TRUE(wait_for([&] { return application.count() > 0; }));
        to_pad("unplug", pad());
        EXPECT_TRUE(wait_for([&] { return told.is_over.load(); }));
        const auto before = other.count();
        EXPECT_TRUE(wait_for([&] { return other.count() > before; })) << "the other pad is not concerned";
        deinitialize();
    }
}

// The log comes from every thread, also from those that are being stopped.
TEST_P(Callbacks, OfTheLogCallTheLibrary) {
    static std::atomic<unsigned long> messages;
    static std::atomic<unsigned int> device;
    for (int time = 0; time < times(3, 30); ++time) {
        initialize({pad()});
        device = device_of(pad());
        messages = 0;
        const vxpad_logging_callback log = [](void*, const char16_t*) {
            IsInitialized();
            unsigned int reply = 0;
            GetDeviceCount(&reply);
            GetDataPacketsAvailable(device, 0, &reply);
            FlushDataPackets(device, 0);
            GetProductId(device, 0, &reply);
            ++messages;
        };
        EXPECT_EQ(RegisterLoggingCallBackProcedure(reinterpret_cast<void*>(log), nullptr), 0);
        auto& application = start(pad(), 100);
        for (int i = 0; i < 3; ++i) {
            const auto before = messages.load();
            application.enable();
            EXPECT_TRUE(wait_for([&] { return messages > before + 100; }));
            application.disable();
        }
        application.enable();
        deinitialize(); // while they log
        const auto after = messages.load();
        EXPECT_GT(after, 300U);
        EXPECT_FALSE(IsInitialized());
        EXPECT_EQ(messages, after) << "nobody logs any more";
    }
}

} // namespace
