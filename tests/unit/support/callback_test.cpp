#include "support/lines.hpp"

#include "standins.hpp"
#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

using standins::OutputCapture;
using testing::AllOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

struct Delivered {
    void* user_specific;
    std::u16string text;
};

std::vector<Delivered> delivered;

void keep(void* user_specific, const char16_t* message) {
    delivered.push_back({user_specific, message});
}

void* as_callback(vxpad_logging_callback callback) {
    return reinterpret_cast<void*>(callback);
}

std::vector<std::string> texts() {
    std::vector<std::string> result;
    for (const Delivered& one : delivered) {
        result.emplace_back(one.text.begin(), one.text.end());
    }
    return result;
}

class Callback : public testing::Test {
  protected:
    void SetUp() override {
        standins::bus().reset();
        Deinitialize();
        delivered.clear();
    }
    void TearDown() override { RegisterLoggingCallBackProcedure(nullptr, nullptr); }

    lines::AllSwitchesOff off_;
    OutputCapture errors_{STDERR_FILENO};
};

TEST_F(Callback, HearsOfItsOwnRegistration) {
    int mark = 0;
    EXPECT_EQ(RegisterLoggingCallBackProcedure(as_callback(keep), &mark), 0);
    std::array<char, 200> expected{};
    std::snprintf(
        expected.data(), expected.size(),
        "info: RegisterLoggingCallBackProcedure(): Pointer %p with user_specific %p was set like callback for "
        "logging\n",
        as_callback(keep), static_cast<void*>(&mark));
    EXPECT_THAT(texts(), ElementsAre(expected.data()));
    EXPECT_EQ(delivered.front().user_specific, &mark);
}

TEST_F(Callback, NullStopsDeliveryAtOnce) {
    RegisterLoggingCallBackProcedure(as_callback(keep), nullptr);
    delivered.clear();
    EXPECT_EQ(RegisterLoggingCallBackProcedure(nullptr, nullptr), 0);
    IsInitialized();
    TranslateErrorCode(0, nullptr, 0, nullptr);
    EXPECT_THAT(delivered, IsEmpty());
}

TEST_F(Callback, ASecondRegistrationReplacesBothWords) {
    int first = 0;
    int second = 0;
    static int others = 0;
    others = 0;
    RegisterLoggingCallBackProcedure(as_callback([](void*, const char16_t*) { ++others; }), &first);
    EXPECT_EQ(others, 1);
    RegisterLoggingCallBackProcedure(as_callback(keep), &second);
    IsInitialized();
    EXPECT_EQ(others, 1);
    ASSERT_THAT(delivered, SizeIs(2));
    EXPECT_EQ(delivered[1].user_specific, &second);
}

TEST_F(Callback, InformationIsDeliveredWithALineEndThoughItsSwitchIsOff) {
    RegisterLoggingCallBackProcedure(as_callback(keep), nullptr);
    delivered.clear();
    EXPECT_EQ(lines::written(STDOUT_FILENO, [] { IsInitialized(); }), "");
    EXPECT_THAT(texts(), ElementsAre("info: IsInitialized(): Is not initialized, use Initialize() first\n"));
}

TEST_F(Callback, AnErrorIsDeliveredOnceWithoutALineEnd) {
    RegisterLoggingCallBackProcedure(as_callback(keep), nullptr);
    delivered.clear();
    TranslateErrorCode(0, nullptr, 0, nullptr);
    EXPECT_THAT(texts(), ElementsAre("error: TranslateErrorCode(): Error of input parameters, char *res_text is NULL"));
}

// Lines that end in the text of an errno on standard error.
TEST_F(Callback, AnErrorOfASystemCallIsDeliveredToo) {
    RegisterLoggingCallBackProcedure(as_callback(keep), nullptr);
    delivered.clear();
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    Pthread_mutexattr_setpshared(&attributes, 4711);
    pthread_mutexattr_destroy(&attributes);
    EXPECT_EQ(Open("/nonexistent/file", O_RDONLY, 0), -1);
    EXPECT_EQ(load_file(nullptr, nullptr), nullptr);
    EXPECT_THAT(texts(),
                ElementsAre("error: Pthread_mutexattr_setpshared(): pthread_mutexattr_setpshared()",
                            "error: Open(): open() for /nonexistent/file",
                            testing::StartsWith("error: load_file(): Wrong parameters: const char *name is ")));
    EXPECT_THAT(errors_.text(), testing::HasSubstr("open() for /nonexistent/file\033[0m: No such file or directory\n"));
}

// What it is told inside itself would never end.
TEST_F(Callback, IsNotCalledInsideItself) {
    static int depth;
    static int deepest;
    static int calls;
    depth = deepest = calls = 0;
    const auto asks_the_library = [](void*, const char16_t*) {
        ++calls;
        deepest = std::max(deepest, ++depth);
        if (depth < 3) {
            IsInitialized();                            // says something behind a lock
            TranslateErrorCode(0, nullptr, 0, nullptr); // and something with no lock
        }
        --depth;
    };
    RegisterLoggingCallBackProcedure(as_callback(asks_the_library), nullptr);
    EXPECT_EQ(calls, 1);
    IsInitialized(); // told behind the lock
    EXPECT_EQ(calls, 2);
    TranslateErrorCode(0, nullptr, 0, nullptr); // told at once
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(deepest, 1);
    RegisterLoggingCallBackProcedure(as_callback(keep), nullptr);
    IsInitialized();
    EXPECT_THAT(texts(), SizeIs(2)) << "and the next one hears again";
}

TEST_F(Callback, EnterExitAndLockLinesAreNotDelivered) {
    RegisterLoggingCallBackProcedure(as_callback(keep), nullptr);
    delivered.clear();
    const standins::EnvironmentGuard functions(lines::function_switch, "1");
    const standins::EnvironmentGuard mutexes(lines::mutex_switch, "1");
    lines::written(STDOUT_FILENO, [] { IsInitialized(); });
    EXPECT_THAT(delivered, SizeIs(1));
}

TEST_F(Callback, MessagesAreCutTo255Characters) {
    const std::u16string text(254, u'a');
    std::array<char16_t, 400> answer{};
    unsigned int reply = 0;
    RegisterLoggingCallBackProcedure(as_callback(keep), nullptr);
    delivered.clear();
    SayHello(text.c_str(), answer.data(), 400, &reply);
    const std::string start = "info: SayHello(): wstr_to_astr() populate:  ";
    EXPECT_THAT(texts(), testing::Contains(start + std::string(255 - start.size(), 'a')));
}

TEST_F(Callback, TextsAreNoFormats) {
    std::array<char16_t, 64> answer{};
    unsigned int reply = 0;
    RegisterLoggingCallBackProcedure(as_callback(keep), nullptr);
    SayHello(u"%s%n%%", answer.data(), 64, &reply);
    EXPECT_THAT(texts(), testing::Contains("info: SayHello(): wstr_to_astr() populate:  %s%n%%\n"));
}

TEST_F(Callback, CharactersOutsideTheLocaleArriveAsAllOnes) {
    std::array<char16_t, 64> answer{};
    unsigned int reply = 0;
    RegisterLoggingCallBackProcedure(as_callback(keep), nullptr);
    SayHello(u"\u00e9", answer.data(), 64, &reply);
    const auto says_so = [](const Delivered& one) {
        return one.text == u"info: SayHello(): wstr_to_astr() populate:  \uffff\n";
    };
    EXPECT_EQ(std::count_if(delivered.begin(), delivered.end(), says_so), 1);
}

TEST_F(Callback, RunsOnTheThreadThatHasSomethingToReport) {
    static std::atomic<std::thread::id> seen;
    RegisterLoggingCallBackProcedure(as_callback([](void*, const char16_t*) { seen = std::this_thread::get_id(); }),
                                     nullptr);
    std::thread::id expected;
    std::thread([&] {
        expected = std::this_thread::get_id();
        IsInitialized();
    }).join();
    EXPECT_EQ(seen.load(), expected);
}

TEST_F(Callback, MayRunOnSeveralThreadsAtATime) {
    static std::atomic<int> count;
    count = 0;
    RegisterLoggingCallBackProcedure(as_callback([](void*, const char16_t*) { ++count; }), nullptr);
    count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int call = 0; call < 100; ++call) {
                TranslateErrorCode(0, nullptr, 0, nullptr);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 400);
}

// Each registers itself with a pointer that the other must never see.
int first_mark = 0;
int second_mark = 0;
std::atomic<int> wrong_partners;
void first_of_two(void* user_specific, const char16_t*) {
    wrong_partners += user_specific == &first_mark ? 0 : 1;
}
void second_of_two(void* user_specific, const char16_t*) {
    wrong_partners += user_specific == &second_mark ? 0 : 1;
}

TEST_F(Callback, GetsTheUserPointerThatItWasRegisteredWith) {
    wrong_partners = 0;
    std::atomic<bool> over = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&over] {
            while (!over) {
                IsInitialized();
            }
        });
    }
    for (int i = 0; i < 20'000; ++i) {
        RegisterLoggingCallBackProcedure(as_callback(first_of_two), &first_mark);
        RegisterLoggingCallBackProcedure(as_callback(second_of_two), &second_mark);
    }
    over = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong_partners, 0);
}

// Initialized, and with something to say in the tear-down: a queue to be cleared.
void start_receiving() {
    standins::bus().hooks.usleep = [](unsigned int) { std::this_thread::sleep_for(std::chrono::microseconds(100)); };
    Initialize();
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
}

struct Heard {
    std::thread::id thread = std::this_thread::get_id();
    int messages = 0;
    int while_locked = 0;
};

// What the thread hears that registered it.
void* as_listener() {
    return as_callback([](void* user_specific, const char16_t*) {
        Heard& heard = *static_cast<Heard*>(user_specific);
        if (heard.thread != std::this_thread::get_id()) {
            return;
        }
        ++heard.messages;
        if (pthread_mutex_trylock(&gen_thread_mutex_lock) != 0) {
            ++heard.while_locked;
        } else {
            pthread_mutex_unlock(&gen_thread_mutex_lock);
        }
    });
}

TEST_F(Callback, RunsWithNoLockHeldInTheTearDownToo) {
    standins::bus().plug(standins::pad_of_type(9));
    for (int (*end)() : {Deinitialize, Initialize}) {
        start_receiving();
        Heard heard;
        RegisterLoggingCallBackProcedure(as_listener(), &heard);
        heard.messages = 0;
        end();
        EXPECT_GT(heard.messages, 0);
        EXPECT_EQ(heard.while_locked, 0);
        heard.messages = 0;
        IsInitialized();
        EXPECT_EQ(heard.messages, 0);
    }
    Deinitialize();
}

// Who registers another one may free what the former was given.
TEST_F(Callback, HearsNothingOfATearDownOnceAnotherIsRegistered) {
    standins::bus().plug(standins::pad_of_type(9));
    start_receiving();
    Heard heard;
    RegisterLoggingCallBackProcedure(as_listener(), &heard);
    heard.messages = 0;
    standins::bus().hooks.open_path = [](const std::string&) { // the search's
        std::thread([] { RegisterLoggingCallBackProcedure(as_callback(keep), nullptr); }).join();
        return std::optional<int>();
    };
    Initialize();
    EXPECT_EQ(heard.messages, 0);
    Deinitialize();
}

// Whoever takes it away may free what it was given, also where messages of another thread still wait behind a lock.
TEST_F(Callback, HearsNothingThatWaitedOnceItIsTakenAway) {
    standins::bus().plug(standins::pad_of_type(9));
    Initialize();
    RegisterLoggingCallBackProcedure(as_callback(keep), nullptr);
    std::vector<std::string> heard;
    standins::bus().hooks.send_feature = [&](standins::HidInterface&, std::span<const unsigned char>) {
        std::thread([] { RegisterLoggingCallBackProcedure(nullptr, nullptr); }).join();
        heard = texts();
        return std::optional<int>();
    };
    std::array<unsigned char, 65> report{};
    unsigned int reply = 0;
    EXPECT_EQ(SetFeature(1, 0, report.data(), report.size(), &reply), 0);
    const std::string waiting = "info: core_set_hid_feature_report(): Going to call hid_feature_write(data_size: 65)\n";
    EXPECT_THAT(heard, AllOf(testing::Not(IsEmpty()), testing::Not(testing::Contains(waiting))));
    EXPECT_EQ(texts(), heard);
    Deinitialize();
}

TEST_F(Callback, TheTearDownForgetsIt) {
    RegisterLoggingCallBackProcedure(as_callback(keep), nullptr);
    Deinitialize();
    delivered.clear();
    IsInitialized();
    EXPECT_THAT(delivered, IsEmpty());
}

TEST_F(Callback, InitializeForgetsItBeforeItSearches) {
    RegisterLoggingCallBackProcedure(as_callback(keep), nullptr);
    delivered.clear();
    Initialize();
    for (const std::string& text : texts()) {
        EXPECT_EQ(text.find("Devices not found!"), std::string::npos) << text;
    }
    delivered.clear();
    IsInitialized();
    EXPECT_THAT(delivered, IsEmpty());
    Deinitialize();
}

} // namespace
