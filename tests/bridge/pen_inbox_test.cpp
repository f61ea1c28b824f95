#include "pads/pen_inbox.hpp"

#include <array>
#include <cstdint>
#include <gtest/gtest.h>

namespace {

const std::array<std::uint8_t, 2> bytes{1, 2};

TEST(PenInbox, TellsOnceUntilItIsEmptied) {
    int told = 0;
    bridge::PenInbox inbox{[&] { ++told; }};
    inbox.put(1, 0, bytes);
    inbox.put(2, 1, bytes);
    EXPECT_EQ(told, 1);
    const auto packets = inbox.take();
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[1].pad, 2U);
    EXPECT_EQ(packets[1].interface, 1U);
    EXPECT_EQ(packets[1].bytes, std::vector<std::uint8_t>({1, 2}));
    EXPECT_LE(packets[0].at, packets[1].at);
    EXPECT_TRUE(inbox.take().empty());
    inbox.put(1, 0, bytes);
    EXPECT_EQ(told, 2);
}

TEST(PenInbox, HasABound) {
    bridge::PenInbox inbox{[] {}};
    for (std::size_t i = 0; i < bridge::PenInbox::most_waiting + 5; ++i) {
        inbox.put(1, 0, bytes);
    }
    EXPECT_EQ(inbox.take().size(), bridge::PenInbox::most_waiting);
}

} // namespace
