#include "program/command.hpp"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string_view>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

namespace emulator {

namespace {

constexpr int exit_not_found = 127;
constexpr int exit_not_executable = 126;
constexpr auto patience = std::chrono::seconds(3);

sigset_t watched_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        sigaddset(&set, signal);
    }
    return set;
}

// Everything that may allocate is done before the fork.
std::vector<std::string> environment(const Surroundings& surroundings) {
    auto variables = surroundings.variables;
    if (!surroundings.preload_libraries.empty()) {
        const char* preloaded = std::getenv("LD_PRELOAD");
        const bool more = preloaded != nullptr && *preloaded != 0;
        variables.emplace_back("LD_PRELOAD",
                               surroundings.preload_libraries + (more ? ":" : "") + (more ? preloaded : ""));
    }
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        bool replaced = false;
        for (const auto& [name, value] : variables) {
            replaced = replaced || std::string_view{*entry}.starts_with(name + "=");
        }
        if (!replaced) {
            result.emplace_back(*entry);
        }
    }
    for (const auto& [name, value] : variables) {
        result.push_back(name + "=" + value);
    }
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (auto& string : strings) {
        result.push_back(string.data());
    }
    result.push_back(nullptr);
    return result;
}

// Processes that the command has left behind have become children of this one.
std::vector<pid_t> children() {
    const auto self = std::to_string(getpid());
    std::ifstream file{"/proc/" + self + "/task/" + self + "/children"};
    std::vector<pid_t> result;
    for (pid_t pid; file >> pid;) {
        result.push_back(pid);
    }
    return result;
}

// Again and again, for killing a process may hand its children to this one; but not one that has become another
// user's.
void end_descendants() {
    for (bool killed = true; killed;) {
        killed = false;
        for (const auto pid : children()) {
            if (::kill(pid, SIGKILL) == 0) {
                killed = ::waitpid(pid, nullptr, 0) == pid || killed;
            }
        }
    }
}

} // namespace

Command::Command(EventLoop& loop) : loop_{loop} {
    const auto set = watched_signals();
    check(sigprocmask(SIG_BLOCK, &set, nullptr), "sigprocmask");
    signals_ = Fd{check(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd")};
    loop_.watch(signals_.get(), EPOLLIN, [this](std::uint32_t) { on_signal(); });
    prctl(PR_SET_CHILD_SUBREAPER, 1);
}

Command::~Command() {
    loop_.forget(signals_.get());
    end_descendants();
}

void Command::start(const std::vector<std::string>& arguments, const Surroundings& surroundings) {
    auto words = arguments;
    auto variables = environment(surroundings);
    const auto argv = pointers(words);
    const auto envp = pointers(variables);
    const auto set = watched_signals();
    const auto parent = getpid();
    pid_ = check(::fork(), "fork");
    if (pid_ != 0) {
        return;
    }
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    prctl(PR_SET_PDEATHSIG, SIGKILL); // should the emulator be killed
    if (getppid() != parent) {
        _exit(exit_not_found);
    }
    execvpe(argv[0], argv.data(), envp.data());
    const int error = errno;
    std::cerr << "vxpad-emulator: cannot run " << words[0] << ": " << std::strerror(error) << std::endl;
    _exit(error == ENOENT ? exit_not_found : exit_not_executable);
}

void Command::on_signal() {
    signalfd_siginfo info{};
    if (::read(signals_.get(), &info, sizeof info) != sizeof info) {
        return;
    }
    if (info.ssi_signo == SIGCHLD) {
        collect();
    } else if (pid_ < 0 || info.ssi_code != SI_KERNEL) { // the terminal has sent it to the command too
        end(static_cast<int>(info.ssi_signo));
    }
}

// Passes a signal on; a command that does not heed it, or is asked twice, is killed. Without a command it is the end.
void Command::end(int signal) {
    if (pid_ < 0) {
        loop_.stop();
        return;
    }
    ::kill(pid_, ended_by_us_ ? SIGKILL : signal);
    if (!ended_by_us_) {
        loop_.call_after(patience, [this] { ::kill(pid_, SIGKILL); });
    }
    ended_by_us_ = true;
}

void Command::collect() {
    int status = 0;
    for (pid_t pid = ::waitpid(-1, &status, WNOHANG); pid > 0; pid = ::waitpid(-1, &status, WNOHANG)) {
        if (pid != pid_) {
            continue;
        }
        end_descendants();
        result_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        loop_.stop();
        return;
    }
}

} // namespace emulator
