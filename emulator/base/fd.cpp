#include "base/fd.hpp"

#include <cerrno>
#include <system_error>
#include <unistd.h>

namespace emulator {

void Fd::reset() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
    fd_ = -1;
}

int check(int result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

} // namespace emulator
