#include "support/lines.hpp"

#include "standins.hpp"
#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <ostream>
#include <thread>

using lines::Line;
using standins::EnvironmentGuard;
using standins::OutputCapture;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::MatchesRegex;
using testing::SizeIs;

namespace {

class Trace : public testing::Test {
  protected:
    void SetUp() override {
        standins::bus().reset();
        Deinitialize();
    }

    template <class Call> static std::vector<Line> output_of(Call call) {
        return lines::parse_output(lines::written(STDOUT_FILENO, call));
    }

    template <class Call> static std::vector<Line> errors_of(Call call) {
        return lines::parse_errors(lines::written(STDERR_FILENO, call));
    }

    lines::AllSwitchesOff off_;
};

void translate_a_code() {
    char16_t text[30];
    unsigned int reply = 0;
    TranslateErrorCode(0, text, 30, &reply);
}

void fail_to_translate() {
    TranslateErrorCode(0, nullptr, 0, nullptr);
}

void file_and_read_a_record() {
    fail_to_translate();
    unsigned int code = 0;
    GetExceptionCode(1, &code);
}

TEST_F(Trace, AFunctionThatCallsNothingElsePrintsOneEnterAndOneExitLine) {
    const EnvironmentGuard on(lines::function_switch, "1");
    EXPECT_THAT(lines::texts(output_of(translate_a_code)),
                ElementsAre("TranslateErrorCode(): enter.", "TranslateErrorCode(): exit. returned int: 0."));
}

TEST_F(Trace, EnterAndExitLinesAreBlueAndInformationIsGreen) {
    const EnvironmentGuard functions(lines::function_switch, "1");
    const EnvironmentGuard information(lines::debug_switch, "1");
    for (const Line& line : output_of([] { IsInitialized(); })) {
        const bool frame =
            line.text.find(": enter.") != std::string::npos || line.text.find(": exit.") != std::string::npos;
        EXPECT_EQ(line.colour, frame ? lines::blue : lines::green) << line.text;
    }
}

struct ExitLine {
    const char* name;
    const char* text; // a regular expression
    void (*call)();
    friend std::ostream& operator<<(std::ostream& out, const ExitLine& one) { return out << one.name; }
};

class TraceExit : public Trace, public testing::WithParamInterface<ExitLine> {};

TEST_P(TraceExit, NamesTheResultByItsType) {
    const EnvironmentGuard on(lines::function_switch, "1");
    std::vector<Line> printed;
    errors_of([&] { printed = output_of(GetParam().call); });
    ASSERT_FALSE(printed.empty());
    EXPECT_EQ(printed.front().text, std::string(GetParam().name) + "(): enter.");
    EXPECT_THAT(printed.back().text, MatchesRegex(std::string(GetParam().name) + "\\(\\): exit\\." + GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    Functions, TraceExit,
    testing::Values(ExitLine{"hid_close_dev", "", [] { hid_close_dev(nullptr); }},
                    ExitLine{"catch_removing_device", "", [] { catch_removing_device(-1, 1, 0); }},
                    ExitLine{"core_uninitialize", "", [] { core_uninitialize(); }},
                    ExitLine{"Deinitialize", " returned int: 0\\.", [] { Deinitialize(); }},
                    ExitLine{"core_open_dev", " returned int: -1\\.", [] { core_open_dev(nullptr); }},
                    ExitLine{"GetDeviceCount", " returned int: 1\\.", [] { GetDeviceCount(nullptr); }},
                    ExitLine{"IsInitialized", " returned bool: FALSE\\.", [] { IsInitialized(); }},
                    ExitLine{"save_file", " returned long: -1\\.", [] { save_file(nullptr, nullptr, 0); }},
                    ExitLine{"load_file", " returned pointer: \\(nil\\)\\.", [] { load_file(nullptr, nullptr); }},
                    ExitLine{"hid_open_dev", " returned pointer: \\(nil\\)\\.", [] { hid_open_dev(nullptr); }}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(Trace, AnInitializedLibraryIsNamedAsTrue) {
    const EnvironmentGuard on(lines::function_switch, "1");
    Initialize();
    const auto printed = output_of([] { IsInitialized(); });
    Deinitialize();
    ASSERT_FALSE(printed.empty());
    EXPECT_EQ(printed.back().text, "IsInitialized(): exit. returned bool: TRUE.");
}

struct SwitchValue {
    const char* value; // nullptr: not set
    bool on;
    friend std::ostream& operator<<(std::ostream& out, const SwitchValue& one) {
        return out << (one.value == nullptr ? "not set" : one.value);
    }
};

class TraceSwitch : public Trace, public testing::WithParamInterface<SwitchValue> {};

TEST_P(TraceSwitch, IsOnForPositiveNumbersOnly) {
    const auto [value, on] = GetParam();
    const struct {
        const char* name;
        void (*call)();
    } kinds[] = {{lines::function_switch, translate_a_code},
                 {lines::mutex_switch, [] { IsInitialized(); }},
                 {lines::debug_switch, [] { IsInitialized(); }}};
    for (const auto& kind : kinds) {
        const EnvironmentGuard variable(kind.name, value);
        EXPECT_EQ(!output_of(kind.call).empty(), on) << kind.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Values, TraceSwitch,
                         testing::Values(SwitchValue{nullptr, false}, SwitchValue{"", false}, SwitchValue{"0", false},
                                         SwitchValue{"-1", false}, SwitchValue{"on", false}, SwitchValue{"x1", false},
                                         SwitchValue{"1", true}, SwitchValue{"2", true}, SwitchValue{" 7", true},
                                         SwitchValue{"1x", true}));

TEST_F(Trace, ASwitchTakesEffectInsideARunningCall) {
    // The callback runs between the enter and the exit line of the call that reports to it.
    RegisterLoggingCallBackProcedure(
        reinterpret_cast<void*>(+[](void*, const char16_t*) { setenv(lines::function_switch, "1", 1); }), nullptr);
    const EnvironmentGuard variable(lines::function_switch, nullptr);
    const auto printed = output_of([] { IsInitialized(); });
    RegisterLoggingCallBackProcedure(nullptr, nullptr);
    EXPECT_THAT(lines::texts(printed), ElementsAre("IsInitialized(): exit. returned bool: FALSE."));
}

TEST_F(Trace, EachSwitchGovernsOnlyItsOwnLines) {
    const auto kinds = [](const char* name) {
        const EnvironmentGuard on(name, "1");
        return output_of([] { IsInitialized(); });
    };
    EXPECT_THAT(lines::texts(kinds(lines::function_switch)),
                ElementsAre("IsInitialized(): enter.", "IsInitialized(): exit. returned bool: FALSE."));
    EXPECT_THAT(kinds(lines::mutex_switch), Each(Field(&Line::colour, lines::yellow)));
    EXPECT_THAT(lines::texts(kinds(lines::debug_switch)),
                ElementsAre("info: IsInitialized(): Is not initialized, use Initialize() first"));
}

TEST_F(Trace, LockLinesStandAroundTheLockAndNameItsExpression) {
    const EnvironmentGuard functions(lines::function_switch, "1");
    const EnvironmentGuard mutexes(lines::mutex_switch, "1");
    EXPECT_THAT(lines::texts(output_of([] { IsInitialized(); })),
                ElementsAre("IsInitialized(): enter.",
                            "IsInitialized(): >>>>>>>>     going to pthread_mutex_lock() -> &dev_list_short_lock",
                            "IsInitialized(): ########   was called pthread_mutex_lock() -> &dev_list_short_lock",
                            "IsInitialized(): <<<<<<<< was called pthread_mutex_unlock() -> &dev_list_short_lock",
                            "IsInitialized(): exit. returned bool: FALSE."));
}

TEST_F(Trace, FilingAnExceptionTracesItsLock) {
    const EnvironmentGuard mutexes(lines::mutex_switch, "1");
    std::vector<Line> printed;
    errors_of([&] { printed = output_of(fail_to_translate); });
    EXPECT_THAT(printed, Each(Field(&Line::colour, lines::yellow)));
    EXPECT_THAT(
        lines::texts(printed),
        testing::IsSupersetOf({"exception(): >>>>>>>>     going to pthread_mutex_lock() -> &exception_list_lock",
                               "exception(): ########   was called pthread_mutex_lock() -> &exception_list_lock",
                               "exception(): <<<<<<<< was called pthread_mutex_unlock() -> &exception_list_lock"}));
}

// Both for a record that is filed and for one that is read.
TEST_F(Trace, EachUseOfTheExceptionRecordsTakesTheirLockTwice) {
    const EnvironmentGuard mutexes(lines::mutex_switch, "1");
    const auto lock_lines = [](const std::string& function) {
        const std::string lock = "&exception_list_lock";
        return std::vector<std::string>{function + "(): >>>>>>>>     going to pthread_mutex_lock() -> " + lock,
                                        function + "(): ########   was called pthread_mutex_lock() -> " + lock,
                                        function + "(): <<<<<<<< was called pthread_mutex_unlock() -> " + lock};
    };
    const auto twice = [&](const std::string& function) {
        std::vector<std::string> all = lock_lines("init_exceptions");
        const std::vector<std::string> own = lock_lines(function);
        all.insert(all.end(), own.begin(), own.end());
        return all;
    };
    std::vector<Line> printed;
    errors_of([&] { printed = output_of(fail_to_translate); });
    EXPECT_EQ(lines::texts(printed), twice("exception"));
    unsigned int code = 0;
    EXPECT_EQ(lines::texts(output_of([&] { GetExceptionCode(1, &code); })), twice("GetExceptionCode"));
    std::array<char16_t, 256> text{};
    EXPECT_EQ(lines::texts(output_of([&] { GetExceptionName(1, text.data(), 256, &code); })),
              twice("GetExceptionName"));
}

TEST_F(Trace, OutputLinesCarryThreadTimeFileAndLineInColumns) {
    const EnvironmentGuard functions(lines::function_switch, "1");
    const EnvironmentGuard zone("TZ", "TST-3");
    tzset();
    standins::bus().advance_us(1'700'000'000'045'999 - standins::bus().now_us());
    long thread = 0;
    const auto printed = output_of([&] {
        std::thread([&] {
            thread = syscall(SYS_gettid);
            translate_a_code();
        }).join();
    });
    ASSERT_THAT(printed, SizeIs(2));
    for (const Line& line : printed) {
        EXPECT_EQ(line.thread, thread);
        EXPECT_EQ(line.time, "01:13:20.045"); // local time, milliseconds cut
        EXPECT_EQ(line.file.size(), 18U) << line.file;
        EXPECT_EQ(line.number.size(), 5U) << line.number;
        EXPECT_NE(line.file.find(".c"), std::string::npos) << line.file;
    }
    EXPECT_LT(std::stoi(printed.front().number), std::stoi(printed.back().number));
}

TEST_F(Trace, ErrorLinesHaveTheirOwnPrefixAndNeedNoSwitch) {
    const EnvironmentGuard zone("TZ", "UTC");
    tzset();
    standins::bus().advance_us(1'700'000'000'999'000 - standins::bus().now_us());
    const auto printed = errors_of(fail_to_translate);
    ASSERT_THAT(printed, SizeIs(1));
    const Line& line = printed.front();
    EXPECT_EQ(line.thread, syscall(SYS_gettid));
    EXPECT_EQ(line.time, "22:13:20.999");
    EXPECT_EQ(line.number.size(), 5U);
    EXPECT_EQ(line.text, "error: TranslateErrorCode(): Error of input parameters, char *res_text is NULL");
    EXPECT_EQ(line.reason, "");
}

TEST_F(Trace, ErrorLinesLeaveStandardOutputAlone) {
    EXPECT_EQ(lines::written(STDOUT_FILENO, [] { errors_of(fail_to_translate); }), "");
}

TEST_F(Trace, WhatTheApplicationPrintedComesBeforeAnErrorLine) {
    const std::string printed = lines::written(STDOUT_FILENO, [] {
        const OutputCapture errors(STDERR_FILENO);
        dup2(STDOUT_FILENO, STDERR_FILENO);
        std::fputs("printed before", stdout);
        fail_to_translate();
    });
    EXPECT_THAT(printed, testing::StartsWith("printed before\x1b[31m"));
}

TEST_F(Trace, TextsAreNoFormats) {
    Initialize();
    const EnvironmentGuard information(lines::debug_switch, "1");
    char16_t answer[64];
    unsigned int reply = 0;
    const auto printed = output_of([&] { SayHello(u"%s%n%d%%", answer, 64, &reply); });
    Deinitialize();
    EXPECT_THAT(lines::texts(printed), testing::Contains("info: SayHello(): wstr_to_astr() populate:  %s%n%d%%"));
}

TEST_F(Trace, LinesOfSeveralThreadsStayWhole) {
    const EnvironmentGuard functions(lines::function_switch, "1");
    const EnvironmentGuard mutexes(lines::mutex_switch, "1");
    constexpr int threads = 4;
    constexpr int calls = 50;
    const auto printed = output_of([] {
        std::vector<std::thread> running;
        for (int i = 0; i < threads; ++i) {
            running.emplace_back([] {
                for (int call = 0; call < calls; ++call) {
                    IsInitialized();
                }
            });
        }
        for (std::thread& thread : running) {
            thread.join();
        }
    });
    EXPECT_THAT(printed, SizeIs(threads * calls * 5));
}

TEST_F(Trace, ErrorLinesOfSeveralThreadsStayWhole) {
    constexpr int threads = 4;
    constexpr int calls = 50;
    const auto printed = errors_of([] {
        std::vector<std::thread> running;
        for (int i = 0; i < threads; ++i) {
            running.emplace_back([] {
                for (int call = 0; call < calls; ++call) {
                    fail_to_translate();
                }
            });
        }
        for (std::thread& thread : running) {
            thread.join();
        }
    });
    EXPECT_THAT(printed, SizeIs(threads * calls));
}

TEST_F(Trace, ReadingARecordPrintsTheCodeAsASignedNumber) {
    const EnvironmentGuard information(lines::debug_switch, "1");
    std::vector<Line> printed;
    errors_of([&] { printed = output_of(file_and_read_a_record); });
    EXPECT_THAT(lines::texts(printed), ElementsAre("info: GetExceptionCode(): OUTPUT: *reply: -1"));
}

} // namespace
