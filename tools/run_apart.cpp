#include "run_apart.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace vxpadctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t longest_result = 1U << 20;

[[noreturn]] void work_in_child(const ApartWork& piece, int out, pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        ::_exit(1);
    }
    std::string result;
    try {
        result = piece.work();
    } catch (const std::exception&) {
        ::_exit(1);
    }
    for (std::size_t done = 0; done < result.size();) {
        const ssize_t written = ::write(out, result.data() + done, result.size() - done);
        if (written < 0 && errno != EINTR) {
            ::_exit(1);
        }
        done += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    }
    ::close(out); // what is left to do does not count as waiting
    ::_exit(0);
}

// A process and the end of the pipe on which its result comes. It does not outlive this.
class Child {
  public:
    explicit Child(const ApartWork& piece) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        const pid_t parent = ::getpid();
        pid_ = ::fork();
        if (pid_ == 0) {
            ::close(ends[0]);
            work_in_child(piece, ends[1], parent);
        }
        ::close(ends[1]);
        fd_ = ends[0];
        if (pid_ < 0) {
            ::close(fd_);
            throw std::system_error(errno, std::generic_category(), "fork");
        }
    }
    ~Child() {
        if (pid_ > 0) {
            end();
        }
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    Child(Child&& other) noexcept
        : pid_{std::exchange(other.pid_, -1)}, fd_{std::exchange(other.fd_, -1)}, result_{std::move(other.result_)} {}
    Child& operator=(Child&&) = delete;

    int fd() const { return fd_; }
    bool is_running() const { return pid_ > 0; }

    void read_result() {
        char bytes[4096];
        const ssize_t size = ::read(fd_, bytes, sizeof bytes);
        if (size < 0 && errno == EINTR) {
            return;
        }
        if (size <= 0 || result_.size() > longest_result) {
            wait();
        } else {
            result_.append(bytes, static_cast<std::size_t>(size));
        }
    }

    void end() {
        ::kill(pid_, SIGKILL);
        wait();
    }

    std::optional<std::string> result() const { return is_done_ ? std::optional(result_) : std::nullopt; }

  private:
    void wait() {
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        is_done_ = WIFEXITED(status) && WEXITSTATUS(status) == 0;
        pid_ = -1;
    }

    pid_t pid_ = -1;
    int fd_ = -1;
    std::string result_;
    bool is_done_ = false;
};

} // namespace

std::vector<std::optional<std::string>>
run_apart(std::span<const ApartWork> pieces, Patience patience,
          const std::function<void(std::span<const std::size_t> waited_for, std::chrono::milliseconds)>& tell) {
    constexpr std::chrono::milliseconds longest_pause{50};
    const auto start = Clock::now();
    auto next_telling = start + patience.between_tellings;
    std::vector<Child> children;
    children.reserve(pieces.size());
    for (const ApartWork& piece : pieces) {
        children.emplace_back(piece);
    }
    for (;;) {
        std::vector<std::size_t> running;
        std::vector<pollfd> waited_for;
        for (std::size_t i = 0; i < children.size(); ++i) {
            if (children[i].is_running() && pieces[i].is_moot != nullptr && pieces[i].is_moot()) {
                children[i].end();
            }
            if (children[i].is_running()) {
                running.push_back(i);
                waited_for.push_back({children[i].fd(), POLLIN, 0});
            }
        }
        const auto now = Clock::now();
        if (running.empty() || now >= start + patience.longest) {
            break;
        }
        if (now >= next_telling) {
            tell(running, std::chrono::duration_cast<std::chrono::milliseconds>(now - start));
            next_telling += patience.between_tellings;
        }
        ::poll(waited_for.data(), waited_for.size(), static_cast<int>(longest_pause.count()));
        for (std::size_t i = 0; i < running.size(); ++i) {
            if (waited_for[i].revents != 0) {
                children[running[i]].read_result();
            }
        }
    }
    std::vector<std::optional<std::string>> results;
    for (const Child& child : children) {
        results.push_back(child.result());
    }
    return results;
}

} // namespace vxpadctl
