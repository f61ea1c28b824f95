// A private directory that is gone with its owner.
#pragma once

#include "base/event_loop.hpp"

#include <filesystem>

namespace emulator {

class TemporaryDirectory {
  public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
    Fd lock_; // tells others that the owner is alive
};

} // namespace emulator
