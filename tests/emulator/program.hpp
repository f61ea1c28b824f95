// vxpad-emulator as a program that a test starts and ends.
#pragma once

#include "eventually.hpp"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace program {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

class Program : public testing::Test {
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

    pid_t process_ = -1;
    fs::path directory_;
};

} // namespace program
