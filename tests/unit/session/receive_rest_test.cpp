// A receive thread that has read nothing for a while lets the kernel end its pauses late.
#include "receive_test.hpp"

#include <sys/prctl.h>

namespace receive_test {
namespace {

constexpr int wide = 4'000'000;
constexpr std::size_t reads_before_rest = 200;

class ReceiveRest : public Receiving {
  protected:
    void SetUp() override {
        Receiving::SetUp();
        bus().hooks.usleep = [this](unsigned int microseconds) {
            if (microseconds == 500) {
                const std::lock_guard lock(mutex_);
                slacks_.push_back(prctl(PR_GET_TIMERSLACK));
            }
            std::this_thread::yield();
        };
    }
    void TearDown() override {
        SetDataReceivingEnabled(1, 0, 0);
        Receiving::TearDown();
    }

    // Of the first pauses of 500 us.
    std::vector<int> slacks(std::size_t count) {
        std::vector<int> found;
        EXPECT_TRUE(comes_true([&] {
            const std::lock_guard lock(mutex_);
            found = slacks_;
            return found.size() >= count;
        }));
        found.resize(std::min(found.size(), count));
        return found;
    }

    // The receive thread uses them until TearDown().
    std::atomic<int> readings_{0};
    std::atomic<int> other_slacks_{0};
    const int ordinary_ = prctl(PR_GET_TIMERSLACK); // as threads inherit it

  private:
    std::mutex mutex_;
    std::vector<int> slacks_;
};

TEST_F(ReceiveRest, PausesEndOnTimeUntilNothingHasComeForAWhile) {
    ASSERT_NE(ordinary_, wide);
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    std::vector<int> expected(reads_before_rest - 1, ordinary_);
    expected.resize(reads_before_rest + 50, wide);
    EXPECT_EQ(slacks(expected.size()), expected);
}

TEST_F(ReceiveRest, EndsWithTheFirstReport) {
    constexpr int reading_with_report = 300;
    bus().hooks.read = [&](auto&&...) {
        if (++readings_ == reading_with_report) {
            give(*first_, report_of(1, 0));
        }
        return std::optional<int>{};
    };
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    std::vector<int> expected(reads_before_rest - 1, ordinary_);
    expected.resize(reading_with_report - 1, wide);
    expected.resize(reading_with_report + reads_before_rest - 1, ordinary_);
    expected.resize(expected.size() + 50, wide);
    EXPECT_EQ(slacks(expected.size()), expected);
}

TEST_F(ReceiveRest, IsForPausesOnly) {
    bus().hooks.read = [&](auto&&...) {
        ++readings_;
        other_slacks_ += prctl(PR_GET_TIMERSLACK) == ordinary_ ? 0 : 1;
        return std::optional<int>{};
    };
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    EXPECT_TRUE(comes_true([&] { return readings_ > 300; }));
    EXPECT_EQ(other_slacks_, 0);
}

} // namespace
} // namespace receive_test
