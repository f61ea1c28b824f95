#include "support/lines.hpp"
#include "support/syslog.hpp"

#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <gmock/gmock.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ostream>
#include <string>

using syslog_standin::Entry;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

class ErrorLines : public testing::Test {
  protected:
    void SetUp() override {
        syslog_standin::entries().clear();
        Deinitialize();
    }
    void TearDown() override { daemon_proc = 0; }

    template <class Call> static std::string errors_of(Call call) { return lines::written(STDERR_FILENO, call); }

    lines::AllSwitchesOff off_;
};

TEST_F(ErrorLines, ErrMsgPrintsTheTextAndALineEnd) {
    errno = ENOENT;
    EXPECT_EQ(errors_of([] { err_msg("%s has %d of %%", "pad", 7); }), "pad has 7 of %\n");
}

TEST_F(ErrorLines, ErrRetAppendsTheErrnoText) {
    EXPECT_EQ(errors_of([] {
                  errno = ENOENT;
                  err_ret("open() for %s", "x");
              }),
              "open() for x: No such file or directory\n");
}

TEST_F(ErrorLines, ATextBeyondTheBufferIsCutAndStillEndsTheLine) {
    const std::string text(5000, 'a');
    for (const auto print : {err_msg, err_ret}) {
        const std::string printed = errors_of([&] { print("%s", text.c_str()); });
        EXPECT_THAT(printed, AllOf(StartsWith(text.substr(0, 4000)), EndsWith("\n")));
        EXPECT_LE(printed.size(), 4097U);
    }
}

TEST_F(ErrorLines, TheErrnoTextIsCutToTheSpaceLeft) {
    const std::string text(4090, 'a');
    const std::string printed = errors_of([&] {
        errno = ENOENT;
        err_ret("%s", text.c_str());
    });
    EXPECT_THAT(printed, StartsWith(text + ": "));
    EXPECT_LE(printed.size(), 4097U);
}

TEST_F(ErrorLines, ADaemonsLinesGoToSyslogAtTheirLevel) {
    daemon_proc = 1;
    const std::string printed = errors_of([] {
        err_msg("first 100%% of %s", "%s");
        errno = EACCES;
        err_ret("second");
    });
    EXPECT_EQ(printed, "");
    EXPECT_THAT(syslog_standin::entries(),
                ElementsAre(Entry{LOG_INFO, "first 100% of %s\n"}, Entry{LOG_INFO, "second: Permission denied\n"}));
}

TEST_F(ErrorLines, AnyNonZeroValueMakesADaemon) {
    daemon_proc = -5;
    EXPECT_EQ(errors_of([] { err_msg("text"); }), "");
    EXPECT_THAT(syslog_standin::entries(), SizeIs(1));
}

TEST_F(ErrorLines, AFailingCallOfADaemonLogsItsLineToSyslog) {
    daemon_proc = 1;
    EXPECT_EQ(errors_of([] { TranslateErrorCode(0, nullptr, 1, nullptr); }), "");
    ASSERT_THAT(syslog_standin::entries(), SizeIs(1));
    const Entry& entry = syslog_standin::entries().front();
    EXPECT_EQ(entry.priority, LOG_INFO);
    const auto parsed = lines::parse_errors(entry.text);
    ASSERT_THAT(parsed, SizeIs(1));
    EXPECT_EQ(parsed.front().text, "error: TranslateErrorCode(): Error of input parameters, char *res_text is NULL");
}

TEST_F(ErrorLines, AfterTheDaemonStateEndsLinesGoToStandardErrorAgain) {
    daemon_proc = 1;
    err_msg("to syslog");
    daemon_proc = 0;
    EXPECT_EQ(errors_of([] { err_msg("to standard error"); }), "to standard error\n");
    EXPECT_THAT(syslog_standin::entries(), SizeIs(1));
}

// Calls that end the process.
class ErrorLinesDeath : public testing::Test {
  protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(ErrorLinesDeath, ErrSysEndsWithStatus1AndTheErrnoText) {
    EXPECT_EXIT(
        {
            errno = ENOMEM;
            err_sys("error: %s", "malloc()");
        },
        testing::ExitedWithCode(1), HasSubstr("error: malloc(): Cannot allocate memory\n"));
}

TEST_F(ErrorLinesDeath, ErrQuitEndsWithStatus1WithoutErrnoText) {
    EXPECT_EXIT(
        {
            errno = ENOMEM;
            err_quit("the %s", "end");
        },
        testing::ExitedWithCode(1), AllOf(HasSubstr("the end\n"), Not(HasSubstr("memory"))));
}

TEST_F(ErrorLinesDeath, ErrDumpAborts) {
    EXPECT_EXIT(
        {
            errno = EIO;
            err_dump("the end");
        },
        testing::KilledBySignal(SIGABRT), HasSubstr("the end: Input/output error\n"));
}

struct Ending {
    const char* name;
    void (*call)(const char*, ...);
    const char* text;
    friend std::ostream& operator<<(std::ostream& out, const Ending& one) { return out << one.name; }
};

class ErrorLinesDeathInADaemon : public ErrorLinesDeath, public testing::WithParamInterface<Ending> {};

TEST_P(ErrorLinesDeathInADaemon, IsLoggedAsAnError) {
    EXPECT_DEATH(
        {
            syslog_standin::echo = true;
            daemon_proc = 1;
            errno = EIO;
            GetParam().call("%s", "the end");
        },
        HasSubstr(std::string("syslog 3: ") + GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(Functions, ErrorLinesDeathInADaemon,
                         testing::Values(Ending{"err_sys", err_sys, "the end: Input/output error\n"},
                                         Ending{"err_dump", err_dump, "the end: Input/output error\n"},
                                         Ending{"err_quit", err_quit, "the end\n"}),
                         [](const auto& tested) { return std::string(tested.param.name); });

} // namespace
