// Receiving that is started and stopped again and again, and pads that come and go meanwhile.
#include "receive_pad_test.hpp"

using namespace pads;

namespace {

class Restarts : public ReceivingPads, public testing::WithParamInterface<int> {
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

    // Runs cycle(0), cycle(1), ... and expects that nothing stays behind.
    template <typename Cycle> void expect_no_leak(int cycles, int replugs, Cycle cycle) {
        const auto run = [&](int count) {
            for (int i = 0; i < count && !HasFatalFailure(); ++i) {
                SCOPED_TRACE("cycle " + std::to_string(i));
                cycle(i);
            }
            deinitialize();
            forget_receivers();
            forget_handed_out();
        };
        run(8); // what is taken once
        const auto before = resources();
        run(cycles);
        expect_no_growth(before, cycles, replugs);
    }
};

INSTANTIATE_TEST_SUITE_P(On, Restarts, testing::Values(hid_pad, vcom_pad), name_of_pad);

TEST_P(Restarts, OfReceiving) {
    const int cycles = times(100, 1'000);
    Receiver* application = nullptr;
    expect_no_leak(cycles, 1, [&](int cycle) {
        if (cycle == 0) {
            ASSERT_NO_FATAL_FAILURE(initialize({pad()}));
            application = &receiver(pad());
            application->listen();
            play(pad(), 500);
        }
        const auto before = application->count();
        application->enable();
        if (cycle % 3 != 0) {
            ASSERT_TRUE(wait_for([&] { return application->count() > before; })) << "no packet";
        }
        if (cycle % 7 == 0) {
            application->enable(); // restarts it
        }
        application->disable();
        if (cycle % 5 == 0) {
            application->disable(); // there is nothing more to stop
        }
        if (cycle == cycles - 1 && pad() == hid_pad) {
            expect_subsequence(*application, static_cast<std::size_t>(2 * cycles));
        }
    });
}

TEST_P(Restarts, OfTheLibrary) {
    expect_no_leak(times(20, 200), 1, [&](int cycle) {
        if (cycle % 2 == 0) {
            deinitialize();
        } else {
            EXPECT_EQ(Initialize(), 0); // stops it all the same
            forget_receivers();
        }
        if (!is_plugged(pad())) {
            plug_only({pad()});
        }
        ASSERT_EQ(Initialize(), 0);
        auto& application = receiver(pad());
        if (cycle % 4 == 0) {
            application.listen(); // and waits half a second for something to be enabled
        }
        application.enable();
        application.listen();
        play(pad(), 500);
        if (cycle % 3 != 0) {
            EXPECT_TRUE(wait_for([&] { return application.count() > 0; })) << "no packet";
        }
    });
}

// ---- pads that are pulled out ----

constexpr unsigned int piece_size = 65;

class Replugged : public Restarts {
  protected:
    void SetUp() override {
        Restarts::SetUp();
        longest_pause_us = 500;
    }

    static void removed(void* count, unsigned int) { ++*static_cast<std::atomic<int>*>(count); }
};

INSTANTIATE_TEST_SUITE_P(On, Replugged, testing::Values(hid_pad, vcom_pad), name_of_pad);

TEST_P(Replugged, DuringReceiving) {
    std::atomic<int> removals{0};
    const int cycles = times(20, 200);
    expect_no_leak(cycles, cycles, [&](int cycle) {
        ASSERT_NO_FATAL_FAILURE(initialize({pad()}));
        removals = 0;
        SetOnDeviceRemovedHandler(removed, &removals);
        auto& application = receiver(pad());
        application.listen();
        application.enable();
        play(pad(), 500);
        if (cycle % 4 != 0) {
            EXPECT_TRUE(wait_for([&] { return application.count() > 0; })) << "no packet";
        }
        to_pad("unplug", pad());
        if (cycle % 3 != 0) {
            EXPECT_TRUE(wait_for([&] { return removals > 0; })) << "no removal";
        }
        if (cycle % 2 == 0) {
            application.disable();
            EXPECT_EQ(SetDataReceivingEnabled(application.device(), 0, 1), 0) << "its thread sees that it has gone";
        }
        deinitialize();
        forget_receivers();
    });
}

TEST_P(Replugged, DuringAnUpload) {
    const Bytes data(2'000 * piece_size, 0x80);
    std::atomic<int> removals{0};
    const int cycles = times(20, 200);
    expect_no_leak(cycles, cycles, [&](int cycle) {
        ASSERT_NO_FATAL_FAILURE(initialize({pad()}));
        removals = 0;
        SetOnDeviceRemovedHandler(removed, &removals);
        auto& application = receiver(pad());
        if (cycle % 2 == 0) { // both at once
            application.listen();
            application.enable();
            play(pad(), 500);
        }
        rewind_upload(application.device());
        const std::string transfers = pad() == vcom_pad ? "bulk-out" : "set-feature";
        to_pad("fault", pad(), "unplug,on=" + transfers + ",count=1,after=" + std::to_string(20 + 17 * cycle % 400));
        unsigned int reply = reply_untouched;
        EXPECT_EQ(
            WriteFileBuffer(application.device(), 0b11, data.data(), static_cast<unsigned int>(data.size()), &reply),
            0);
        EXPECT_FALSE(is_plugged(pad()));
        EXPECT_LT(reply, data.size());
        EXPECT_EQ(reply % piece_size, 0U);
        EXPECT_GE(removals, 1);
        deinitialize();
        forget_receivers();
        to_pad("clear-faults", pad());
    });
}

} // namespace
