#include "printing.hpp"
#include "terminal_view.hpp"
#include "upload_command.hpp"

#include <cstdlib>
#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace vxpadctl;
using testing::HasSubstr;

namespace {

// A terminal of 20 columns, and what is written to it.
class Terminal : public testing::Test {
  protected:
    Terminal() {
        ::setenv("TERM", "xterm", 1);
        winsize size{};
        size.ws_row = 5;
        size.ws_col = 20;
        int slave = -1;
        if (::openpty(&master_, &slave, nullptr, nullptr, &size) == 0) {
            file_.reset(::fdopen(slave, "w"));
        }
    }
    ~Terminal() override { ::close(master_); }

    // What is written comes in as many parts as the terminal likes.
    void expect_seen(const std::string& expected) const {
        constexpr int patience_ms = 5000;
        std::string seen;
        pollfd terminal{master_, POLLIN, 0};
        while (seen.size() < expected.size() && ::poll(&terminal, 1, patience_ms) == 1) {
            char buffer[4096];
            const auto size = ::read(master_, buffer, sizeof buffer);
            ASSERT_GT(size, 0);
            seen.append(buffer, static_cast<std::size_t>(size));
        }
        EXPECT_EQ(seen, expected);
    }

    int master_ = -1;
    OwnedFile file_;
};

TEST_F(Terminal, LinesAreDrawnOverThoseBefore) {
    ASSERT_TRUE(file_);
    TerminalView view{file_.get()};
    ASSERT_TRUE(view.is_terminal());
    view.draw({"one", "two"});
    expect_seen("one\033[K\r\ntwo\033[K\r\n");
    view.draw({"three", "four"});
    expect_seen("\r\033[2Athree\033[K\r\nfour\033[K\r\n");
}

// A line that wraps would take two.
TEST_F(Terminal, LinesAreCutToItsWidth) {
    ASSERT_TRUE(file_);
    TerminalView view{file_.get()};
    view.draw({std::string(21, 'x')});
    expect_seen(std::string(19, 'x') + "…\033[K\r\n");
}

// Lines that scroll out of it cannot be drawn over.
TEST_F(Terminal, LinesAreAsManyAsItsRows) {
    ASSERT_TRUE(file_);
    TerminalView view{file_.get()};
    const std::string four = "1\033[K\r\n2\033[K\r\n3\033[K\r\n4\033[K\r\n";
    view.draw({"1", "2", "3", "4", "5", "6"});
    expect_seen(four);
    view.draw({"1", "2", "3", "4", "5", "6"});
    expect_seen("\r\033[4A" + four);
}

TEST_F(Terminal, LinesThatNoLongerFitAreWipedOut) {
    ASSERT_TRUE(file_);
    TerminalView view{file_.get()};
    view.draw({"1", "2", "3"});
    expect_seen("1\033[K\r\n2\033[K\r\n3\033[K\r\n");
    winsize size{};
    size.ws_row = 2;
    size.ws_col = 1;
    ASSERT_EQ(::ioctl(master_, TIOCSWINSZ, &size), 0);
    view.draw({"one", "two"});
    expect_seen("\r\033[3A…\033[K\r\n\033[J");
}

TEST_F(Terminal, ThatTellsNoSizeHasTheUsualOne) {
    ASSERT_TRUE(file_);
    const winsize size{};
    ASSERT_EQ(::ioctl(master_, TIOCSWINSZ, &size), 0);
    TerminalView view{file_.get()};
    view.draw({std::string(80, 'x'), "2", "3", "4", "5", "6"});
    expect_seen(std::string(80, 'x') + "\033[K\r\n2\033[K\r\n3\033[K\r\n4\033[K\r\n5\033[K\r\n6\033[K\r\n");
}

TEST_F(Terminal, ThatKnowsNoEscapesIsNone) {
    ASSERT_TRUE(file_);
    ::setenv("TERM", "dumb", 1);
    EXPECT_FALSE(TerminalView(file_.get()).is_terminal());
    ::unsetenv("TERM");
    EXPECT_FALSE(TerminalView(file_.get()).is_terminal());
}

TEST(TerminalView, AFileIsNoTerminal) {
    const OwnedFile file{std::fopen("/dev/null", "w")};
    EXPECT_FALSE(TerminalView(file.get()).is_terminal());
}

TEST(TerminalView, ABarNeverLeavesItsFrame) {
    EXPECT_EQ(bar(0.5, 4), "[##--]");
    EXPECT_EQ(bar(0, 4), "[----]");
    EXPECT_EQ(bar(1, 4), "[####]");
    EXPECT_EQ(bar(-1, 4), "[----]");
    EXPECT_EQ(bar(7, 4), "[####]");
}

TEST(TerminalView, ProgressTellsPartSpeedAndTimeLeft) {
    EXPECT_THAT(progress_line(25600, 102400, 2),
                HasSubstr("[##########------------------------------] 25 %  12.5 KB/s  6 s left"));
    EXPECT_THAT(progress_line(102400, 102400, 2), HasSubstr("] 100 %  50.0 KB/s  0 s left"));
    EXPECT_THAT(progress_line(0, 102400, 2), HasSubstr("] 0 %  0.0 KB/s"));
    EXPECT_THAT(progress_line(102399, 102400, 2), HasSubstr("] 99 %"));
}

} // namespace
