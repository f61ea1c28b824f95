#include "base/sockets.hpp"

#include "base/text.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <utility>

namespace emulator {

namespace {

struct FreeAddresses {
    void operator()(addrinfo* addresses) const { freeaddrinfo(addresses); }
};

std::unique_ptr<addrinfo, FreeAddresses> resolve(const TcpAddress& address) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.host.c_str(), address.port.c_str(), &hints, &found) != 0) {
        throw std::invalid_argument("'" + address.host + "' is neither an IPv4 nor an IPv6 address");
    }
    return std::unique_ptr<addrinfo, FreeAddresses>{found};
}

std::string text_of(std::string_view host, std::string_view port) {
    const bool brackets = host.find(':') != std::string_view::npos;
    return (brackets ? "[" : "") + std::string{host} + (brackets ? "]:" : ":") + std::string{port};
}

void set_option(int socket, int level, int option, int value) {
    check(::setsockopt(socket, level, option, &value, sizeof value), "setsockopt");
}

} // namespace

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

TcpAddress parse_tcp_address(std::string_view text) {
    TcpAddress address;
    std::optional<std::string_view> port;
    if (text.starts_with('[')) {
        const auto end = std::min(text.find(']'), text.size());
        address.host = text.substr(1, end - 1);
        const auto rest = text.substr(std::min(end + 1, text.size()));
        if (end == text.size() || (!rest.empty() && rest.front() != ':')) {
            throw std::invalid_argument("an address is given as ADDRESS, ADDRESS:PORT or [ADDRESS]:PORT");
        }
        if (!rest.empty()) {
            port = rest.substr(1);
        }
    } else if (const auto colon = text.find(':'); colon != text.npos && text.find(':', colon + 1) == text.npos) {
        address.host = text.substr(0, colon);
        port = text.substr(colon + 1);
    } else {
        address.host = text; // more colons: IPv6 without a port
    }
    if (port) {
        address.port = std::to_string(parse_count(*port, 0, 65535));
    }
    resolve(address);
    return address;
}

Fd listen_at(const TcpAddress& address) {
    const auto found = resolve(address);
    const auto name = text_of(address.host, address.port);
    Fd socket{check(::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), name.c_str())};
    set_option(socket.get(), SOL_SOCKET, SO_REUSEADDR, 1);
    check(::bind(socket.get(), found->ai_addr, found->ai_addrlen), name.c_str());
    check(::listen(socket.get(), SOMAXCONN), name.c_str());
    return socket;
}

std::string address_of(int socket) {
    sockaddr_storage address{};
    auto* any = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    check(::getsockname(socket, any, &size), "getsockname");
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    if (getnameinfo(any, size, host.data(), host.size(), port.data(), port.size(), NI_NUMERICHOST | NI_NUMERICSERV) !=
        0) {
        return "?";
    }
    return text_of(host.data(), port.data());
}

void make_lively(int tcp_socket) {
    set_option(tcp_socket, IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(tcp_socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(tcp_socket, IPPROTO_TCP, TCP_KEEPIDLE, 10); // seconds
    set_option(tcp_socket, IPPROTO_TCP, TCP_KEEPINTVL, 5);
    set_option(tcp_socket, IPPROTO_TCP, TCP_KEEPCNT, 3);
}

} // namespace emulator
