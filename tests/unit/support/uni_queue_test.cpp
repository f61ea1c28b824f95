#include "support/lines.hpp"

#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using standins::EnvironmentGuard;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

struct Free {
    void operator()(void* block) const { std::free(block); }
};
using Buffer = std::unique_ptr<unsigned char, Free>;

Buffer buffer_of(unsigned int length) {
    return Buffer(static_cast<unsigned char*>(std::calloc(1, length)));
}

// The buffer belongs to the queue afterwards.
unsigned char* add(uni_queue* queue, unsigned int length) {
    Buffer buffer = buffer_of(length);
    EXPECT_EQ(add_uni_frame(queue, buffer.get(), length), 1);
    return buffer.release();
}

// Everything that calls say, on either stream and to the callback.
template <class Call> std::string said(Call call) {
    const EnvironmentGuard on(lines::debug_switch, "1");
    std::string errors;
    const std::string output = lines::written(STDOUT_FILENO, [&] { errors = lines::written(STDERR_FILENO, call); });
    return output + errors;
}

class Queue : public testing::Test {
  protected:
    void TearDown() override { destroy_uni_queue(queue_); }

    // A mutex that notices wrong use, in place of the plain one.
    void make_lock_errors_visible() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
        pthread_mutex_destroy(&queue_->mutex);
        pthread_mutex_init(&queue_->mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }

    lines::AllSwitchesOff off_;
    uni_queue* queue_ = init_uni_queue();
};

TEST_F(Queue, StartsEmpty) {
    ASSERT_NE(queue_, nullptr);
    EXPECT_EQ(queue_->size, 0);
    EXPECT_EQ(queue_->first, nullptr);
    EXPECT_EQ(queue_->last, nullptr);
    EXPECT_EQ(get_uni_queue_size(queue_), 0);
    EXPECT_EQ(quiet_lock_queue(queue_), 0);
    EXPECT_EQ(quiet_unlock_queue(queue_), 0);
}

TEST_F(Queue, BeginsWithItsMutex) {
    EXPECT_EQ(offsetof(uni_queue, mutex), 0U);
    EXPECT_EQ(pthread_mutex_lock(reinterpret_cast<pthread_mutex_t*>(queue_)), 0);
    EXPECT_EQ(pthread_mutex_trylock(&queue_->mutex), EBUSY);
    EXPECT_EQ(quiet_unlock_queue(queue_), 0);
}

TEST_F(Queue, GivesNothingWhileEmptyAndLeavesTheLengthAlone) {
    unsigned int length = 4711;
    EXPECT_THAT(said([&] { EXPECT_EQ(get_uni_frame(queue_, &length), nullptr); }), HasSubstr("queue is empty"));
    EXPECT_EQ(length, 4711U);
}

TEST_F(Queue, HandsOutTheVeryBuffersInTheOrderInWhichTheyCame) {
    std::vector<unsigned char*> added;
    for (unsigned int length = 1; length <= 5; ++length) {
        added.push_back(add(queue_, length));
    }
    EXPECT_EQ(get_uni_queue_size(queue_), 5);

    for (unsigned int expected = 1; expected <= 5; ++expected) {
        unsigned int length = 0;
        const Buffer taken(static_cast<unsigned char*>(get_uni_frame(queue_, &length)));
        EXPECT_EQ(taken.get(), added[expected - 1]);
        EXPECT_EQ(length, expected);
        EXPECT_EQ(get_uni_queue_size(queue_), static_cast<int>(5 - expected));
    }
    EXPECT_EQ(queue_->first, nullptr);
    EXPECT_EQ(queue_->last, nullptr);
    EXPECT_EQ(queue_->size, 0);
}

TEST_F(Queue, ThatWasEmptiedTakesANewFrameAsFirstAndLast) {
    add(queue_, 1);
    unsigned int length = 0;
    const Buffer taken(static_cast<unsigned char*>(get_uni_frame(queue_, &length)));
    const unsigned char* next = add(queue_, 2);
    ASSERT_NE(queue_->first, nullptr);
    EXPECT_EQ(queue_->first, queue_->last);
    EXPECT_EQ(queue_->first->data, next);
    EXPECT_EQ(queue_->first->length, 2U);
    EXPECT_EQ(queue_->first->next, nullptr);
}

TEST_F(Queue, LinksItsFramesFromOldestToNewest) {
    const unsigned char* oldest = add(queue_, 1);
    add(queue_, 2);
    const unsigned char* newest = add(queue_, 3);
    EXPECT_EQ(queue_->first->data, oldest);
    EXPECT_EQ(queue_->last->data, newest);
    EXPECT_EQ(queue_->first->next->next, queue_->last);
    EXPECT_EQ(queue_->last->next, nullptr);
}

TEST_F(Queue, StaysUsableAfterAClear) {
    for (int i = 0; i < 3; ++i) {
        add(queue_, 10);
    }
    ASSERT_EQ(quiet_lock_queue(queue_), 0);
    clear_uni_queue(queue_);
    EXPECT_EQ(quiet_unlock_queue(queue_), 0);
    EXPECT_EQ(get_uni_queue_size(queue_), 0);
    EXPECT_EQ(queue_->first, nullptr);
    EXPECT_EQ(queue_->last, nullptr);
    add(queue_, 4);
    EXPECT_EQ(get_uni_queue_size(queue_), 1);
}

TEST_F(Queue, DestroyedWhileFullFreesItsFrames) { // the leak checker is the judge
    for (unsigned int length = 1; length < 100; ++length) {
        add(queue_, length);
    }
}

TEST_F(Queue, HoldsNoLockAfterAnAddition) {
    add(queue_, 1);
    EXPECT_EQ(pthread_mutex_trylock(&queue_->mutex), 0);
    EXPECT_EQ(quiet_unlock_queue(queue_), 0);
}

TEST_F(Queue, AdditionWaitsForTheLock) {
    ASSERT_EQ(quiet_lock_queue(queue_), 0);
    std::thread writer([&] { add(queue_, 7); });
    EXPECT_EQ(get_uni_queue_size(queue_), 0);
    EXPECT_EQ(quiet_unlock_queue(queue_), 0);
    writer.join();
    EXPECT_EQ(get_uni_queue_size(queue_), 1);
}

TEST_F(Queue, ThatCannotBeLockedRefusesTheFrameAndLeavesItToTheCaller) {
    make_lock_errors_visible();
    ASSERT_EQ(pthread_mutex_lock(&queue_->mutex), 0);
    const Buffer buffer = buffer_of(3);
    EXPECT_EQ(add_uni_frame(queue_, buffer.get(), 3), 0);
    EXPECT_EQ(get_uni_queue_size(queue_), 0);
    EXPECT_EQ(__lock_uni_queue(queue_), EDEADLK);
    EXPECT_EQ(quiet_lock_queue(queue_), EDEADLK);
    EXPECT_EQ(quiet_unlock_queue(queue_), 0);
}

TEST_F(Queue, ThatCannotBeLockedIsNotDestroyed) {
    make_lock_errors_visible();
    add(queue_, 3);
    ASSERT_EQ(pthread_mutex_lock(&queue_->mutex), 0);
    destroy_uni_queue(queue_);
    EXPECT_EQ(get_uni_queue_size(queue_), 1);
    EXPECT_EQ(quiet_unlock_queue(queue_), 0);
}

#if !VXPAD_THREAD_SANITIZER
TEST_F(Queue, UnlockingWithoutALockReportsTheMutexError) {
    make_lock_errors_visible();
    EXPECT_THAT(said([&] { EXPECT_EQ(quiet_unlock_queue(queue_), EPERM); }),
                HasSubstr("pthread_mutex_lock() return error!"));
}

// A mutex that the same thread holds once more.
TEST_F(Queue, IsFreedThoughItsMutexCannotBeDestroyed) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_destroy(&queue_->mutex);
    pthread_mutex_init(&queue_->mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    add(queue_, 3);
    ASSERT_EQ(pthread_mutex_lock(&queue_->mutex), 0);
    EXPECT_THAT(said([&] { destroy_uni_queue(std::exchange(queue_, nullptr)); }),
                HasSubstr("error: pthread_mutex_init, uni_queue.cpp:"));
}
#endif

TEST_F(Queue, LockingIsTracedUnderTheQueuesAddress) {
    const EnvironmentGuard on(lines::mutex_switch, "1");
    const auto printed =
        lines::parse_output(lines::written(STDOUT_FILENO, [&] { EXPECT_EQ(__lock_uni_queue(queue_), 0); }));
    EXPECT_EQ(quiet_unlock_queue(queue_), 0);
    std::array<char, 64> name{};
    std::snprintf(name.data(), name.size(), "queue[%p]->mutex", static_cast<void*>(queue_));
    EXPECT_THAT(
        lines::texts(printed, lines::yellow),
        ElementsAre(std::string("__lock_uni_queue(): >>>>>>>>     going to pthread_mutex_lock() -> ") + name.data(),
                    std::string("__lock_uni_queue(): ########   was called pthread_mutex_lock() -> ") + name.data()));
}

TEST_F(Queue, QuietLockingIsNotTraced) {
    const EnvironmentGuard on(lines::mutex_switch, "1");
    EXPECT_EQ(lines::written(STDOUT_FILENO, [&] { EXPECT_EQ(quiet_lock_queue(queue_), 0); }), "");
    EXPECT_EQ(quiet_unlock_queue(queue_), 0);
}

TEST_F(Queue, SaysNoErrorWhileAllIsWell) {
    const auto work = [] {
        uni_queue* const queue = init_uni_queue();
        add(queue, 3);
        add(queue, 4);
        add(queue, 5);
        unsigned int length = 0;
        EXPECT_EQ(quiet_lock_queue(queue), 0);
        EXPECT_EQ(get_uni_queue_size(queue), 3);
        std::free(get_uni_frame(queue, &length));
        EXPECT_EQ(quiet_unlock_queue(queue), 0);
        EXPECT_EQ(__lock_uni_queue(queue), 0);
        clear_uni_queue(queue);
        clear_uni_queue(queue); // of nothing
        EXPECT_EQ(quiet_unlock_queue(queue), 0);
        add(queue, 6);
        destroy_uni_queue(queue);
    };
    EXPECT_EQ(said(work), "");
}

TEST_F(Queue, CarriesFramesBetweenThreadsInOrder) {
    constexpr unsigned int frames = 500;
    std::thread writer([&] {
        for (unsigned int length = 1; length <= frames; ++length) {
            add(queue_, length);
        }
    });
    unsigned int expected = 1;
    while (expected <= frames) {
        ASSERT_EQ(quiet_lock_queue(queue_), 0);
        while (get_uni_queue_size(queue_) > 0) {
            unsigned int length = 0;
            const Buffer taken(static_cast<unsigned char*>(get_uni_frame(queue_, &length)));
            EXPECT_EQ(length, expected++);
        }
        ASSERT_EQ(quiet_unlock_queue(queue_), 0);
        std::this_thread::yield();
    }
    writer.join();
}

TEST(NoQueue, IsRefusedByEveryOperationThatReads) {
    unsigned int length = 4711;
    EXPECT_THAT(said([&] { EXPECT_EQ(get_uni_frame(nullptr, &length), nullptr); }), HasSubstr("queue pointer is NULL"));
    EXPECT_EQ(length, 4711U);
    EXPECT_THAT(said([] { EXPECT_EQ(get_uni_queue_size(nullptr), 0); }), HasSubstr("error: uninitialized queue!"));
    EXPECT_THAT(said([] { clear_uni_queue(nullptr); }), HasSubstr("error: uninitialized queue!"));
    destroy_uni_queue(nullptr);
}

TEST(NoQueue, CannotBeLocked) {
    EXPECT_EQ(__lock_uni_queue(nullptr), -1);
    EXPECT_EQ(quiet_lock_queue(nullptr), -1);
    EXPECT_THAT(said([] { EXPECT_EQ(quiet_unlock_queue(nullptr), -1); }), HasSubstr("error: uninitialized queue!"));
}

TEST(NoQueue, TakesNoFrame) {
    const Buffer buffer = buffer_of(3);
    EXPECT_EQ(add_uni_frame(nullptr, buffer.get(), 3), 0);
}

} // namespace
