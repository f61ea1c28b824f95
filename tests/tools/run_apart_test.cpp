#include "run_apart.hpp"

#include "search_watch.hpp"

#include <csignal>
#include <gmock/gmock.h>
#include <stdexcept>
#include <unistd.h>

using namespace vxpadctl;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Optional;

namespace {

constexpr Patience long_patience{60s, 60s};

void tell_nobody(std::span<const std::size_t>, std::chrono::milliseconds) {}

std::string hang() {
    for (;;) {
        ::pause();
    }
}

} // namespace

TEST(RunApart, BringsTheResultOfEachPiece) {
    const std::string long_result(200'000, 'x');
    const std::vector<ApartWork> pieces{
        {[] { return std::string("one"); }}, {[] { return std::string(); }}, {[&] { return long_result; }}};
    EXPECT_THAT(run_apart(pieces, long_patience, tell_nobody),
                ElementsAre(Optional(std::string("one")), Optional(std::string()), Optional(long_result)));
}

TEST(RunApart, WhatFailsHasNoResultAndHarmsNobodyElse) {
    const std::vector<ApartWork> pieces{{[]() -> std::string { throw std::runtime_error("no"); }},
                                        {[] {
                                            ::raise(SIGKILL);
                                            return std::string();
                                        }},
                                        {[] { return std::string("well"); }}};
    EXPECT_THAT(run_apart(pieces, long_patience, tell_nobody),
                ElementsAre(std::nullopt, std::nullopt, Optional(std::string("well"))));
}

TEST(RunApart, WhatHangsIsEndedAndToldOf) {
    const std::vector<ApartWork> pieces{{[] { return std::string("well"); }}, {hang}};
    std::vector<std::size_t> told;
    const auto results = run_apart(pieces, {1500ms, 300ms}, [&](auto waited_for, auto) {
        told.insert(told.end(), waited_for.begin(), waited_for.end());
    });
    EXPECT_EQ(results[1], std::nullopt);
    EXPECT_THAT(told, Contains(1U));
}

TEST(RunApart, WhatIsMootIsEndedBeforeItsTime) {
    const std::vector<ApartWork> pieces{{hang, [] { return true; }}};
    EXPECT_THAT(run_apart(pieces, {1h, 1h}, tell_nobody), ElementsAre(std::nullopt));
}

TEST(RunApart, NothingIsDoneAtOnce) {
    EXPECT_TRUE(run_apart({}, {1h, 1h}, tell_nobody).empty());
}

TEST(WaitingTime, IsToldAfterTwoSecondsAndThenEveryFive) {
    const WaitingTime::Clock::time_point start;
    WaitingTime time;
    EXPECT_EQ(time.see(0, start), std::nullopt);
    EXPECT_EQ(time.see(0, start + 1999ms), std::nullopt);
    EXPECT_EQ(time.see(0, start + 2000ms), 2s);
    EXPECT_EQ(time.see(0, start + 6900ms), std::nullopt);
    EXPECT_EQ(time.see(0, start + 7100ms), 7s);
}

TEST(WaitingTime, BeginsAnewWithEachPad) {
    const WaitingTime::Clock::time_point start;
    WaitingTime time;
    time.see(0, start);
    EXPECT_EQ(time.see(1, start + 1900ms), std::nullopt);
    EXPECT_EQ(time.see(1, start + 2100ms), std::nullopt);
    EXPECT_EQ(time.see(1, start + 4000ms), 2s);
}
