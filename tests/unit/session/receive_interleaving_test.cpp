// Calls that meet at any point where they can.
#include "session/receive_trace_points.hpp"

namespace receive_test {
namespace {

void select(unsigned int device) {
    std::array<char16_t, 32> text{};
    unsigned int length = 0;
    EXPECT_EQ(GetSerialNumber(device, text.data(), 32, &length), 0);
}

class Interleaving : public Receiving {};

TEST_F(Interleaving, ASwitchLeavesNobodyWithoutThePad) {
    const auto request = [] {
        Bytes report(64);
        EXPECT_EQ(core_get_hid_feature_report(0, report.data(), 64), 0) << "it waits where the pad is being reopened";
    };
    EXPECT_GT(interrupt_everywhere([] { select(1); }, request, [] { select(2); }), 3U);
}

TEST_F(Interleaving, AReopeningLeavesNobodyWithoutThePad) {
    for (const unsigned int interface : {0U, 1U}) {
        const auto request = [interface] {
            Bytes report(65);
            unsigned int reply = 0;
            EXPECT_EQ(GetFeature(1, interface, report.data(), 65, &reply), 0);
        };
        EXPECT_GT(interrupt_everywhere([] { EXPECT_EQ(__core_reopen_devs(), 1); }, request), 3U);
    }
}

TEST_F(Interleaving, AReopeningDoesNotDisturbAReceivingThatStarts) {
    for (const unsigned int interface : {0U, 1U}) {
        const std::string path = "1-1:1." + std::to_string(interface);
        const auto receive = [&] {
            EXPECT_EQ(SetDataReceivingEnabled(1, interface, 1), 0);
            EXPECT_TRUE(is_read(path));
            EXPECT_EQ(SetDataReceivingEnabled(1, interface, 0), 0);
            bus().take_log();
        };
        EXPECT_GT(interrupt_everywhere([] { EXPECT_EQ(__core_reopen_devs(), 1); }, receive), 3U);
    }
    EXPECT_THAT(bus().pauses(), Not(Contains(900'000U))) << "no read has failed";
}

struct Request {
    const char* name;
    int (*run)();
};
void PrintTo(const Request& request, std::ostream* out) {
    *out << request.name;
}

class OfAFurtherInterface : public Interleaving, public testing::WithParamInterface<Request> {};

TEST_P(OfAFurtherInterface, BearsASwitchAtAnyPoint) {
    const auto switch_away_and_back = [] {
        select(2);
        select(1);
    };
    EXPECT_GT(interrupt_everywhere([] { EXPECT_EQ(GetParam().run(), 0); }, switch_away_and_back), 3U);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, OfAFurtherInterface,
    testing::Values(Request{"SetFeature", [] { return SetFeature(1, 1, some_bytes, 65, &some_number); }},
                    Request{"GetFeature", [] { return GetFeature(1, 1, some_bytes, 65, &some_number); }},
                    Request{"WriteFile", [] { return WriteFile(1, 1, some_bytes, 65, &some_number); }},
                    Request{"ReadFile", [] { return ReadFile(1, 1, some_bytes, 65, &some_number); }},
                    Request{"SendSspMessage", [] { return SendSspMessage(1, 1, some_bytes, 4); }}),
    [](const auto& tested) { return std::string(tested.param.name); });

class WithTheTearDown : public Interleaving, public testing::WithParamInterface<Request> {};

TEST_P(WithTheTearDown, DoesNoHarmAtAnyPoint) {
    const auto stop = [] { EXPECT_EQ(Deinitialize(), 0); };
    const auto start = [] {
        ASSERT_EQ(Deinitialize(), 0);
        ASSERT_EQ(Initialize(), 0);
    };
    EXPECT_GT(interrupt_everywhere([] { GetParam().run(); }, stop, start), 1U);
    EXPECT_THAT(errors_.text(), Not(HasSubstr("dev_shared is NULL..."))) << "it went on without the core";
}

INSTANTIATE_TEST_SUITE_P(
    Calls, WithTheTearDown,
    testing::Values(Request{"Start", [] { return SetDataReceivingEnabled(1, 0, 1); }},
                    Request{"Stop", [] { return SetDataReceivingEnabled(1, 0, 0); }},
                    Request{"Flush", [] { return FlushDataPackets(1, 0); }},
                    Request{"Available", [] { return GetDataPacketsAvailable(1, 0, &some_number); }},
                    Request{"Handler", [] { return SetOnDataReceivedHandler(1, 0, nullptr, nullptr); }}),
    [](const auto& tested) { return std::string(tested.param.name); });

} // namespace
} // namespace receive_test
