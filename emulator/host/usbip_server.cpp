#include "host/usbip_server.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

namespace emulator {

namespace {

constexpr auto pause_without_descriptors = std::chrono::milliseconds(100);

} // namespace

UsbipServer::UsbipServer(EventLoop& loop, Bus& bus, const TcpAddress& address)
    : loop_{loop}, exports_{bus, {}}, listener_{listen_at(address)}, address_{address_of(listener_.get())} {
    loop_.watch(listener_.get(), EPOLLIN, [this](std::uint32_t) { accept_client(); });
    const auto unplugging = [this](Port& port) {
        for (auto& connection : connections_) {
            if (connection.port() == &port) {
                connection.unplugged();
            }
        }
    };
    bus.observe([](Port&) {}, unplugging);
}

UsbipServer::~UsbipServer() {
    loop_.forget(listener_.get());
}

Surroundings UsbipServer::surroundings() const {
    return {"", {{usbip_variable, address_}}};
}

void UsbipServer::accept_client() {
    Fd socket{::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)};
    if (!socket) {
        if (errno == EMFILE || errno == ENFILE) { // it stays readable: do not spin
            loop_.change(listener_.get(), 0);
            loop_.call_after(pause_without_descriptors, [this] { loop_.change(listener_.get(), EPOLLIN); });
        }
        return;
    }
    make_lively(socket.get());
    const auto closed = [this](UsbipConnection& connection, const std::string&) { drop(connection); };
    connections_.emplace_back(loop_, std::move(socket), exports_, closed);
    const auto waits = [](const UsbipConnection& connection) { return connection.port() == nullptr; };
    if (static_cast<std::size_t>(std::ranges::count_if(connections_, waits)) > most_waiting) {
        connections_.erase(std::ranges::find_if(connections_, waits));
    }
}

void UsbipServer::drop(UsbipConnection& connection) {
    connections_.remove_if([&](const auto& each) { return &each == &connection; });
}

} // namespace emulator
