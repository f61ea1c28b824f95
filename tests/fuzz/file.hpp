// A file in memory, for what reads files.
#pragma once

#include "fuzz.hpp"

#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fuzz {

class File {
  public:
    // Its path stays the same, its contents are replaced.
    static const std::string& holding(std::string_view text) {
        static const int fd = ::memfd_create("fuzz", MFD_CLOEXEC);
        static const std::string path = "/proc/self/fd/" + std::to_string(fd);
        require(::ftruncate(fd, 0) == 0, "an empty file");
        require(::pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()), "a written file");
        return path;
    }
};

// What is wrong with an input is told in one line that begins with the file.
inline void require_message(std::string_view message, std::string_view file) {
    require(message.starts_with(file), "a message with the file's name");
    require(message.size() > file.size() + 2, "a message that tells something");
}

} // namespace fuzz
