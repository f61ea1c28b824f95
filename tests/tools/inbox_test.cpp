#include "reception.hpp"

#include <gtest/gtest.h>
#include <thread>

using namespace vxpadctl;
using namespace std::chrono_literals;

namespace {

constexpr auto long_enough = 20s;

Packet packet(std::uint8_t byte) {
    return {std::chrono::steady_clock::now(), {byte}};
}

} // namespace

TEST(Inbox, GivesEverythingOnceAndInOrder) {
    Inbox inbox;
    inbox.put(packet(1));
    inbox.put(packet(2));
    const auto packets = inbox.take(long_enough);
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[0].bytes, Bytes{1});
    EXPECT_EQ(packets[1].bytes, Bytes{2});
    EXPECT_TRUE(inbox.take(0ms).empty());
}

TEST(Inbox, LosesNothingBetweenThreads) {
    constexpr unsigned int count = 20000;
    Inbox inbox;
    std::jthread sender([&] {
        for (unsigned int i = 0; i < count; ++i) {
            inbox.put(packet(static_cast<std::uint8_t>(i)));
        }
    });
    unsigned int taken = 0;
    while (taken < count) {
        const auto packets = inbox.take(long_enough);
        ASSERT_FALSE(packets.empty());
        for (const Packet& each : packets) {
            ASSERT_EQ(each.bytes, Bytes{static_cast<std::uint8_t>(taken++)});
        }
    }
}

TEST(Inbox, PatienceHasAnEnd) {
    Inbox inbox;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(inbox.take(20ms).empty());
    EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
    EXPECT_FALSE(inbox.is_pad_gone());
}

TEST(Inbox, NobodyWaitsForAPadThatHasGone) {
    Inbox inbox;
    const auto start = std::chrono::steady_clock::now();
    std::jthread sender([&] {
        std::this_thread::sleep_for(10ms);
        inbox.tell_pad_gone();
    });
    EXPECT_TRUE(inbox.take(long_enough).empty());
    EXPECT_TRUE(inbox.is_pad_gone());
    inbox.put(packet(1));
    EXPECT_EQ(inbox.take(long_enough).size(), 1U) << "what had come before can still be taken";
    EXPECT_LT(std::chrono::steady_clock::now() - start, long_enough);
}
