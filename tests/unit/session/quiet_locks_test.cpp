// Mutexes that are taken without a line, and steps in between that only they show. This program replaces
// pthread_mutex_lock, pthread_mutex_unlock and pthread_cond_wait for the whole process, and looks at the library's
// calls.
#include "base/library_range.hpp"
#include "receive_test.hpp"
#include "support/one_shot.hpp"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <map>

namespace {

LibraryRange library;

// What is done at each of the library's steps from mutex to mutex: before one is taken, and behind its release.
using StepFunction = std::function<void(pthread_mutex_t* mutex, bool is_taken)>;
struct Step {
    const StepFunction* what = nullptr;
    bool running = false; // its own steps are none
};
thread_local Step step_of_this_thread;
std::atomic<const StepFunction*> step_of_all = nullptr;

void make_step(pthread_mutex_t* mutex, bool is_taken, const void* caller) {
    Step& step = step_of_this_thread;
    const StepFunction* const what = step.what != nullptr ? step.what : step_of_all.load();
    if (what != nullptr && !step.running && library.contains(caller)) {
        step.running = true;
        (*what)(mutex, is_taken);
        step.running = false;
    }
}

// Between a look and the sleep.
std::atomic<bool> waits_begin_late = false;
std::atomic<int> waits_begun = 0;

} // namespace

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static const auto real = reinterpret_cast<decltype(&pthread_mutex_lock)>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    make_step(mutex, true, __builtin_return_address(0));
    return real(mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    static const auto real =
        reinterpret_cast<decltype(&pthread_mutex_unlock)>(dlsym(RTLD_NEXT, "pthread_mutex_unlock"));
    const int result = real(mutex);
    make_step(mutex, false, __builtin_return_address(0));
    return result;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    // Of the two versions that the C library has, the one that programs are linked to.
    static const auto real =
        reinterpret_cast<decltype(&pthread_cond_wait)>(dlvsym(RTLD_NEXT, "pthread_cond_wait", "GLIBC_2.3.2"));
    if (waits_begin_late && library.contains(__builtin_return_address(0))) {
        ++waits_begun;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return real(condition, mutex);
}
}

namespace receive_test {
namespace {

using testing::StartsWith;

int get_feature(unsigned int device) {
    Bytes report(65);
    unsigned int reply = 0;
    return GetFeature(device, 0, report.data(), 65, &reply);
}

class QuietLocks : public Receiving {
  protected:
    void SetUp() override {
        library = LibraryRange::find();
        Receiving::SetUp();
    }
    void TearDown() override {
        waits_begin_late = false;
        Receiving::TearDown();
    }

    // In the words of lock_lines.hpp, where "other" is every mutex that has no exported name.
    static std::map<std::thread::id, std::string> all_taken_during(const std::function<void()>& call) {
        std::mutex mutex;
        std::map<std::thread::id, std::vector<std::string>> words;
        const StepFunction note = [&](pthread_mutex_t* passed, bool is_taken) {
            const std::string name = passed == &dev_list_short_lock     ? "list"
                                     : passed == &exception_list_lock   ? "records"
                                     : passed == &gen_thread_mutex_lock ? "start"
                                                                        : "other";
            const std::lock_guard lock(mutex);
            auto& own = words[std::this_thread::get_id()];
            if (is_taken) {
                own.push_back("+" + name);
            } else if (!own.empty() && own.back() == "+" + name) {
                own.back() = name;
            } else {
                own.push_back("-" + name);
            }
        };
        step_of_all = &note;
        call();
        step_of_all = nullptr;
        std::map<std::thread::id, std::string> texts;
        for (const auto& [thread, own] : words) {
            for (const std::string& word : own) {
                texts[thread] += (texts[thread].empty() ? "" : " ") + word;
            }
        }
        return texts;
    }
    static std::string taken_during(const std::function<void()>& call) {
        return all_taken_during(call)[std::this_thread::get_id()];
    }
    // Of the one other thread, which has left when call returns.
    static std::string taken_by_another_during(const std::function<void()>& call) {
        auto texts = all_taken_during(call);
        texts.erase(std::this_thread::get_id());
        EXPECT_EQ(texts.size(), 1U);
        return texts.empty() ? "" : texts.begin()->second;
    }

    // Runs call again and again, with an intruder on another thread at its first step, then at its second, and so on.
    // Where the intruder has to wait for what the call holds, the call goes on. Returns how many steps there were.
    static unsigned int intrude_everywhere(const std::function<void()>& prepare, const std::function<void()>& call,
                                           const std::function<void()>& intruder, std::chrono::milliseconds patience) {
        for (unsigned int wanted = 1;; ++wanted) {
            prepare();
            unsigned int passed = 0;
            std::future<void> intrusion;
            const StepFunction intrude = [&](pthread_mutex_t*, bool) {
                if (++passed == wanted) {
                    intrusion = std::async(std::launch::async, intruder);
                    intrusion.wait_for(patience);
                }
            };
            step_of_this_thread.what = &intrude;
            call();
            step_of_this_thread.what = nullptr;
            if (!intrusion.valid()) {
                return wanted - 1;
            }
            intrusion.get();
        }
    }

    static void expect_to_end(const char* otherwise, const std::function<void()>& act) {
        auto done = std::async(std::launch::async, act);
        if (done.wait_for(bound) != std::future_status::ready) {
            std::fprintf(stderr, "%s\n", otherwise);
            std::abort(); // there is no way to take a waiting thread back
        }
    }

    // The thread has gone when this returns.
    static void receive_once() {
        const auto ended = std::make_shared<Gate>();
        const auto has_paused = std::make_shared<std::atomic<bool>>(false);
        {
            const auto guard = bus().lock();
            bus().hooks.usleep = [=](unsigned int microseconds) {
                if (microseconds == 500) {
                    open_at_the_end_of_this_thread(ended);
                    *has_paused = true;
                }
            };
        }
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
        EXPECT_TRUE(comes_true([&] { return has_paused->load(); }));
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
        EXPECT_TRUE(ended->pass());
        pause_briefly();
    }
};

TEST_F(QuietLocks, OfAQueueIsTakenToCountAndToEmptyIt) {
    receive_once();
    unsigned int count = 0;
    EXPECT_EQ(taken_during([&] { GetDataPacketsAvailable(1, 0, &count); }), "+list other -list");
    // The list for the numbers; the list and the queue; the list for the pad, and its record. The end of the call takes
    // a lock only where a tear-down waits for it.
    EXPECT_EQ(taken_during([] { FlushDataPackets(1, 0); }), "list +list other -list list other");
}

TEST_F(QuietLocks, OfAQueueIsTakenByACallbackThread) {
    receive_once();
    const auto ended = std::make_shared<Gate>();
    bus().hooks.usleep = [ended](unsigned int microseconds) {
        if (microseconds == 1'500) {
            open_at_the_end_of_this_thread(ended);
            EXPECT_EQ(SetOnDataReceivedHandler(1, 0, nullptr, nullptr), 0);
        }
    };
    const std::string taken = taken_by_another_during([&] {
        EXPECT_EQ(SetOnDataReceivedHandler(1, 0, Receiver::receive, nullptr), 0);
        EXPECT_TRUE(ended->pass());
    });
    const std::string begins = "other";
    const std::string looks = "+list +other other -other -list"; // for the callback, into the queue
    const std::string is_taken_away = "+list +other other -other -list";
    const std::string sees_that = "+list other -list";
    EXPECT_THAT(taken, StartsWith(begins + " " + looks + " " + is_taken_away + " " + sees_that + " "));
}

TEST_F(QuietLocks, OfAQueueIsTakenByAReceiveThread) {
    const auto ended = std::make_shared<Gate>();
    bus().hooks.usleep = [ended](unsigned int microseconds) {
        if (microseconds == 500) {
            open_at_the_end_of_this_thread(ended);
            catch_removing_device(-20, 1, 0); // asks it to end
        }
    };
    give(*first_, report_of(1, 0));
    const standins::EnvironmentGuard on("LIBVXPADCOM_DEBUG", "1"); // or nobody asks for the queue's size
    const standins::OutputCapture output(STDOUT_FILENO);
    const std::string taken = taken_by_another_during([&] {
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
        EXPECT_TRUE(ended->pass());
    });
    // Reopening tries the record's lock, and releases it.
    const std::string selects = "list other";
    const std::string reopens = "other -other";
    const std::string tells_the_size = "other";
    const std::string has_started = "other";
    const std::string reads = "other";
    const std::string queues = "other";
    const std::string is_asked_to_end = "other";
    const std::string has_left_the_loop_and_ended = "other other";
    EXPECT_EQ(taken, selects + " " + reopens + " " + tells_the_size + " " + has_started + " " + reads + " " + queues +
                         " " + is_asked_to_end + " " + has_left_the_loop_and_ended);
}

// Waking.

// A signal that comes between a look and the sleep must not be lost: both are one step for who gives it.
TEST_F(QuietLocks, OfASignalKeepsItFromBeingMissed) {
    waits_begin_late = true;
    for (int i = 0; i < 3; ++i) {
        expect_to_end("a signal was missed", [] { receive_once(); });
    }
}

TEST_F(QuietLocks, OfTheLastOneToLeaveKeepsTheTearDownFromMissingIt) {
    {
        const auto guard = bus().lock();
        bus().hooks.get_feature = [this](HidInterface&, std::span<unsigned char>) {
            EXPECT_TRUE(gates[0].pass());
            return std::optional<int>();
        };
    }
    auto call = std::async(std::launch::async, [] { return get_feature(1); });
    ASSERT_TRUE(gates[0].somebody_waits());
    waits_begun = 0;
    waits_begin_late = true;
    expect_to_end("nobody has waked the tear-down", [&] {
        auto ending = std::async(std::launch::async, Deinitialize);
        EXPECT_TRUE(comes_true([] { return waits_begun > 0; }));
        gates[0].open();
        EXPECT_EQ(ending.get(), 0);
    });
    EXPECT_EQ(call.get(), 0);
}

// Callbacks that a tear-down forgets.

TEST_F(QuietLocks, ShowNoCallbackOfARemovalBehindATearDown) {
    static std::atomic<bool> is_over;
    static std::atomic<int> late;
    late = 0;
    const auto prepare = [this] {
        bus().plug_again(*first_);
        bus().plug_again(*further_);
        ASSERT_EQ(Initialize(), 0);
        is_over = false;
        SetOnDeviceRemovedHandler([](void*, unsigned int) { late += is_over ? 1 : 0; }, nullptr);
        bus().unplug(*first_);
        bus().unplug(*further_);
    };
    const auto stop = [] {
        EXPECT_EQ(Deinitialize(), 0);
        is_over = true;
    };
    EXPECT_GT(intrude_everywhere(
                  prepare, [] { EXPECT_NE(get_feature(1), 0); }, stop, std::chrono::milliseconds(100)),
              10U);
    // At the last step the callback has been looked up; a tear-down that waited for it might wait for itself.
    EXPECT_LE(late, 1);
}

TEST_F(QuietLocks, ShowNoLoggingCallbackBehindItsReplacement) {
    static std::atomic<bool> is_replaced;
    static std::atomic<int> late;
    static std::atomic<int> heard;
    late = heard = 0;
    // What it hears of a tear-down it hears at its end.
    const auto former = [](void*, const char16_t*) {
        ++heard;
        late += is_replaced ? 1 : 0;
    };
    const auto next = [](void*, const char16_t*) {};
    const auto as_pointer = [](vxpad_logging_callback callback) { return reinterpret_cast<void*>(callback); };
    const auto prepare = [&] {
        ASSERT_EQ(Initialize(), 0);
        receive_once(); // so that the tear-down has something to say
        is_replaced = false;
        RegisterLoggingCallBackProcedure(as_pointer(former), nullptr);
    };
    const auto replace = [&] {
        RegisterLoggingCallBackProcedure(as_pointer(next), nullptr);
        is_replaced = true;
    };
    EXPECT_GT(intrude_everywhere(
                  prepare, [] { EXPECT_EQ(Deinitialize(), 0); }, replace, bound),
              10U);
    EXPECT_GT(heard, 0);
    EXPECT_EQ(late, 0);
}

} // namespace
} // namespace receive_test
