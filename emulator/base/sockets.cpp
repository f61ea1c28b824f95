#include "base/sockets.hpp"

#include <cerrno>
#include <sys/socket.h>
#include <sys/un.h>

namespace emulator {

Fd listen_at(const std::string& path) {
    Fd socket{check(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket")};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        check(-1, path.c_str());
    }
    path.copy(address.sun_path, path.size());
    check(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), path.c_str());
    check(::listen(socket.get(), SOMAXCONN), "listen");
    return socket;
}

} // namespace emulator
