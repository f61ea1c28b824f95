// The checked allocators over an allocator that fails on demand. This program replaces malloc, calloc, realloc and
// usleep for the whole process; only requests of one conspicuous size are made to fail.
#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
}

namespace {

constexpr std::size_t failing_size = 654'321;
int failures_left = 0;
std::array<unsigned int, 8> pauses;
std::size_t pause_count = 0;
bool print_pauses = false;

bool fails(std::size_t size) {
    if (size != failing_size || failures_left == 0) {
        return false;
    }
    --failures_left;
    errno = ENOMEM;
    return true;
}

} // namespace

extern "C" {

void* malloc(size_t size) noexcept {
    return fails(size) ? nullptr : __libc_malloc(size);
}

void* calloc(size_t count, size_t size) noexcept {
    return fails(count * size) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) noexcept {
    return fails(size) ? nullptr : __libc_realloc(block, size);
}

// Changes errno, as a sleep may that a signal ends.
int usleep(useconds_t microseconds) {
    if (pause_count < pauses.size()) {
        pauses[pause_count++] = microseconds;
    }
    if (print_pauses) {
        std::fprintf(stderr, "pause %u\n", microseconds);
    }
    errno = EINTR;
    return 0;
}
}

namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;

struct Allocator {
    const char* name; // of the function underneath
    void* (*call)();
    friend std::ostream& operator<<(std::ostream& out, const Allocator& one) { return out << one.name; }
};

class CheckedAllocator : public testing::TestWithParam<Allocator> {
  protected:
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        pause_count = 0;
        failures_left = 0;
    }

    // The line of a failed attempt, as a regular expression.
    static std::string retry(int pause) {
        return std::string("\x1b\\[31m[0-9]+: [0-9:.]{12}: [a-zA-Z_.]+: *[0-9]+: error: allocate memory by ") +
               GetParam().name + "\\(\\) -> FAILURE, going to try again after usleep\\(" + std::to_string(pause) +
               "\\)\x1b\\[0m\n";
    }

    struct Outcome {
        std::unique_ptr<void, decltype(&std::free)> block;
        std::string errors;
        std::vector<unsigned int> pauses;
    };

    static Outcome with_failures(int count) {
        failures_left = count;
        testing::internal::CaptureStderr();
        void* block = GetParam().call();
        return {{block, &std::free},
                testing::internal::GetCapturedStderr(),
                {pauses.begin(), pauses.begin() + pause_count}};
    }
};

TEST_P(CheckedAllocator, TriesOnceWhenThereIsMemory) {
    const Outcome outcome = with_failures(0);
    EXPECT_NE(outcome.block, nullptr);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_THAT(outcome.pauses, ElementsAre());
}

TEST_P(CheckedAllocator, PausesOnceAfterOneFailure) {
    const Outcome outcome = with_failures(1);
    EXPECT_NE(outcome.block, nullptr);
    EXPECT_THAT(outcome.errors, testing::MatchesRegex(retry(100)));
    EXPECT_THAT(outcome.pauses, ElementsAre(100));
}

TEST_P(CheckedAllocator, SucceedsAtTheThirdAttempt) {
    const Outcome outcome = with_failures(2);
    EXPECT_NE(outcome.block, nullptr);
    EXPECT_THAT(outcome.errors, testing::MatchesRegex(retry(100) + retry(600)));
    EXPECT_THAT(outcome.pauses, ElementsAre(100, 600));
}

TEST_P(CheckedAllocator, EndsTheProcessAfterThreeFailures) {
    const std::string expected = retry(100) + "pause 100\n" + retry(600) + "pause 600\n" + retry(1100) +
                                 "pause 1100\n[^\n]*error: " + GetParam().name +
                                 "\\(\\)(\x1b\\[0m)?: Cannot allocate memory\n";
    EXPECT_EXIT(
        {
            failures_left = 3;
            print_pauses = true;
            GetParam().call();
        },
        testing::ExitedWithCode(1), ContainsRegex(expected));
}

TEST_P(CheckedAllocator, TriesNoFourthTime) {
    EXPECT_EXIT(
        {
            failures_left = 4;
            std::atexit([] { std::fprintf(stderr, "failures left %d\n", failures_left); });
            GetParam().call();
        },
        testing::ExitedWithCode(1), HasSubstr("failures left 1\n"));
}

INSTANTIATE_TEST_SUITE_P(Functions, CheckedAllocator,
                         testing::Values(Allocator{"malloc", [] { return Malloc(failing_size); }},
                                         Allocator{"calloc", [] { return Calloc(1, failing_size); }},
                                         Allocator{"realloc", [] { return Realloc(nullptr, failing_size); }}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(CheckedAllocator, TellsTheLoggingCallback) {
    static std::vector<std::string> heard;
    heard.clear();
    const vxpad_logging_callback hear = [](void*, const char16_t* message) {
        const std::u16string_view text(message);
        heard.emplace_back(text.begin(), text.end());
    };
    RegisterLoggingCallBackProcedure(reinterpret_cast<void*>(hear), nullptr);
    heard.clear();
    with_failures(2);
    RegisterLoggingCallBackProcedure(nullptr, nullptr);
    const std::string start = std::string("allocate memory by ") + GetParam().name;
    EXPECT_THAT(heard, ElementsAre(HasSubstr(start + "() -> FAILURE, going to try again after usleep(100)"),
                                   HasSubstr(start + "() -> FAILURE, going to try again after usleep(600)")));
    EXPECT_THAT(heard, testing::Each(testing::StartsWith("error: ")));
}

TEST_P(CheckedAllocator, TellsTheLoggingCallbackOfTheEnd) {
    const vxpad_logging_callback print = [](void*, const char16_t* message) {
        const std::u16string_view text(message);
        std::fprintf(stderr, "heard %s\n", std::string(text.begin(), text.end()).c_str());
    };
    EXPECT_EXIT(
        {
            RegisterLoggingCallBackProcedure(reinterpret_cast<void*>(print), nullptr);
            failures_left = 3;
            GetParam().call();
        },
        testing::ExitedWithCode(1), ContainsRegex(std::string("heard error: [^\n]*: ") + GetParam().name + "\\(\\)\n"));
}

TEST(CheckedAllocators, ClearWhatCallocGives) {
    const std::unique_ptr<unsigned char, decltype(&std::free)> block(static_cast<unsigned char*>(Calloc(100, 3)),
                                                                     &std::free);
    EXPECT_EQ(std::count(block.get(), block.get() + 300, 0), 300);
}

TEST(CheckedAllocators, KeepTheContentsOfABlockThatGrowsAfterAFailure) {
    auto* small = static_cast<char*>(Malloc(10));
    std::memcpy(small, "123456789", 10);
    failures_left = 2;
    testing::internal::CaptureStderr();
    const std::unique_ptr<char, decltype(&std::free)> block(static_cast<char*>(Realloc(small, failing_size)),
                                                            &std::free);
    testing::internal::GetCapturedStderr();
    EXPECT_STREQ(block.get(), "123456789");
}

} // namespace
