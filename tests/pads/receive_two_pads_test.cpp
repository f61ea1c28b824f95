// Two pads that are received from at once while a third thread asks both for features.
#include "receive_pad_test.hpp"

using namespace pads;

namespace {

class TwoPads : public ReceivingPads, public testing::WithParamInterface<int> {
  protected:
    static int second_pad() { return GetParam(); }
};

INSTANTIATE_TEST_SUITE_P(HidAnd, TwoPads, testing::Values(other_hid_pad, vcom_pad), name_of_pad);

// Each answer tells whose it is.
void ask_for_features(const Receiver& of, const std::u16string& serial, std::uint32_t number) {
    exchange_features(of, number);
    EXPECT_EQ(serial_number(of.device()), serial);
    EXPECT_EQ(number_of([&](auto* reply) { return GetFeatureReportSize(of.device(), 0, reply); }), 65U);
}

TEST_P(TwoPads, LoseNothingAndMixNothingUp) {
    initialize({hid_pad, second_pad()});
    auto& first = receiver(hid_pad);
    auto& second = receiver(second_pad());
    const std::u16string serials[]{serial_number(first.device()), serial_number(second.device())};
    ASSERT_NE(serials[0], serials[1]);
    for (auto* application : {&first, &second}) {
        application->listen();
        application->enable();
        play(application->pad(), 500);
    }
    const auto reports = static_cast<std::size_t>(times(1'000, 30'000));
    std::uint32_t asked = 0;
    EXPECT_TRUE(wait_for(
        [&] {
            ask_for_features(first, serials[0], asked);
            ask_for_features(second, serials[1], asked);
            ++asked;
            return first.count() >= reports && second.count() >= reports;
        },
        std::chrono::seconds(30 + reports / 50)));
    EXPECT_EQ(closed_while_read(), 0);
    expect_all_received(first);
    expect_all_received(second);
}

// Selecting either pad, again and again, reopens neither.
TEST_P(TwoPads, AreSelectedInTurn) {
    initialize({hid_pad, second_pad()});
    auto& first = receiver(hid_pad);
    auto& second = receiver(second_pad());
    for (auto* application : {&first, &second}) {
        application->listen();
        application->enable();
        play(application->pad(), 200);
    }
    run_at_once(3, [&](unsigned int thread) {
        EXPECT_TRUE(wait_for(
            [&] {
                const auto& application = thread == 0 ? first : second;
                unsigned int number = 0;
                if (thread == 2) {
                    EXPECT_EQ(EnumerateDevicesStart(&number), 0);
                    EXPECT_EQ(number, 1U);
                    EXPECT_EQ(EnumerateDevicesNext(&number), 0);
                } else {
                    const auto size =
                        number_of([&](auto* reply) { return GetFeatureReportSize(application.device(), 0, reply); });
                    EXPECT_EQ(size, 65U);
                }
                return first.count() >= 100 && second.count() >= 100;
            },
            30s));
    });
    EXPECT_EQ(closed_while_read(), 0);
    expect_all_received(first);
    expect_all_received(second);
}

} // namespace
