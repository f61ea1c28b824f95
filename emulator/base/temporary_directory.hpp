// A private directory that is gone with its owner.
#pragma once

#include "base/fd.hpp"

#include <filesystem>

namespace emulator {

class TemporaryDirectory {
  public:
    // Removes first what an earlier one has left over that was killed. `mark` is a socket that the owner puts into it,
    // so that nobody else's directory is taken for one of these.
    explicit TemporaryDirectory(const char* mark);
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
    Fd lock_; // tells others that the owner is alive
};

} // namespace emulator
