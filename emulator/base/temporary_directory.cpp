#include "base/temporary_directory.hpp"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <stdlib.h>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace emulator {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view prefix = "vxpad-run-";
constexpr std::string_view pattern = "XXXXXX";

// The paths of Unix sockets have 107 characters at most.
constexpr std::size_t longest_parent = 60;

// A directory younger than this may belong to an emulator that has not locked it yet.
constexpr std::time_t youngest_left_over = 60;

fs::path parent() {
    const char* wanted = std::getenv("TMPDIR");
    return wanted != nullptr && *wanted == '/' && std::string_view{wanted}.size() <= longest_parent ? wanted : "/tmp";
}

Fd lock(const fs::path& directory, int how) {
    Fd fd{::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
    return fd && ::flock(fd.get(), LOCK_EX | how) == 0 ? std::move(fd) : Fd();
}

bool is_left_over(const fs::path& path, std::span<const char* const> marks) {
    const auto name = path.filename().string();
    if (!name.starts_with(prefix) || name.size() != prefix.size() + pattern.size()) {
        return false;
    }
    const auto held = lock(path, LOCK_NB);
    struct stat status {};
    const auto has = [&](const char* mark) {
        std::error_code ignored;
        return fs::is_socket(path / mark, ignored);
    };
    return held && ::fstat(held.get(), &status) == 0 && status.st_uid == ::geteuid() &&
           status.st_mtime < std::time(nullptr) - youngest_left_over && std::ranges::any_of(marks, has);
}

} // namespace

TemporaryDirectory::TemporaryDirectory(std::span<const char* const> marks) {
    const auto place = parent();
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(place, ignored)) { // of emulators that were killed
        if (is_left_over(entry.path(), marks)) {
            fs::remove_all(entry.path(), ignored);
        }
    }
    auto name = (place / prefix).string().append(pattern);
    if (::mkdtemp(name.data()) == nullptr) {
        check(-1, name.c_str());
    }
    path_ = fs::canonical(name);
    lock_ = lock(path_, 0); // at most another one's short look is in the way
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

} // namespace emulator
