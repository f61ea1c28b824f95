// Threads that cannot be started. The stack size is the only thing that the tests can spoil: sanitizers have their own
// pthread_create().
#include "lock_lines.hpp"
#include "session/receive_trace_points.hpp"

#include <dlfcn.h>

namespace {

enum class Stack { as_asked, refused, impossible };
std::atomic<Stack> stack = Stack::as_asked;
std::atomic<std::size_t> asked_size = 0;
std::atomic<int> asked_state = -1;
receive_test::Gate* creation = nullptr; // holds it up for a moment

} // namespace

extern "C" int pthread_attr_setstacksize(pthread_attr_t* attributes, size_t size) noexcept {
    static const auto real =
        reinterpret_cast<int (*)(pthread_attr_t*, size_t)>(dlsym(RTLD_NEXT, "pthread_attr_setstacksize"));
    asked_size = size;
    int state = -1;
    pthread_attr_getdetachstate(attributes, &state);
    asked_state = state;
    if (creation != nullptr) {
        creation->pass_within(std::chrono::milliseconds(20)); // longer than a call bears with an intruder
    }
    switch (stack.load()) {
    case Stack::refused:
        return EINVAL;
    case Stack::impossible:
        return real(attributes, std::size_t{1} << 50);
    default:
        return real(attributes, size);
    }
}

namespace receive_test {
namespace {

class NoThread : public Receiving, public testing::WithParamInterface<Stack> {
  protected:
    void TearDown() override {
        stack = Stack::as_asked;
        Receiving::TearDown();
    }
};

TEST_P(NoThread, ForReceivingIsNotedUnderTheInterfacesLock) {
    stack = GetParam();
    EXPECT_EQ(lock_lines::own_locks_during([] { EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), -1); }),
              "list pad list info list pad list list pad info +list info info -list records records");
}

TEST_P(NoThread, ForReceivingFailsTheStart) {
    stack = GetParam();
    const LogCapture& log = overhear();
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), -1);
    EXPECT_EQ(record_of(1), (Record{-1, "SetDataReceivingEnabled",
                                    "Error of starting thread of data receiving for device/end_point_id: 1/0"}));
    EXPECT_EQ(log.count("error: start_thread(): error of pthread_create() or pthread_attr_destroy()"), 1);
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0) << "nobody is waited for";
    EXPECT_THAT(bus().log("hid_read"), IsEmpty());
    stack = Stack::as_asked;
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    EXPECT_TRUE(is_read("1-1:1.0"));
}

TEST_P(NoThread, ForTheCallbackFailsItsRegistration) {
    Receiver receiver;
    stack = GetParam();
    EXPECT_EQ(record_of(SetOnDataReceivedHandler(1, 0, Receiver::receive, &receiver)),
              (Record{invalid_parameter, "SetOnDataReceivedHandler",
                      " Error of starting thread of processing frames by callback call"}));
    stack = Stack::as_asked;
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    const LogCapture& log = overhear();
    EXPECT_EQ(SetOnDataReceivedHandler(1, 0, Receiver::receive, &receiver), 0);
    EXPECT_EQ(log.count("already started"), 0);
    give(*first_, report_of(1, 0));
    EXPECT_TRUE(receiver.gets(1));
}

TEST_P(NoThread, ForAnUploadStopsIt) {
    // One that ended early, in a test before, has left its position behind: a buffer without a whole piece clears it.
    WriteFileBuffer(1, 1, "", 1, &reply_);
    stack = GetParam();
    const Bytes buffer(650);
    const LogCapture& log = overhear();
    EXPECT_EQ(WriteFileBuffer(1, 3, buffer.data(), 650, &reply_), 0);
    EXPECT_EQ(reply_, 0U);
    EXPECT_EQ(interface_routine_count, 0);
    EXPECT_EQ(interface_routine_terminate, 1);
    EXPECT_EQ(log.count("error: start_upload(): error of pthread_create() or pthread_attr_destroy()"), 2);
    stack = Stack::as_asked;
    EXPECT_EQ(WriteFileBuffer(1, 3, buffer.data(), 650, &reply_), 0);
    EXPECT_EQ(reply_, 650U);
}

TEST_P(NoThread, ForAnUploadIsCountedOffWithNoOtherLockHeld) {
    WriteFileBuffer(1, 1, "", 1, &reply_);
    stack = GetParam();
    const Bytes buffer(65);
    EXPECT_EQ(lock_lines::own_locks_during([&] { EXPECT_EQ(WriteFileBuffer(1, 1, buffer.data(), 65, &reply_), 0); }),
              "list list count list count");
}

TEST_P(NoThread, KeepsNobodyWaitingInTheTearDown) {
    stack = GetParam();
    SetDataReceivingEnabled(1, 0, 1);
    SetOnDataReceivedHandler(1, 0, Receiver::receive, nullptr);
    EXPECT_EQ(Deinitialize(), 0);
}

TEST_P(NoThread, KeepsNobodyWaitingWhoStopsMeanwhile) {
    stack = GetParam();
    std::unique_ptr<Gate> stopped;
    const auto stop = [&] {
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
        stopped->open();
    };
    const auto prepare = [&] {
        stopped = std::make_unique<Gate>();
        creation = stopped.get();
    };
    EXPECT_GT(interrupt_everywhere(
                  stop, [] { EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), -1); }, prepare),
              3U);
    creation = nullptr;
}

INSTANTIATE_TEST_SUITE_P(Causes, NoThread, testing::Values(Stack::refused, Stack::impossible), [](const auto& tested) {
    return tested.param == Stack::refused ? "AttributeRefused" : "CreationFailed";
});

class Threads : public Receiving {};

TEST_F(Threads, AreDetachedWithAStackOfOneMebibyte) {
    const Bytes buffer(65);
    const auto expect_asked = [](const char* what) {
        EXPECT_EQ(asked_size.exchange(0), 1'048'576U) << what;
        EXPECT_EQ(asked_state.exchange(-1), PTHREAD_CREATE_DETACHED) << what;
    };
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    expect_asked("receive thread");
    EXPECT_EQ(SetOnDataReceivedHandler(1, 0, Receiver::receive, nullptr), 0);
    expect_asked("callback thread");
    EXPECT_EQ(WriteFileBuffer(1, 1, buffer.data(), 65, &reply_), 0);
    expect_asked("upload thread");
}

} // namespace
} // namespace receive_test
