#include "support/memory.hpp"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

namespace {

TEST(CheckedFifo, GivesBackWhatCameFirst) {
    checked::Fifo<std::string> fifo;
    EXPECT_TRUE(fifo.empty());
    EXPECT_EQ(fifo.take_first(), std::nullopt);
    const std::string longer(100, 'x'); // has memory of its own, which must not be lost
    fifo.push_back("one");
    fifo.push_back(longer);
    EXPECT_EQ(fifo.take_first(), "one");
    fifo.push_back("three");
    EXPECT_FALSE(fifo.empty());
    EXPECT_EQ(fifo.take_first(), longer);
    EXPECT_EQ(fifo.take_first(), "three");
    EXPECT_TRUE(fifo.empty());
    EXPECT_EQ(fifo.take_first(), std::nullopt);
    fifo.push_back("again");
    EXPECT_EQ(fifo.take_first(), "again");
}

// Or a thread's own would be destroyed as the process ends.
static_assert(std::is_trivially_destructible_v<checked::Fifo<std::string>>);

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
