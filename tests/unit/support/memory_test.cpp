#include "support/memory.hpp"

#include <gtest/gtest.h>

namespace {

TEST(CheckedShared, IsMadeOfItsArgumentsAndDestroyedWithItsLastOwner) {
    struct Counted {
        Counted(int& count, int number) : alive{count}, value{number} { ++alive; }
        ~Counted() { --alive; }
        int& alive;
        int value;
    };
    int alive = 0;
    auto first = checked::make_shared<Counted>(alive, 7);
    auto second = first;
    EXPECT_EQ(second->value, 7);
    first.reset();
    EXPECT_EQ(alive, 1);
    second.reset();
    EXPECT_EQ(alive, 0);
}

} // namespace
