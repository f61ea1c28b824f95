// Starts vxpad-emulator with small commands: exit status, signals and cleaning up.
#include "program.hpp"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <initializer_list>
#include <poll.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace program;

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

class Run : public Program {
  protected:
    // Runs a shell script under the emulator until it has written its file "ready".
    void start_script(const std::string& script) {
        start({"run", "--", "sh", "-c", script + "\n", "sh", directory_.string()});
        ASSERT_TRUE(eventually([&] { return fs::exists(file("ready")); })) << content("output");
    }
};

TEST_F(Run, ExitStatusIsTheCommands) {
    EXPECT_EQ(run({"run", "--", "true"}), 0);
    EXPECT_EQ(run({"run", "--", "sh", "-c", "exit 42"}), 42);
    EXPECT_EQ(run({"run", "true"}), 0);
    EXPECT_EQ(run({"run", "--", "sh", "-c", "kill -SEGV $$"}), 128 + SIGSEGV);
    EXPECT_EQ(run({"run", "--", "sh", "-c", "kill -KILL $$"}), 128 + SIGKILL);
    EXPECT_EQ(run({"run", "--", "/nonexistent/command"}), 127);
    EXPECT_EQ(run({"run", "--", "/etc"}), 126);
}

TEST_F(Run, CommandFindsTheControlSocket) {
    EXPECT_EQ(run({"run", "--", "sh", "-c", "test -S \"$VXPAD_EMULATOR_CONTROL\""}), 0);
    const auto path = file("control").string();
    EXPECT_EQ(run({"run", "--control", path, "--", "sh", "-c", "test \"$VXPAD_EMULATOR_CONTROL\" = " + path}), 0);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(Run, ADeniedPadCannotBeOpened) {
    const std::string open = "true <>/dev/bus/usb/001/002";
    EXPECT_EQ(run({"run", "--pad", "access=open", "--", "sh", "-c", open}), 0) << content("output");
    EXPECT_NE(run({"run", "--pad", "access=denied", "--", "sh", "-c", open}), 0);
    EXPECT_NE(content("output").find("Permission denied"), std::string::npos) << content("output");
}

TEST_F(Run, TheSystemKnowsAPadsTexts) {
    EXPECT_EQ(run({"run", "--pad", "maker=Acme,product=,serial=A1", "--", "sh", "-c",
                   "cd /sys/bus/usb/devices/1-1; cat manufacturer serial; cat product"}),
              1);
    EXPECT_TRUE(content("output").starts_with("Acme\nA1\n")) << content("output");
}

TEST_F(Run, WrongOptionsAreRefused) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> wrong{
        {{}, "nothing to do"},
        {{"walk"}, "walk"},
        {{"run"}, "COMMAND"},
        {{"run", "--nonsense", "--", "true"}, "--nonsense"},
        {{"run", "--pad"}, "--pad"},
        {{"run", "--pad", "color=red", "--", "true"}, "color"},
        {{"run", "--pad", "pen=sometimes", "--", "true"}, "sometimes"},
        {{"run", "--pad", "pen=loop,pen-rate=0", "--", "true"}, "pen-rate"},
        {{"run", "--pad", "interfaces=2,pen-interface=2", "--", "true"}, "pen-interface"},
        {{"run", "--pad", "signature=/nonexistent/file", "--", "true"}, "/nonexistent/file"},
        {{"run", "--pad", "signature=/dev/null", "--", "true"}, "not a regular file"},
        {{"run", "--pad", "type=3", "--", "true"}, "type 3"},
        {{"run", "--pad", "interfaces=0", "--", "true"}, "interfaces"},
        {{"run", "--pad", "version=1.2", "--", "true"}, "version"},
        {{"run", "--pad", "serial=" + std::string(127, 'x'), "--", "true"}, "126"},
        {{"run", "--pad", "serial=\xff", "--", "true"}, "UTF-8"},
        {{"run", "--pad", "serial=\xc3(", "--", "true"}, "UTF-8"},
        {{"run", "--pad", "version=1.2.3.4.5", "--", "true"}, "four numbers"},
        {{"run", "--pad", "version=1.2.3.4:AB", "--", "true"}, "four characters"},
        {{"run", "--pad", "unknown=maybe", "--", "true"}, "neither refuse nor loop-back"},
        {{"run", "--pad", "access=perhaps", "--", "true"}, "neither open nor denied"},
        {{"run", "--pad", "named=yes", "--", "true"}, "named is for VCOM pads"},
        {{"run", "--vcom", "interfaces=2", "--", "true"}, "one interface"},
        {{"run", "--vcom", "told-serial=" + std::string(256, 'x'), "--", "true"}, "at most 255 bytes"},
        {{"run", "--vcom", "modes=1" + repeated(":1", 255), "--", "true"}, "at most 255"},
        {{"run", "--vcom", "components=1:256", "--", "true"}, "256"},
        {{"run", "--fault", "stall", "--", "true"}, "N:FAULT"},
        {{"run", "--fault", "2:stall", "--", "true"}, "no pad 2"},
        {{"run", "--fault", "1:explode", "--", "true"}, "explode"},
        {{"run", "--fault", "1:stall,count=0", "--", "true"}, "'0'"},
    };
    for (const auto& [arguments, text] : wrong) {
        EXPECT_EQ(run(arguments), 2) << text;
        EXPECT_NE(content("output").find(text), std::string::npos) << text << ": " << content("output");
    }
    EXPECT_EQ(run({"run", "--pad", "type=16", "--help"}), 0);
    EXPECT_TRUE(content("output").starts_with("Usage:"));
    EXPECT_EQ(run({"--help"}), 0);
    EXPECT_TRUE(content("output").starts_with("Usage:"));
    EXPECT_EQ(run({"--version"}), 0);
    EXPECT_TRUE(content("output").starts_with("vxpad-emulator 0.")) << content("output");
}

TEST_F(Run, AHelpThatCannotBeWrittenIsAFailure) {
    const std::string command = VXPAD_EMULATOR " --help >/dev/full 2>" + file("output").string();
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 1);
    EXPECT_EQ(content("output"), "vxpad-emulator: cannot write the help: No space left on device\n");
}

TEST_F(Run, SignaturesAreChecked) {
    for (const auto& [points, text] : {std::pair{"1 2\n", "x y pressure"}, std::pair{"# none\n", "no point at all"}}) {
        std::ofstream{file("points")} << points;
        EXPECT_EQ(run({"run", "--pad", "signature=" + file("points").string(), "--", "true"}), 2) << text;
        EXPECT_NE(content("output").find(text), std::string::npos) << content("output");
    }
}

TEST_F(Run, VerboseTellsWhatTravels) {
    EXPECT_EQ(run({"run", "--verbose", "--pad", "type=16", "--fault", "1:stall,on=get-feature,count=1", "--", VXPADCTL,
                   "feature", "get", "1"}),
              0)
        << content("output");
    const std::string output = content("output");
    for (const char* text :
         {"vxpad-emulator: pad 1: control 8006000300004000 -> 04030904", " stall\n", "pad 1: out feature"}) {
        EXPECT_NE(output.find(text), std::string::npos) << text << "\n" << output;
    }
}

TEST_F(Run, SignalEndsTheCommandToo) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        start_script("echo $$ > $1/test-pid; touch $1/test-ready; exec sleep 1000");
        kill(process_, signal);
        EXPECT_EQ(finish(), 128 + signal);
        EXPECT_LT(kill(std::stoi(content("pid")), 0), 0);
        fs::remove(file("ready"));
    }
}

TEST_F(Run, CommandThatIgnoresASignalIsKilled) {
    start_script("trap '' TERM; touch $1/test-ready; while :; do sleep 1000; done");
    kill(process_, SIGTERM);
    kill(process_, SIGTERM);
    EXPECT_EQ(finish(), 128 + SIGKILL);
}

TEST_F(Run, ProcessesThatTheCommandLeavesBehindAreEnded) {
    start_script("sleep 1000 & echo $! > $1/test-pid; touch $1/test-ready; exit 5");
    EXPECT_EQ(finish(), 5);
    EXPECT_LT(kill(std::stoi(content("pid")), 0), 0);
}

// Also what has left the command's session, heeds no signal and has children of its own.
TEST_F(Run, StubbornProcessesThatTheCommandLeavesBehindAreEndedWithTheirChildren) {
    start_script("trap '' TERM HUP INT\n"
                 "setsid sh -c 'trap \"\" TERM HUP INT; sleep 1000 & echo $! > $1/test-child; echo $$ > $1/test-pid; "
                 "touch $1/test-left; while :; do sleep 1000; done' sh $1 &\n"
                 "until [ -e $1/test-left ]; do sleep 0.01; done\n"
                 "touch $1/test-ready; exit 6");
    EXPECT_EQ(finish(), 6);
    for (const char* name : {"pid", "child"}) {
        EXPECT_LT(kill(std::stoi(content(name)), 0), 0) << name;
    }
}

TEST_F(Run, KilledEmulatorTakesTheCommandAlong) {
    start_script("echo $$ > $1/test-pid; touch $1/test-ready; exec sleep 1000");
    const auto command = std::stoi(content("pid"));
    ASSERT_EQ(files().size(), 1U);
    const auto directory = files().front();
    const auto run_another = [&] {
        fs::last_write_time(directory, fs::file_time_type::clock::now() - 1h);
        const auto first = std::exchange(process_, -1);
        EXPECT_EQ(run({"run", "--", "true"}), 0);
        process_ = first;
    };
    run_another();
    EXPECT_TRUE(fs::exists(directory)) << "its owner is alive";
    kill(process_, SIGKILL);
    EXPECT_EQ(finish(), -1);
    EXPECT_TRUE(eventually([&] { return kill(command, 0) < 0; }));
    EXPECT_TRUE(fs::exists(directory));
    run_another();
    EXPECT_FALSE(fs::exists(directory));
}

TEST_F(Run, RestIsQuiet) {
    start_script("touch $1/test-ready; sleep 1000");
    const auto switches = [&] {
        std::ifstream status{"/proc/" + std::to_string(process_) + "/status"};
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("voluntary_ctxt_switches:")) {
                return std::stol(line.substr(line.find(':') + 1));
            }
        }
        return -1L;
    };
    const auto before = switches();
    ASSERT_GE(before, 0);
    poll(nullptr, 0, 300); // rest is nothing that one could wait for
    EXPECT_LE(switches() - before, 2);
    kill(process_, SIGTERM);
    EXPECT_EQ(finish(), 128 + SIGTERM);
}

} // namespace
