// So many reports at such a rate: VXPAD_TEST_RATE tells which. The library's pauses are the real ones.
#include "receive_pad_test.hpp"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <unistd.h>

using namespace pads;

namespace {

// A thread that does nothing but the receive thread's pauses: how many of them pass while it is at work?
class OnlyPauses {
  public:
    ~OnlyPauses() {
        ends_ = true;
        thread_.join();
    }
    unsigned long count() const { return count_; }
    std::chrono::microseconds longest() const { return longest_; }

  private:
    std::atomic<bool> ends_{false};
    std::atomic<unsigned long> count_{0};
    std::atomic<std::chrono::microseconds> longest_{};
    std::thread thread_{[this] {
        for (auto last = std::chrono::steady_clock::now(); !ends_; ++count_) {
            usleep(500);
            const auto now = std::chrono::steady_clock::now();
            longest_ = std::max(longest_.load(), std::chrono::duration_cast<std::chrono::microseconds>(now - last));
            last = now;
        }
    }};
};

class Rate : public ReceivingPads {};

TEST_F(Rate, LosesNothing) {
    const char* rate_text = std::getenv("VXPAD_TEST_RATE");
    ASSERT_NE(rate_text, nullptr);
    const auto rate = static_cast<unsigned int>(std::stoul(rate_text));
    const auto reports = static_cast<unsigned int>(times(5'000, 100'000));
    const auto patience = std::chrono::seconds(2 * reports / rate + 60);

    initialize({hid_pad});
    auto& application = receiver(hid_pad);
    application.listen();
    application.enable();
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // the receive thread is at rest as the reports begin
    const OnlyPauses pauses;
    to_pad("play", hid_pad, std::to_string(reports) + " " + std::to_string(rate));
    EXPECT_TRUE(wait_for([&] { return application.last() == reports - 1; }, patience));
    expect_all_received(application);
    const auto [numbers, readings, longest_pause] = handed_out(hid_pad);
    const auto undisturbed = pauses.count();
    std::cout << "received " << application.count() << " of " << reports << ", " << reports - numbers.size()
              << " lost before hidapi handed them out (" << state_of(hid_pad, "inputs-lost") << " of them by the pad); "
              << readings << " readings, the longest pause " << longest_pause.count()
              << " us; of a thread that only pauses " << undisturbed << ", " << pauses.longest().count() << " us\n";
    // What hidapi loses on a busy machine is not the library's fault as long as it reads as often as its pauses let it.
    EXPECT_GT(readings, undisturbed / 2);
    EXPECT_EQ(application.waiting(), 0U);
}

} // namespace
