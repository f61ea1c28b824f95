#include "control/control_server.hpp"

#include "base/sockets.hpp"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace emulator {

namespace {

constexpr std::size_t longest_request = 65536;
constexpr auto until_next_look = std::chrono::milliseconds(2);

} // namespace

ControlServer::ControlServer(EventLoop& loop, std::string socket_path, Answer answer, Settled settled)
    : loop_{loop}, path_{std::move(socket_path)}, answer_{std::move(answer)}, settled_{std::move(settled)},
      listener_{listen_at(path_)} {
    loop_.watch(listener_.get(), EPOLLIN, [this](std::uint32_t) { accept_client(); });
}

ControlServer::~ControlServer() {
    loop_.forget(listener_.get());
    for (const auto& [fd, client] : clients_) {
        loop_.forget(fd);
    }
    if (holding_) {
        loop_.cancel(*holding_);
    }
    ::unlink(path_.c_str());
}

void ControlServer::accept_client() {
    Fd socket{::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)};
    if (!socket) {
        return;
    }
    const int fd = socket.get();
    clients_.emplace(fd, Client{std::move(socket), {}, {}, {}});
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
    answer_all(fd);
}

void ControlServer::answer_all(int fd) {
    auto& client = clients_.at(fd);
    for (auto end = client.received.find('\n'); end != std::string::npos && !holding_;
         end = client.received.find('\n')) {
        const auto line = client.received.substr(0, end);
        client.received.erase(0, end + 1);
        client.reply = answer_(line) + "\n\n";
        if (settled_()) {
            release(client);
        } else {
            hold();
        }
    }
    if (!flush(client)) {
        drop(fd);
    }
}

void ControlServer::hold() {
    holding_ = loop_.call_after(until_next_look, [this] {
        if (!settled_()) {
            return hold();
        }
        holding_.reset();
        std::vector<int> fds;
        for (auto& [fd, client] : clients_) {
            release(client);
            fds.push_back(fd);
        }
        for (const auto fd : fds) {
            answer_all(fd);
        }
    });
}

void ControlServer::release(Client& client) {
    client.unsent.append({reinterpret_cast<const std::uint8_t*>(client.reply.data()), client.reply.size()});
    client.reply.clear();
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
