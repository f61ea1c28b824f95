#include "support/one_shot.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace {

TEST(OneShotSignal, GivenBeforeItIsAwaitedKeepsNobodyWaiting) {
    OneShot signal;
    EXPECT_FALSE(signal.is_given());
    signal.give();
    EXPECT_TRUE(signal.is_given());
    signal.wait();
    signal.wait(); // a permit would be used up by now
}

TEST(OneShotSignal, GivenTwiceIsGivenOnce) {
    OneShot signal;
    signal.give();
    signal.give();
    signal.wait();
    OneShot next;
    EXPECT_FALSE(next.is_given());
}

TEST(OneShotSignal, WakesEveryoneWhoWaits) {
    OneShot signal;
    std::atomic<int> awake = 0;
    std::vector<std::thread> waiting;
    for (int i = 0; i < 3; ++i) {
        waiting.emplace_back([&] {
            signal.wait();
            ++awake;
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(awake, 0);
    signal.give();
    for (std::thread& thread : waiting) {
        thread.join();
    }
    EXPECT_EQ(awake, 3);
}

} // namespace
