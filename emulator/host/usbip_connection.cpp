#include "host/usbip_connection.hpp"

#include <array>
#include <cerrno>
#include <chrono>
#include <span>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

namespace emulator {

namespace {

// A kernel reads at once; a client that has taken nothing for so long will not come back.
constexpr auto patience = std::chrono::seconds(10);

} // namespace

UsbipConnection::UsbipConnection(EventLoop& loop, Fd socket, UsbipExports& exports, Closed closed, Port* port)
    : loop_{loop}, socket_{std::move(socket)}, closed_{std::move(closed)}, events_{EPOLLIN},
      session_{exports, [this] { listen_for(events_ | EPOLLOUT); }, port} {
    loop_.watch(socket_.get(), events_, [this](std::uint32_t events) { on_event(events); });
}

UsbipConnection::~UsbipConnection() {
    if (patience_) {
        loop_.cancel(*patience_);
    }
    loop_.forget(socket_.get());
}

void UsbipConnection::on_event(std::uint32_t events) {
    const bool readable = (events & EPOLLIN) != 0 && session_.listens();
    if (readable ? !receive() : (events & (EPOLLHUP | EPOLLERR)) != 0) {
        return closed_(*this, "the client has gone");
    }
    if (!flush()) {
        return closed_(*this, "the client has gone");
    }
    if (session_.ended() && session_.unsent().empty()) {
        return closed_(*this, session_.why_ended());
    }
    if (lost_patience_) {
        return closed_(*this, "the client reads nothing");
    }
    listen_for((session_.listens() ? EPOLLIN : 0U) | (session_.unsent().empty() ? 0U : EPOLLOUT));
}

// Reads what is there; false at the end of the connection.
bool UsbipConnection::receive() {
    std::array<std::uint8_t, 65536> buffer;
    const auto size = ::recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size <= 0) {
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    }
    session_.receive(std::span{buffer}.first(static_cast<std::size_t>(size)));
    return true;
}

// Sends what the client takes; as it takes some, the session may go on with what it had put off.
bool UsbipConnection::flush() {
    auto& unsent = session_.unsent();
    bool some = false;
    for (auto before = unsent.size(); before > 0; before = unsent.size()) {
        if (!unsent.send(socket_.get())) {
            return false;
        }
        const bool progress = unsent.size() < before;
        some = some || progress;
        if (!progress) {
            break;
        }
        session_.proceed();
    }
    if (patience_ && (some || unsent.empty())) {
        loop_.cancel(*patience_);
        patience_.reset();
        lost_patience_ = false;
    }
    if (!patience_ && !unsent.empty()) {
        patience_ = loop_.call_after(patience, [this] {
            lost_patience_ = true;
            on_event(0);
        });
    }
    return true;
}

void UsbipConnection::listen_for(std::uint32_t events) {
    if (events != events_) {
        events_ = events;
        loop_.change(socket_.get(), events);
    }
}

} // namespace emulator
