// File descriptors with an owner, and system calls that are checked.
#pragma once

#include <utility>

namespace emulator {

// Owns a file descriptor.
class Fd {
  public:
    Fd() = default;
    explicit Fd(int fd) : fd_{fd} {}
    Fd(Fd&& other) noexcept : fd_{std::exchange(other.fd_, -1)} {}
    Fd& operator=(Fd&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Fd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    void reset();

  private:
    int fd_ = -1;
};

// Throws std::system_error with `what` when a system call has failed.
int check(int result, const char* what);

} // namespace emulator
