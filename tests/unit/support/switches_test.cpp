// Whatever changes a trace switch, the very next trace point sees it.
#include "standins.hpp"
#include "support/lines.hpp"

#include "vxpadcom/vxpadcom.h"

#include <gmock/gmock.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

using standins::EnvironmentGuard;

namespace {

// Whether a call of the library writes enter and exit lines just now.
bool is_traced() {
    return !lines::written(STDOUT_FILENO, [] { IsInitialized(); }).empty();
}

// Gives environ back as it was, with a copy of its slots meanwhile.
class OwnEnvironment {
  public:
    OwnEnvironment() {
        for (char** slot = environ; *slot != nullptr; ++slot) {
            slots.push_back(*slot);
        }
        slots.push_back(nullptr);
        environ = slots.data();
    }
    ~OwnEnvironment() { environ = former_; }
    OwnEnvironment(const OwnEnvironment&) = delete;
    OwnEnvironment& operator=(const OwnEnvironment&) = delete;

    std::vector<char*> slots;

  private:
    char** former_ = environ;
};

class Switches : public testing::Test {
  protected:
    void SetUp() override { ASSERT_FALSE(is_traced()); }
    void TearDown() override {
        unsetenv(lines::function_switch);
        unsetenv("VXPAD_UNRELATED");
        EXPECT_FALSE(is_traced());
    }

    // Environments in which that function leaves 1 to 19 variables at the end of a page, and behind it nothing any
    // more.
    void in_environments_that_end(const std::function<void(const std::function<void()>& make_shorter)>& look) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        void* const memory = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(memory, MAP_FAILED);
        auto* const end = reinterpret_cast<char**>(static_cast<char*>(memory) + page);
        for (std::ptrdiff_t kept = 1; kept < 20; ++kept) {
            ASSERT_EQ(mprotect(memory, 2 * page, PROT_READ | PROT_WRITE), 0);
            char** const slots = end - kept;
            std::fill_n(slots, 40, other_.data());
            slots[40] = nullptr;
            char** const former = environ;
            environ = slots;
            EXPECT_FALSE(is_traced());
            int result = -1;
            look([&] {
                slots[kept - 1] = nullptr;
                result = mprotect(end, page, PROT_NONE);
            });
            environ = former;
            ASSERT_EQ(result, 0);
        }
        munmap(memory, 2 * page);
    }

    lines::AllSwitchesOff off_;
    std::array<char, 64> text_{"LIBVXPADCOM_DEBUG_FUNC=1"};
    std::array<char, 64> other_{"VXPAD_UNRELATED=1"};
};

TEST_F(Switches, AreSeenWhenTheyAreSetAndTakenAway) {
    for (int round = 0; round < 3; ++round) {
        setenv(lines::function_switch, "1", 1);
        EXPECT_TRUE(is_traced());
        setenv(lines::function_switch, "0", 1);
        EXPECT_FALSE(is_traced());
        setenv(lines::function_switch, "2", 1);
        EXPECT_TRUE(is_traced());
        unsetenv(lines::function_switch);
        EXPECT_FALSE(is_traced());
    }
}

TEST_F(Switches, AreSeenWhenTextsArePutIntoTheEnvironment) {
    putenv(text_.data());
    EXPECT_TRUE(is_traced());
    std::array<char, 64> off{"LIBVXPADCOM_DEBUG_FUNC=0"};
    putenv(off.data());
    EXPECT_FALSE(is_traced());
    putenv(text_.data());
    EXPECT_TRUE(is_traced());
    unsetenv(lines::function_switch);
}

TEST_F(Switches, AreSeenWhenAValueIsEditedInPlace) {
    putenv(text_.data());
    char& digit = text_[std::strlen(text_.data()) - 1];
    for (const char value : {'1', '0', '2', 'x', '1'}) {
        digit = value;
        EXPECT_EQ(is_traced(), value == '1' || value == '2') << value;
    }
    std::strcpy(&digit, "-1");
    EXPECT_FALSE(is_traced());
    std::strcpy(&digit, " +1");
    EXPECT_TRUE(is_traced());
    unsetenv(lines::function_switch);
}

TEST_F(Switches, AreSeenWhenTheirNameIsEditedInPlace) {
    putenv(text_.data());
    EXPECT_TRUE(is_traced());
    text_[0] = 'X';
    EXPECT_FALSE(is_traced());
    text_[0] = 'L';
    EXPECT_TRUE(is_traced());
    unsetenv(lines::function_switch);
}

TEST_F(Switches, AreSeenInMemoryThatHeldAnotherVariable) {
    putenv(other_.data());
    EXPECT_FALSE(is_traced());
    unsetenv("VXPAD_UNRELATED");
    std::strcpy(other_.data(), "LIBVXPADCOM_DEBUG_FUNC=1");
    putenv(other_.data()); // the same address in the same slot
    EXPECT_TRUE(is_traced());
    unsetenv(lines::function_switch);
}

TEST_F(Switches, AreSeenBehindTheFirstOfTwoOfTheSameName) {
    OwnEnvironment own;
    std::array<char, 64> first{"LIBVXPADCOM_DEBUG_FUNC=0"};
    own.slots.insert(own.slots.end() - 1, {first.data(), text_.data()});
    environ = own.slots.data();
    EXPECT_FALSE(is_traced());
    first[0] = 'X';
    EXPECT_TRUE(is_traced());
}

TEST_F(Switches, AreSeenInANewEnvironment) {
    char** const former = environ;
    std::array<char*, 2> only{text_.data(), nullptr};
    environ = only.data();
    EXPECT_TRUE(is_traced());
    environ = former;
    EXPECT_FALSE(is_traced());
    std::array<char*, 1> nothing{};
    environ = nothing.data();
    EXPECT_FALSE(is_traced());
    environ = nullptr;
    EXPECT_FALSE(is_traced());
    environ = only.data();
    EXPECT_TRUE(is_traced());
    environ = former;
}

TEST_F(Switches, AreSeenWhicheverSlotTheyAreWrittenInto) {
    for (std::size_t size = 1; size < 40; ++size) {
        std::vector<char*> slots(size, other_.data());
        slots.push_back(nullptr);
        char** const former = environ;
        environ = slots.data();
        for (std::size_t at = 0; at < size; ++at) {
            EXPECT_FALSE(is_traced());
            slots[at] = text_.data();
            EXPECT_TRUE(is_traced()) << at << " of " << size;
            slots[at] = other_.data();
        }
        environ = former;
    }
}

TEST_F(Switches, AreSeenAtTheEndOfAnEnvironmentThatGrowsAndShrinksInPlace) {
    std::vector<char*> slots(100);
    char** const former = environ;
    environ = slots.data();
    for (std::size_t size = 0; size < 90; ++size) {
        slots[size] = text_.data();
        EXPECT_TRUE(is_traced()) << size;
        slots[size] = nullptr;
        EXPECT_FALSE(is_traced()) << size;
        slots[size] = other_.data();
        EXPECT_FALSE(is_traced()) << size;
    }
    for (std::size_t size = 89; size > 0; --size) {
        slots[size] = nullptr;
        EXPECT_FALSE(is_traced()) << size;
    }
    environ = former;
}

TEST_F(Switches, AreSeenAmongMoreVariablesThanAnyoneHas) {
    for (const std::size_t size : {1023U, 1024U, 1025U, 3000U}) {
        std::vector<char*> slots(size, other_.data());
        slots.push_back(nullptr);
        char** const former = environ;
        environ = slots.data();
        EXPECT_FALSE(is_traced());
        slots[size - 1] = text_.data();
        EXPECT_TRUE(is_traced()) << size;
        slots[size - 1] = other_.data();
        EXPECT_FALSE(is_traced()) << size;
        environ = former;
    }
}

TEST_F(Switches, AreSeenInAnEnvironmentOnTwoPages) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const memory = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto* const end = reinterpret_cast<char**>(static_cast<char*>(memory) + page);
    for (std::ptrdiff_t on_first = 1; on_first < 20; ++on_first) {
        char** const slots = end - on_first;
        std::fill_n(slots, 20, other_.data());
        slots[20] = nullptr;
        char** const former = environ;
        environ = slots;
        for (int at = 0; at < 20; ++at) {
            EXPECT_FALSE(is_traced());
            slots[at] = text_.data();
            EXPECT_TRUE(is_traced()) << at << ", " << on_first << " on the first page";
            slots[at] = other_.data();
        }
        environ = former;
    }
    munmap(memory, 2 * page);
}

TEST_F(Switches, AreReadNoFurtherThanTheMemoryReaches) {
    in_environments_that_end([](const std::function<void()>& make_shorter) {
        make_shorter();
        EXPECT_FALSE(is_traced());
    });
}

TEST_F(Switches, AreSeenFromWhicheverThread) {
    for (int round = 0; round < 3; ++round) {
        std::thread([] { setenv(lines::function_switch, "1", 1); }).join();
        EXPECT_TRUE(is_traced());
        std::thread([] { unsetenv(lines::function_switch); }).join();
        EXPECT_FALSE(is_traced());
        setenv(lines::function_switch, "1", 1);
        bool traced = false;
        std::thread([&] { traced = is_traced(); }).join();
        EXPECT_TRUE(traced);
        unsetenv(lines::function_switch);
        std::thread([&] { traced = is_traced(); }).join();
        EXPECT_FALSE(traced);
    }
}

// As a debugger does it with the thread that it has stopped.
TEST_F(Switches, AreSeenWhenTheCallingThreadIsInterruptedToSetThem) {
    static char text[] = "LIBVXPADCOM_DEBUG_FUNC=1";
    static char* variables[] = {text, nullptr};
    char** const former = environ;
    struct sigaction set {};
    set.sa_handler = [](int) { environ = variables; };
    struct sigaction former_action {};
    sigaction(SIGUSR1, &set, &former_action);
    raise(SIGUSR1);
    sigaction(SIGUSR1, &former_action, nullptr);
    EXPECT_TRUE(is_traced());
    environ = former;
}

// In rounds of a thread that stays inside one function; it is the thread itself that writes.
TEST_F(Switches, AreSeenInAnySlotAsAThreadBeginsAnotherRound) {
    static std::array<char, 64> filling{"VXPAD_FILLING=1"};
    static std::array<char, 64> lock_switch{"LIBVXPADCOM_DEBUG_MUTEX=1"};
    alignas(512) static std::array<char*, 41> slots; // on one page, and slot 3 is none of the last
    std::fill_n(slots.begin(), 40, filling.data());
    static std::atomic<int> round;
    round = 0;
    auto& bus = standins::bus();
    bus.reset();
    bus.plug(standins::pad_of_type(9));
    bus.hooks.usleep = [](unsigned int) {
        if (++round == 10) {
            slots[3] = lock_switch.data();
        } else if (round == 11) {
            slots[3] = filling.data();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    };
    char** const former = std::exchange(environ, slots.data());
    const std::string text = lines::written(STDOUT_FILENO, [] {
        EXPECT_EQ(Initialize(), 0);
        round = 0;
        EXPECT_EQ(SetOnDataReceivedHandler(
                      1, 0, [](void*, unsigned int, unsigned int, const void*, unsigned int) {}, nullptr),
                  0);
        while (round < 20) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_EQ(Deinitialize(), 0);
    });
    environ = former;
    bus.reset();
    EXPECT_NE(text.find("pirc_routine(): >>>>>>>>     going to pthread_mutex_lock() -> &dev_list_short_lock"),
              std::string::npos);
}

TEST_F(Switches, AreReadByManyThreadsAtOnce) {
    constexpr int threads = 4;
    for (int round = 0; round < 20; ++round) {
        const EnvironmentGuard unrelated("VXPAD_UNRELATED", round % 2 == 0 ? "1" : nullptr); // all look anew
        const EnvironmentGuard on(lines::function_switch, round % 3 == 0 ? "1" : nullptr);
        const std::string text = lines::written(STDOUT_FILENO, [] {
            std::vector<std::thread> callers;
            for (int i = 0; i < threads; ++i) {
                callers.emplace_back([] {
                    for (int call = 0; call < 20; ++call) {
                        IsInitialized();
                    }
                });
            }
            for (std::thread& caller : callers) {
                caller.join();
            }
        });
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), round % 3 == 0 ? 2 * 20 * threads : 0) << round;
    }
}

TEST_F(Switches, AreSeenWhileTheEnvironmentIsChurned) {
    std::array<std::string, 50> names;
    for (std::size_t i = 0; i < names.size(); ++i) {
        names[i] = "VXPAD_CHURN_" + std::to_string(i);
    }
    for (int round = 0; round < 4; ++round) {
        for (const std::string& name : names) {
            setenv(name.c_str(), std::to_string(round).c_str(), 1);
            EXPECT_FALSE(is_traced());
        }
        setenv(lines::function_switch, "1", 1);
        for (const std::string& name : names) {
            unsetenv(name.c_str());
            EXPECT_TRUE(is_traced());
        }
        unsetenv(lines::function_switch);
    }
}

// The registration of a logging callback tells that one of itself: what it then changes is seen at the call's end, with
// no other function entered meanwhile.
class SwitchesInsideACall : public Switches {
  protected:
    void TearDown() override {
        RegisterLoggingCallBackProcedure(nullptr, nullptr);
        Switches::TearDown();
    }

    // Whether the call around the change writes its enter and its exit line.
    static std::pair<bool, bool> is_traced_around(std::function<void()> change) {
        change_ = std::move(change);
        const std::string text = lines::written(
            STDOUT_FILENO, [] { RegisterLoggingCallBackProcedure(reinterpret_cast<void*>(&told), nullptr); });
        return {text.find("RegisterLoggingCallBackProcedure(): enter.") != std::string::npos,
                text.find("RegisterLoggingCallBackProcedure(): exit.") != std::string::npos};
    }

    static constexpr std::pair only_enter{true, false};
    static constexpr std::pair only_exit{false, true};

  private:
    static void told(void* /*user_specific*/, const char16_t* /*message*/) {
        if (change_) {
            std::exchange(change_, nullptr)();
        }
    }

    static inline std::function<void()> change_;
};

// Runs this test alone in a process that is started with 700 variables, which take two pages at least. 0 if it passes.
int status_among_700_variables() {
    std::vector<std::string> variables;
    for (int i = 0; i < 700; ++i) {
        variables.push_back("VXPAD_STARTED_WITH_" + std::to_string(i) + "=1");
    }
    std::vector<char*> slots;
    for (std::string& variable : variables) {
        slots.push_back(variable.data());
    }
    slots.push_back(nullptr);
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    std::string program = "/proc/self/exe";
    std::string filter = std::string("--gtest_filter=") + test.test_suite_name() + "." + test.name();
    const std::array arguments{program.data(), filter.data(), static_cast<char*>(nullptr)};
    pid_t child = 0;
    int status = posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments.data(), slots.data());
    if (status == 0) {
        waitpid(child, &status, 0);
    }
    return status;
}

TEST_F(SwitchesInsideACall, AreSeenInTheEnvironmentThatTheProcessWasStartedWith) {
    if (getenv("VXPAD_STARTED_WITH_0") == nullptr) {
        EXPECT_EQ(status_among_700_variables(), 0);
        return;
    }
    char** const slots = environ;
    for (const std::size_t at : {0U, 350U, 699U}) {
        char* const former = std::exchange(slots[at], text_.data());
        EXPECT_TRUE(is_traced()) << at;
        slots[at] = former;
        EXPECT_FALSE(is_traced()) << at;
    }
    char* const last = slots[699];
    EXPECT_EQ(is_traced_around([&] { slots[699] = text_.data(); }), only_exit);
    EXPECT_EQ(is_traced_around([&] { slots[699] = nullptr; }), only_enter);
    EXPECT_EQ(is_traced_around([&] { slots[699] = text_.data(); }), only_exit);
    slots[699] = last;
}

// In slots of the test's own, which the C library's functions must not be given.
class SwitchesInsideACallByHand : public SwitchesInsideACall {
  protected:
    void SetUp() override {
        SwitchesInsideACall::SetUp();
        for (std::size_t size = own_.slots.size(); size < 40; ++size) {
            own_.slots.insert(own_.slots.begin(), filling_.data());
        }
        last_ = own_.slots.size() - 1;
        own_.slots.resize(last_ + 10); // nulls
        environ = own_.slots.data();
        ASSERT_FALSE(is_traced());
    }
    void TearDown() override {
        EXPECT_FALSE(is_traced());
        RegisterLoggingCallBackProcedure(nullptr, nullptr);
    }

    std::array<char, 64> filling_{"VXPAD_FILLING=1"};
    OwnEnvironment own_;
    std::size_t last_ = 0; // slot of the null behind the variables
};

TEST_F(SwitchesInsideACall, AreSeenWhenTheyAreSetAndTakenAway) {
    setenv("VXPAD_UNRELATED", "1", 1); // the C library's own slots from here on
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(is_traced_around([] { setenv(lines::function_switch, "1", 1); }), only_exit) << round;
        EXPECT_EQ(is_traced_around([] { unsetenv(lines::function_switch); }), only_enter) << round;
        EXPECT_EQ(is_traced_around([&] { putenv(text_.data()); }), only_exit) << round;
        EXPECT_EQ(is_traced_around([] { setenv(lines::function_switch, "0", 1); }), only_enter) << round;
        EXPECT_EQ(is_traced_around([] { setenv(lines::function_switch, "1", 1); }), only_exit) << round;
        unsetenv(lines::function_switch);
        setenv("VXPAD_UNRELATED", std::string(static_cast<std::size_t>(round) * 7, 'x').c_str(), 1);
    }
}

TEST_F(SwitchesInsideACall, AreSeenWhenAnotherThreadSetsThem) {
    setenv("VXPAD_UNRELATED", "1", 1);
    const auto on_another_thread = [](auto change) {
        return [change] {
            std::thread{[&] {
                change();
                IsInitialized(); // looks at all of them
            }}.join();
        };
    };
    EXPECT_EQ(is_traced_around(on_another_thread([] { setenv(lines::function_switch, "1", 1); })), only_exit);
    EXPECT_EQ(is_traced_around(on_another_thread([] { setenv(lines::function_switch, "0", 1); })), only_enter);
    EXPECT_EQ(is_traced_around(on_another_thread([] { setenv(lines::function_switch, "1", 1); })), only_exit);
    EXPECT_EQ(is_traced_around(on_another_thread([] { unsetenv(lines::function_switch); })), only_enter);
}

TEST_F(SwitchesInsideACall, AreSeenBeforeALastVariableThatIsSetAnew) {
    setenv("VXPAD_UNRELATED", "1", 1);
    setenv("VXPAD_OTHER", "1", 1);
    EXPECT_EQ(is_traced_around([] {
                  unsetenv("VXPAD_UNRELATED");
                  unsetenv("VXPAD_OTHER");
                  setenv(lines::function_switch, "1", 1);
                  setenv("VXPAD_OTHER", "1", 1);
              }),
              only_exit);
    unsetenv(lines::function_switch);
    unsetenv("VXPAD_OTHER");
}

TEST_F(SwitchesInsideACall, AreSeenInMemoryThatHeldTheLastVariable) {
    putenv(other_.data());
    EXPECT_EQ(is_traced_around([&] {
                  unsetenv("VXPAD_UNRELATED");
                  std::strcpy(other_.data(), "LIBVXPADCOM_DEBUG_FUNC=1");
                  putenv(other_.data()); // the same address in the same slot
              }),
              only_exit);
    unsetenv(lines::function_switch);
}

TEST_F(SwitchesInsideACall, AreSeenBehindOthersThatWereTakenOut) {
    setenv("VXPAD_UNRELATED", "1", 1);
    setenv("VXPAD_OTHER", "1", 1);
    EXPECT_EQ(is_traced_around([&] {
                  unsetenv("VXPAD_UNRELATED");
                  putenv(text_.data());
              }),
              only_exit);
    unsetenv(lines::function_switch);
    unsetenv("VXPAD_OTHER");
}

TEST_F(SwitchesInsideACallByHand, AreSeenWhenTheyAreWrittenAtTheEnd) {
    EXPECT_EQ(is_traced_around([&] { own_.slots[last_] = text_.data(); }), only_exit);
    EXPECT_EQ(is_traced_around([&] { own_.slots[last_] = nullptr; }), only_enter);
    for (std::size_t behind = 1; behind < 5; ++behind) {
        char*& slot = own_.slots[last_ - behind];
        char* const former = std::exchange(slot, filling_.data());
        EXPECT_FALSE(is_traced());
        EXPECT_EQ(is_traced_around([&] { slot = text_.data(); }), only_exit) << behind;
        slot = former;
        EXPECT_FALSE(is_traced());
    }
}

TEST_F(SwitchesInsideACallByHand, AreSeenInANewEnvironment) {
    char** const former = environ;
    std::array<char*, 2> only{text_.data(), nullptr};
    EXPECT_EQ(is_traced_around([&] { environ = only.data(); }), only_exit);
    EXPECT_EQ(is_traced_around([&] { environ = former; }), only_enter);
    std::vector<char*> same_at_the_end = own_.slots;
    same_at_the_end[3] = text_.data();
    EXPECT_EQ(is_traced_around([&] { environ = same_at_the_end.data(); }), only_exit);
    environ = former;
}

TEST_F(SwitchesInsideACallByHand, AreSeenWhenAValueIsEditedInPlace) {
    own_.slots[3] = text_.data();
    char& digit = text_[std::strlen(text_.data()) - 1];
    EXPECT_EQ(is_traced_around([&] { digit = '0'; }), only_enter);
    EXPECT_EQ(is_traced_around([&] { digit = '1'; }), only_exit);
    own_.slots[3] = filling_.data();
}

TEST_F(SwitchesInsideACallByHand, AreSeenInAnySlotAsTheNextFunctionIsEntered) {
    for (std::size_t at = 0; at < last_; ++at) {
        is_traced_around([&] { own_.slots[at] = text_.data(); });
        EXPECT_TRUE(is_traced()) << at;
        own_.slots[at] = filling_.data();
        EXPECT_FALSE(is_traced()) << at;
    }
}

TEST_F(SwitchesInsideACallByHand, AreReadNoFurtherThanTheMemoryReaches) {
    in_environments_that_end([](const std::function<void()>& make_shorter) {
        EXPECT_EQ(is_traced_around(make_shorter), (std::pair{false, false}));
    });
}

} // namespace
