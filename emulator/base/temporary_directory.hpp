// A private directory that is gone with its owner.
#pragma once

#include "base/fd.hpp"

#include <filesystem>
#include <span>

namespace emulator {

class TemporaryDirectory {
  public:
    // Removes first what earlier ones have left over that were killed. Each owner puts a socket with one of the names
    // `marks` into it, so that nobody else's directory is taken for one of these.
    explicit TemporaryDirectory(std::span<const char* const> marks);
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
    Fd lock_; // tells others that the owner is alive
};

} // namespace emulator
