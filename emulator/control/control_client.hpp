// Asks the emulator for something from inside a program that it has started; for tests.
#pragma once

#include "control_variable.hpp"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace emulator {

// Whether this program runs under the emulator.
inline bool is_running() {
    return std::getenv(control_variable) != nullptr;
}

// Sends one request line; returns the reply's text after "ok". Throws std::runtime_error on an error reply, without
// an emulator and when no reply comes in time.
inline std::string request(std::string_view line, std::chrono::milliseconds patience = std::chrono::seconds(10)) {
    struct Socket {
        int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        Socket() = default;
        Socket(const Socket&) = delete;
        Socket& operator=(const Socket&) = delete;
        ~Socket() { ::close(fd); }
    } socket;
    const auto fail = [&](const std::string& why) {
        throw std::runtime_error("emulator, " + std::string{line} + ": " + why);
    };
    const char* path = std::getenv(control_variable);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path == nullptr || std::strlen(path) >= sizeof address.sun_path) {
        fail("not started by the emulator");
    }
    std::strcpy(address.sun_path, path);
    if (::connect(socket.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
        fail(std::strerror(errno));
    }
    const auto text = std::string{line} + "\n";
    if (::send(socket.fd, text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size())) {
        fail("cannot send");
    }

    std::string reply;
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!reply.ends_with("\n\n")) { // an empty line ends a reply
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd entry{socket.fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&entry, 1, static_cast<int>(left.count())) == 0) {
            fail("no reply");
        }
        char buffer[4096];
        const auto size = ::recv(socket.fd, buffer, sizeof buffer, MSG_DONTWAIT);
        if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR)) {
            fail("the emulator has gone");
        }
        if (size > 0) {
            reply.append(buffer, static_cast<std::size_t>(size));
        }
    }
    reply.resize(reply.size() - 2);
    if (!reply.starts_with("ok")) {
        fail(reply);
    }
    return reply.substr(reply.starts_with("ok ") ? 3 : 2);
}

} // namespace emulator
