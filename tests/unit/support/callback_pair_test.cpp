#include "support/callback_pair.hpp"

#include <array>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

using Function = int (*)();

TEST(CallbackPair, HoldsWhatWasSetLast) {
    CallbackPair<Function> pair;
    EXPECT_FALSE(pair.is_set());
    EXPECT_EQ(pair.get().callback, nullptr);
    EXPECT_EQ(pair.get().user_specific, nullptr);
    int mark = 0;
    pair.set([] { return 1; }, &mark);
    EXPECT_TRUE(pair.is_set());
    EXPECT_EQ(pair.get().callback(), 1);
    EXPECT_EQ(pair.get().user_specific, &mark);
    pair.set(nullptr, &mark);
    EXPECT_FALSE(pair.is_set());
    EXPECT_EQ(pair.get().user_specific, &mark);
}

TEST(CallbackPair, IsTakenOnce) {
    CallbackPair<Function> pair;
    int mark = 0;
    pair.set([] { return 1; }, &mark);
    const auto taken = pair.take();
    EXPECT_EQ(taken.callback(), 1);
    EXPECT_EQ(taken.user_specific, &mark);
    EXPECT_FALSE(pair.is_set());
    EXPECT_EQ(pair.take().callback, nullptr);
    EXPECT_EQ(pair.get().user_specific, nullptr);
}

TEST(CallbackPair, LosesNothingThatIsSetWhileItIsTaken) {
    constexpr int times = 2'000;
    static std::array<int, times> marks;
    CallbackPair<Function> pair;
    std::atomic<bool> finished = false;
    std::thread setter([&] {
        for (int& mark : marks) {
            pair.set([] { return 0; }, &mark);
            while (pair.is_set()) {
                std::this_thread::yield();
            }
        }
        finished = true;
    });
    int taken = 0;
    while (!finished) {
        taken += pair.take().callback != nullptr ? 1 : 0;
    }
    setter.join();
    EXPECT_EQ(taken, times);
}

TEST(CallbackPair, IsNeverTornByThreadsThatSetIt) {
    static std::array<int, 3> marks;
    static constexpr std::array<Function, 3> callbacks{[] { return 0; }, [] { return 1; }, [] { return 2; }};
    CallbackPair<Function> pair;
    pair.set(callbacks[0], &marks[0]);
    std::atomic<bool> finished = false;
    std::vector<std::thread> setters;
    for (const std::size_t number : {1U, 2U}) {
        setters.emplace_back([&pair, &finished, number] {
            while (!finished) {
                pair.set(callbacks[number], &marks[number]);
            }
        });
    }
    int torn = 0;
    for (int i = 0; i < 200'000; ++i) {
        const auto [callback, user_specific] = pair.get();
        torn += user_specific == &marks[static_cast<std::size_t>(callback())] ? 0 : 1;
    }
    finished = true;
    for (std::thread& setter : setters) {
        setter.join();
    }
    EXPECT_EQ(torn, 0);
}

TEST(CallbackPair, CanBeSetByTheCallbackItself) {
    static CallbackPair<void (*)(void*)> pair;
    pair.set([](void*) { pair.set(nullptr, nullptr); }, nullptr);
    const auto [callback, user_specific] = pair.get();
    callback(user_specific);
    EXPECT_FALSE(pair.is_set());
}

} // namespace
