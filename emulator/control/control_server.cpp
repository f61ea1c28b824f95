#include "control/control_server.hpp"

#include "base/sockets.hpp"

#include <array>
#include <cerrno>
#include <cstddef>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace emulator {

namespace {

constexpr std::size_t longest_request = 65536;

} // namespace

ControlServer::ControlServer(EventLoop& loop, std::string socket_path, Answer answer)
    : loop_{loop}, path_{std::move(socket_path)}, answer_{std::move(answer)}, listener_{listen_at(path_)} {
    loop_.watch(listener_.get(), EPOLLIN, [this](std::uint32_t) { accept_client(); });
}

ControlServer::~ControlServer() {
    loop_.forget(listener_.get());
    for (const auto& [fd, client] : clients_) {
        loop_.forget(fd);
    }
    ::unlink(path_.c_str());
}

void ControlServer::accept_client() {
    Fd socket{::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)};
    if (!socket) {
        return;
    }
    const int fd = socket.get();
    clients_.emplace(fd, Client{std::move(socket), {}, {}});
    loop_.watch(fd, EPOLLIN, [this, fd](std::uint32_t events) { on_event(fd, events); });
}

void ControlServer::drop(int fd) {
    loop_.forget(fd);
    clients_.erase(fd);
}

void ControlServer::on_event(int fd, std::uint32_t events) {
    auto& client = clients_.at(fd);
    if ((events & EPOLLIN) != 0 && !receive(client)) {
        return drop(fd);
    }
    if ((events & EPOLLIN) == 0 && (events & (EPOLLHUP | EPOLLERR)) != 0) {
        return drop(fd);
    }
    for (auto end = client.received.find('\n'); end != std::string::npos; end = client.received.find('\n')) {
        const auto line = client.received.substr(0, end);
        client.received.erase(0, end + 1);
        const auto reply = answer_(line) + "\n\n";
        client.unsent.append({reinterpret_cast<const std::uint8_t*>(reply.data()), reply.size()});
    }
    if (!flush(client)) {
        drop(fd);
    }
}

bool ControlServer::receive(Client& client) {
    std::array<char, 4096> buffer;
    const auto size = ::recv(client.socket.get(), buffer.data(), buffer.size(), 0);
    if (size <= 0) {
        return size < 0 && errno == EAGAIN;
    }
    client.received.append(buffer.data(), static_cast<std::size_t>(size));
    return client.received.size() <= longest_request;
}

bool ControlServer::flush(Client& client) {
    const int fd = client.socket.get();
    if (!client.unsent.send(fd)) {
        return false;
    }
    loop_.change(fd, client.unsent.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT);
    return true;
}

} // namespace emulator
