// Memory and locks that the system refuses to the library, once each, in the middle of its work. This program replaces
// malloc, calloc, realloc, operator new and pthread_mutex_init for the whole process; only what the library itself asks
// for is refused.
#include "base/library_range.hpp"
#include "captures.hpp"
#include "standins.hpp"
#include "vxpadcom/internals/uni_queue.h"
#include "vxpadcom/vxpadcom.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
}

namespace {

LibraryRange library;

constexpr int never = std::numeric_limits<int>::max();

// Requests of the library that are still granted; then one is refused, or all where it is for good.
struct Refusal {
    std::atomic<int> granted = never;
    std::atomic<bool> for_good = false;

    bool due(const void* caller) {
        if (granted == never || !library.contains(caller)) {
            return false;
        }
        const int before = granted.fetch_sub(1);
        return before == 0 || (before < 0 && for_good);
    }
    // What was not granted any more: whether there was a refusal.
    bool came() const { return granted < 0; }
};
Refusal memory;
Refusal locks;
Refusal waits;
std::atomic<bool> no_lock_works = false;

constexpr int rubbish = 0xA5;

} // namespace

extern "C" {

void* malloc(size_t size) noexcept {
    const void* caller = __builtin_return_address(0);
    if (memory.due(caller)) {
        errno = ENOMEM;
        return nullptr;
    }
    void* block = __libc_malloc(size);
    if (block != nullptr && library.contains(caller)) {
        std::memset(block, rubbish, size);
    }
    return block;
}

void* calloc(size_t count, size_t size) noexcept {
    if (memory.due(__builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) noexcept {
    if (memory.due(__builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_realloc(block, size);
}

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) noexcept {
    if (locks.due(__builtin_return_address(0))) {
        return EAGAIN;
    }
    static const auto real = reinterpret_cast<decltype(&pthread_mutex_init)>(dlsym(RTLD_NEXT, "pthread_mutex_init"));
    return real(mutex, attributes);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    if (no_lock_works && library.contains(__builtin_return_address(0))) {
        return EINVAL;
    }
    static const auto real = reinterpret_cast<decltype(&pthread_mutex_lock)>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    return real(mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    if (no_lock_works && library.contains(__builtin_return_address(0))) {
        return EPERM;
    }
    static const auto real =
        reinterpret_cast<decltype(&pthread_mutex_unlock)>(dlsym(RTLD_NEXT, "pthread_mutex_unlock"));
    return real(mutex);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    if (waits.due(__builtin_return_address(0))) {
        return EINVAL;
    }
    static const auto real = reinterpret_cast<decltype(&pthread_cond_wait)>(dlsym(RTLD_NEXT, "pthread_cond_wait"));
    return real(condition, mutex);
}
}

void* operator new(size_t size) {
    void* block = memory.due(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, size_t) noexcept {
    std::free(block);
}

namespace {

using standins::bus;
using standins::Bytes;
using testing::HasSubstr;
using testing::Not;

// What applications are told to have done.
struct Outcome {
    int initialized = -1;
    unsigned int pads = 0;
    int feature = -1;
    int wide_feature = -1;
    int handler = -1;
    int receiving = -1;
    bool received = false;
    int uploaded = -1;
    int stopped = -1;
    int ended = -1;

    bool operator==(const Outcome&) const = default;
};

class Refusals : public testing::Test {
  protected:
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        library = LibraryRange::find();
    }
    void TearDown() override { grant_everything(); }

    static void grant_everything() {
        memory.granted = never;
        memory.for_good = false;
        locks.granted = never;
        locks.for_good = false;
        waits.granted = never;
        waits.for_good = false;
    }

    static void plug_pads() {
        bus().reset();
        bus().plug(standins::pad_of_type(9)).input_reports.assign(3, Bytes(64, 7));
        bus().plug(standins::vcom_pad());
        bus().hooks.usleep = [](unsigned int) { std::this_thread::sleep_for(std::chrono::microseconds(50)); };
    }

    // A day at the counter, short.
    static Outcome work() {
        plug_pads();
        Outcome outcome;
        outcome.initialized = Initialize();
        {
            const standins::LogCapture log; // so that there is something to deliver behind each lock
            EnumerateDevicesStart(&outcome.pads);
            unsigned char report[65] = {0, 9};
            unsigned int reply = 0;
            outcome.feature = SetFeature(1, 0, report, sizeof report, &reply);
            unsigned char wide[200] = {};
            outcome.wide_feature = GetFeature(1, 0, wide, sizeof wide, &reply);
            std::atomic<int> count = 0;
            outcome.handler = SetOnDataReceivedHandler(
                1, 0,
                [](void* counted, unsigned int, unsigned int, const void*, unsigned int) {
                    ++*static_cast<std::atomic<int>*>(counted);
                },
                &count);
            outcome.receiving = SetDataReceivingEnabled(1, 0, 1);
            const auto end =
                std::chrono::steady_clock::now() + std::chrono::milliseconds(outcome.receiving == 0 ? 5000 : 0);
            while (count < 3 && std::chrono::steady_clock::now() < end) {
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
            outcome.received = count == 3;
            outcome.uploaded = WriteFileBuffer(1, 1, report, sizeof report, &reply);
            outcome.stopped = SetDataReceivingEnabled(1, 0, 0);
            SetOnDataReceivedHandler(1, 0, nullptr, nullptr);
            outcome.ended = Deinitialize();
        }
        return outcome;
    }

    // Without a death, and what was said on standard error.
    static Outcome work_quietly(std::string& errors) {
        standins::OutputCapture capture(STDERR_FILENO);
        const Outcome outcome = work();
        errors = capture.text();
        return outcome;
    }
};

// Whatever is refused once is asked for again, and nobody outside notices.
TEST_F(Refusals, OfOneBlockOfMemoryChangeNothing) {
    std::string errors;
    const Outcome usual = work_quietly(errors);
    EXPECT_EQ(usual.pads, 1U);
    EXPECT_TRUE(usual.received);
    EXPECT_EQ(usual.receiving, 0);
    EXPECT_EQ(usual.ended, 0);
    int refused = 0;
    for (int granted = 0; granted < 3000; ++granted) {
        memory.granted = granted;
        const Outcome outcome = work_quietly(errors);
        const bool came = memory.came();
        grant_everything();
        if (!came) {
            break;
        }
        ++refused;
        ASSERT_TRUE(outcome == usual) << granted << ": " << errors;
        ASSERT_THAT(errors, HasSubstr("-> FAILURE, going to try again after usleep(100)")) << granted;
    }
    EXPECT_GT(refused, 20);
}

// A record whose lock could not be initialised, a queue that could not be made.
TEST_F(Refusals, OfOneLockEndNoProcess) {
    std::string errors;
    const Outcome usual = work_quietly(errors);
    int refused = 0;
    for (int granted = 0; granted < 1000; ++granted) {
        locks.granted = granted;
        const Outcome outcome = work_quietly(errors);
        const bool came = locks.came();
        grant_everything();
        if (!came) {
            break;
        }
        ++refused;
        ASSERT_THAT(errors, HasSubstr("pthread_mutex_init()")) << granted;
        ASSERT_THAT(errors, Not(HasSubstr("pthread_mutex_lock()"))) << granted;
        EXPECT_EQ(outcome.initialized, 0);
        EXPECT_EQ(outcome.feature, usual.feature) << "a zeroed lock is a lock";
        EXPECT_EQ(outcome.received, outcome.receiving == 0) << granted << ": reports must not go nowhere";
        EXPECT_EQ(outcome.ended, 0);
        ASSERT_TRUE(work_quietly(errors) == usual) << granted << ": afterwards all is well again";
    }
    EXPECT_GT(refused, 1);
}

std::ptrdiff_t count_of(const std::string& text, const std::string& part) {
    std::ptrdiff_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// What waits for a thread keeps looking for it, and says once that it cannot wait.
TEST_F(Refusals, OfEveryWaitHoldUpNobody) {
    std::string errors;
    const Outcome usual = work_quietly(errors);
    waits.for_good = true;
    waits.granted = 0;
    const Outcome outcome = work_quietly(errors);
    EXPECT_TRUE(waits.came());
    grant_everything();
    EXPECT_TRUE(outcome == usual) << errors;
    EXPECT_GT(count_of(errors, "pthread_cond_wait()"), 0);
    EXPECT_LE(count_of(errors, "pthread_cond_wait()"), 10) << "a line for each wait";
}

// Without a callback the thread ends at once. Where no lock keeps it waiting, its end comes before its start is over.
TEST_F(Refusals, OfLocksLeaveNoCallbackThreadBehindThatHasGone) {
    std::string errors;
    const Outcome usual = work_quietly(errors);
    plug_pads();
    {
        standins::OutputCapture capture(STDERR_FILENO);
        Initialize();
        no_lock_works = true;
        waits.for_good = true; // then the start is waited for with pauses
        waits.granted = 0;
        bus().hooks.usleep = [](unsigned int) { std::this_thread::sleep_for(std::chrono::milliseconds(20)); };
        SetOnDataReceivedHandler(1, 0, nullptr, nullptr);
        no_lock_works = false;
        grant_everything();
        Deinitialize();
    }
    EXPECT_TRUE(work_quietly(errors) == usual) << errors;
}

// An answer that has nowhere to go is not asked for again and again.
TEST_F(Refusals, OfAQueueEndARequestAtOnce) {
    bus().reset();
    bus().plug(standins::vcom_pad()).answer = [](standins::UsbDevice& pad, const Bytes&) {
        pad.incoming.push_back({0xAA, 0x55, 2, 0x81, 1, 0});
    };
    // The pad's lock, its two queues, and those into which what it sends is cut.
    for (const int granted : {0, 1, 2, 3, 4}) {
        std::string errors;
        bus().take_log();
        {
            standins::OutputCapture capture(STDERR_FILENO);
            locks.for_good = true;
            locks.granted = granted;
            EXPECT_EQ(Initialize(), 0);
            EXPECT_TRUE(locks.came());
            grant_everything();
            errors = capture.text();
            Deinitialize();
        }
        EXPECT_LE(count_of(errors, "init_uni_queue()"), 30) << granted;
        EXPECT_LE(bus().log("libusb_bulk_transfer").size(), 50U) << granted;
    }
}

void initialize() {
    bus().reset();
    bus().plug(standins::pad_of_type(9));
    Initialize();
}

// Till the process ends: what counts lines, for one, writes them down then.
void refuse_for_good() {
    std::atexit([] { memory.for_good = false; });
    memory.for_good = true;
    memory.granted = 0;
}

void initialize_and_refuse() {
    initialize();
    refuse_for_good();
}

void ignore_message(void*, const char16_t*) {}

TEST_F(Refusals, ForGoodEndTheProcessWithTheLineWhereACallLogs) {
    EXPECT_EXIT(
        {
            initialize();
            RegisterLoggingCallBackProcedure(reinterpret_cast<void*>(&ignore_message), nullptr);
            refuse_for_good();
            IsInitialized(); // it says so while it holds the list's lock
        },
        testing::ExitedWithCode(1), HasSubstr("error: malloc()"));
}

// A message waits behind a lock, and so does the line that its memory was refused.
TEST_F(Refusals, OfAMessagesMemoryAreToldToTheLoggingCallback) {
    plug_pads();
    ASSERT_EQ(Initialize(), 0);
    standins::LogCapture log;
    log.clear();
    IsInitialized();
    const std::vector<std::string> usual = log.messages();
    std::string errors;
    {
        standins::OutputCapture capture(STDERR_FILENO);
        memory.granted = 0;
        IsInitialized();
        grant_everything();
        errors = capture.text();
    }
    std::vector<std::string> expected(usual);
    expected.insert(expected.end(), usual.begin(), usual.end());
    const std::string refused = "allocate memory by malloc() -> FAILURE, going to try again after usleep(100)";
    EXPECT_THAT(errors, HasSubstr(refused));
    std::vector<std::string> heard = log.messages();
    const auto found = std::find_if(heard.begin(), heard.end(),
                                    [&](const std::string& message) { return message.ends_with(refused); });
    ASSERT_NE(found, heard.end());
    heard.erase(found);
    EXPECT_EQ(heard, expected);
    Deinitialize();
}

// A queue and its records come from calloc(), which the line of a refused one names.
TEST_F(Refusals, OfAQueuesBlocksNameTheirAllocator) {
    const auto refused = [](const std::function<void()>& call) {
        standins::OutputCapture capture(STDERR_FILENO);
        memory.granted = 0;
        call();
        grant_everything();
        return capture.text();
    };
    const std::string line = "allocate memory by calloc() -> FAILURE, going to try again after usleep(100)";
    uni_queue* queue = nullptr;
    EXPECT_THAT(refused([&] { queue = init_uni_queue(); }), HasSubstr(line));
    EXPECT_THAT(refused([&] { add_uni_frame(queue, nullptr, 0); }), HasSubstr(line));
    destroy_uni_queue(queue);
}

TEST_F(Refusals, ForGoodEndTheProcessWithTheLineWhereReceivingStarts) {
    EXPECT_EXIT(
        {
            initialize_and_refuse();
            SetDataReceivingEnabled(1, 0, 1);
        },
        testing::ExitedWithCode(1), HasSubstr("error: calloc()"));
    EXPECT_EXIT(
        {
            initialize_and_refuse();
            SetOnDataReceivedHandler(1, 0, nullptr, nullptr);
        },
        testing::ExitedWithCode(1), HasSubstr("error: calloc()"));
}

TEST_F(Refusals, DoNotStopTheTearDown) {
    std::string errors;
    plug_pads();
    {
        standins::OutputCapture capture(STDERR_FILENO);
        Initialize();
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
        memory.granted = 0;
        EXPECT_EQ(Deinitialize(), 0);
        grant_everything();
    }
}

} // namespace
