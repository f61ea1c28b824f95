// Two threads that meet at one lock each. The thread sanitizer is the judge of these: what they find in common they
// share only under that lock.
#include "receive_test.hpp"

namespace receive_test {
namespace {

class TwoThreads : public Receiving {
  protected:
    // Runs each of them over and over beside act, on a thread of its own.
    template <typename... Calls> static void beside(const std::function<void()>& act, Calls... calls) {
        std::atomic<bool> over = false;
        std::vector<std::thread> threads;
        const auto keep_on = [&](auto call) {
            threads.emplace_back([&over, call] {
                while (!over) {
                    call();
                }
            });
        };
        (keep_on(calls), ...);
        act();
        over = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
};

TEST_F(TwoThreads, CountReportsWhileTheyAreQueued) {
    static constexpr unsigned int reports = 200;
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    const auto fill = [this] {
        for (unsigned int i = 0; i < reports; ++i) {
            give(*first_, report_of(1, i));
        }
        EXPECT_TRUE(all_read(*first_));
    };
    beside(fill, [] {
        unsigned int count = preset;
        EXPECT_EQ(GetDataPacketsAvailable(1, 0, &count), 0);
        EXPECT_LE(count, reports);
    });
    EXPECT_TRUE(comes_true([] { return available() == reports; }));
}

TEST_F(TwoThreads, CountReportsWhileTheyAreTaken) {
    Receiver receiver;
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_EQ(SetOnDataReceivedHandler(1, 0, Receiver::receive, &receiver), 0);
    const auto fill = [&] {
        for (unsigned int i = 0; i < 200; ++i) {
            give(*first_, report_of(1, i));
        }
        EXPECT_TRUE(receiver.gets(200));
    };
    beside(fill, [] {
        unsigned int count = preset;
        EXPECT_EQ(GetDataPacketsAvailable(1, 0, &count), 0);
    });
    EXPECT_EQ(Deinitialize(), 0); // before the receiver goes
}

TEST_F(TwoThreads, DropReportsWhileTheyAreQueued) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    const auto fill = [this] {
        for (unsigned int i = 0; i < 200; ++i) {
            give(*first_, report_of(1, i));
        }
        EXPECT_TRUE(all_read(*first_));
    };
    beside(fill, [] { EXPECT_EQ(FlushDataPackets(1, 0), 0); });
}

TEST_F(TwoThreads, ReplaceAHandlerThatIsBeingCalled) {
    std::array<Receiver, 2> receivers;
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    const auto register_one = [&](std::size_t which) {
        EXPECT_EQ(SetOnDataReceivedHandler(1, 0, Receiver::receive, &receivers[which]), 0);
    };
    register_one(0);
    const auto fill = [&] {
        for (unsigned int i = 0; i < 200; ++i) {
            give(*first_, report_of(1, i));
        }
        EXPECT_TRUE(comes_true([&] { return receivers[0].count() + receivers[1].count() == 200; }));
    };
    beside(fill, [&] {
        register_one(1);
        register_one(0);
    });
    for (const Receiver& receiver : receivers) {
        for (const Received& one : receiver.all()) {
            EXPECT_EQ(one.user_specific, &receiver);
        }
    }
    EXPECT_EQ(Deinitialize(), 0);
}

TEST_F(TwoThreads, SetAndAskForThePadsProtocol) {
    const auto ask = [] {
        for (int i = 0; i < 500; ++i) {
            unsigned int protocol = preset;
            EXPECT_EQ(GetUsedTransportProtocol(1, &protocol), 0);
            EXPECT_LE(protocol, 1U);
        }
    };
    beside(
        ask, [] { EXPECT_EQ(SetUsedTransportProtocol(1, 1), 0); },
        [] { EXPECT_EQ(SetUsedTransportProtocol(1, 0), 0); });
}

TEST_F(TwoThreads, CountReportsOfALibraryThatIsStoppedAndStarted) {
    const auto restart = [] {
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(Initialize(), 0);
            EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
        }
    };
    beside(
        restart,
        [] {
            unsigned int count = preset;
            GetDataPacketsAvailable(1, 0, &count);
        },
        [] { FlushDataPackets(1, 0); });
}

} // namespace
} // namespace receive_test
