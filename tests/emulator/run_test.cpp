// Starts vxpad-emulator with small commands: exit status, signals and cleaning up.
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds patience = 10s) {
    const auto deadline = Clock::now() + patience;
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

class Run : public testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/vxrun-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        directory_ = name;
        setenv("TMPDIR", name, 1);
        unsetenv("LD_PRELOAD");
    }

    void TearDown() override {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        EXPECT_TRUE(files().empty()) << *files().begin();
        fs::remove_all(directory_);
    }

    // Everything in the directory for temporary files but what the test's own commands have written.
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(directory_)) {
            if (!entry.path().filename().string().starts_with("test-")) {
                names.push_back(entry.path());
            }
        }
        return names;
    }

    fs::path file(const std::string& name) const { return directory_ / ("test-" + name); }
    std::string content(const std::string& name) const {
        std::ifstream stream{file(name)};
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    void start(const std::vector<std::string>& arguments) {
        std::vector<std::string> words{VXPAD_EMULATOR};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (auto& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        const auto output = file("output").string();
        process_ = fork();
        if (process_ != 0) {
            return;
        }
        const int fd = open(output.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
        dup2(fd, 1);
        dup2(fd, 2);
        execv(argv[0], argv.data());
        _exit(99);
    }

    // Its exit status; -1 when it was killed, -2 when it does not end.
    int finish() {
        int status = 0;
        if (!eventually([&] { return waitpid(process_, &status, WNOHANG) == process_; })) {
            return -2;
        }
        process_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    int run(const std::vector<std::string>& arguments) {
        start(arguments);
        return finish();
    }

    // Runs a shell script under the emulator until it has written its file "ready".
    void start_script(const std::string& script) {
        start({"run", "--", "sh", "-c", script + "\n", "sh", directory_.string()});
        ASSERT_TRUE(eventually([&] { return fs::exists(file("ready")); })) << content("output");
    }

    pid_t process_ = -1;
    fs::path directory_;
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
        {{"run", "--fault", "stall", "--", "true"}, "N:FAULT"},
        {{"run", "--fault", "2:stall", "--", "true"}, "no pad 2"},
        {{"run", "--fault", "1:explode", "--", "true"}, "explode"},
        {{"run", "--fault", "1:stall,count=0", "--", "true"}, "'0'"},
    };
    for (const auto& [arguments, text] : wrong) {
        EXPECT_EQ(run(arguments), 2) << text;
        EXPECT_NE(content("output").find(text), std::string::npos) << text << ": " << content("output");
    }
    EXPECT_EQ(run({"--help"}), 0);
    EXPECT_TRUE(content("output").starts_with("Usage:"));
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
