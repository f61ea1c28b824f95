#include "bus_watch.hpp"

#include <gmock/gmock.h>

using namespace vxpadctl;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr BusPlace place_a{1, 2};
constexpr BusPlace place_b{1, 3};

WatchedDevice device(const char* serial) {
    return {{0xf1a0, 0x1001}, "1-1", "Maker", serial};
}

std::string told(const std::optional<BusChange>& change) {
    if (!change) {
        return "nothing";
    }
    return (change->kind == BusChange::Kind::arrived ? "+" : "-") + change->device.serial;
}

std::vector<std::string> told(const std::vector<BusChange>& changes) {
    std::vector<std::string> texts;
    for (const BusChange& change : changes) {
        texts.push_back(told(std::optional(change)));
    }
    return texts;
}

} // namespace

TEST(Presence, NewsAreToldOnce) {
    Presence presence{{{place_a, device("A")}}};
    EXPECT_EQ(told(presence.hear_arrived(place_a, device("A"))), "nothing");
    EXPECT_EQ(told(presence.hear_left(place_a)), "-A");
    EXPECT_EQ(told(presence.hear_left(place_a)), "nothing");
    EXPECT_EQ(told(presence.hear_arrived(place_b, device("B"))), "+B");
    EXPECT_THAT(told(presence.look({{place_b, device("B")}})), IsEmpty());
}

TEST(Presence, WithoutNewsTwoLooksTell) {
    Presence presence{{{place_a, device("A")}}};
    EXPECT_THAT(told(presence.look({{place_b, device("B")}})), IsEmpty());
    EXPECT_THAT(told(presence.look({{place_b, device("B")}})), ElementsAre("-A", "+B"));
    EXPECT_THAT(told(presence.look({{place_b, device("B")}})), IsEmpty());
    EXPECT_THAT(told(presence.look({})), IsEmpty());
    EXPECT_THAT(told(presence.look({})), ElementsAre("-B"));
}

TEST(Presence, NewsBehindALookAreToldInTheirOrder) {
    Presence presence{{}};
    EXPECT_THAT(told(presence.look({{place_b, device("B")}})), IsEmpty());
    EXPECT_EQ(told(presence.hear_arrived(place_a, device("A"))), "+A");
    EXPECT_EQ(told(presence.hear_left(place_a)), "-A");
    EXPECT_EQ(told(presence.hear_arrived(place_b, device("B"))), "+B");
    EXPECT_THAT(told(presence.look({{place_b, device("B")}})), IsEmpty());
    EXPECT_THAT(told(presence.look({{place_b, device("B")}})), IsEmpty());
}

TEST(Presence, NewsBehindTwoLooksAreNoneAnyMore) {
    Presence presence{{}};
    presence.look({{place_a, device("A")}});
    EXPECT_THAT(told(presence.look({{place_a, device("A")}})), ElementsAre("+A"));
    EXPECT_EQ(told(presence.hear_arrived(place_a, device("A"))), "nothing");
}

TEST(Presence, NewsEndADoubt) {
    Presence presence{{{place_a, device("A")}}};
    EXPECT_THAT(told(presence.look({})), IsEmpty());
    EXPECT_EQ(told(presence.hear_left(place_a)), "-A");
    EXPECT_THAT(told(presence.look({{place_a, device("B")}})), IsEmpty()) << "one look is not enough";
    EXPECT_EQ(told(presence.hear_arrived(place_a, device("B"))), "+B");
    EXPECT_THAT(told(presence.look({})), IsEmpty());
}

TEST(Presence, ADoubtThatPassesIsForgotten) {
    Presence presence{{{place_a, device("A")}}};
    EXPECT_THAT(told(presence.look({})), IsEmpty());
    EXPECT_THAT(told(presence.look({{place_a, device("A")}})), IsEmpty());
    EXPECT_THAT(told(presence.look({})), IsEmpty());
}
