// Virtual pads without a program: the emulator's loop runs until nothing is left to do at once.
#pragma once

#include "fuzz.hpp"

#include "base/event_loop.hpp"
#include "base/fd.hpp"
#include "base/temporary_directory.hpp"
#include "pad/pad_settings.hpp"
#include "usb/bus.hpp"

#include <array>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace fuzz {

inline const std::vector<emulator::PadSettings>& three_pads() {
    static const auto pads = [] {
        using emulator::PadKind;
        std::vector<emulator::PadSettings> made{
            emulator::parse_pad_settings("type=16,interfaces=2", 1),
            emulator::parse_pad_settings("type=17,pen=off", 2, PadKind::vcom),
            emulator::parse_pad_settings("type=1,interfaces=1,serial=\\u000a\\u000a<", 3),
        };
        for (auto& pad : made) {
            pad.pen.signature = std::make_shared<const emulator::Signature>(emulator::Signature{{1, 2, 3}, {4, 5, 0}});
        }
        return made;
    }();
    return pads;
}

// Where sockets may be; its mark tells the emulator's own from others.
inline std::string socket_path() {
    static constexpr const char* mark[] = {"usbfs"};
    static const emulator::TemporaryDirectory directory{mark};
    const std::string path = directory.path() / "usbfs";
    ::unlink(path.c_str());
    return path;
}

class VirtualPads {
  public:
    VirtualPads() = default;
    VirtualPads(const VirtualPads&) = delete;
    VirtualPads& operator=(const VirtualPads&) = delete;

    // Events come in the order in which they happened, and a descriptor that is watched anew last: so all that waits is
    // dealt with, and then what that has led to.
    void run() {
        for (int i = 0; i < 2; ++i) {
            loop.watch(always_readable_.get(), EPOLLIN, [this](std::uint32_t) {
                loop.forget(always_readable_.get());
                loop.stop();
            });
            loop.run();
        }
    }

    // Behind who observes the bus.
    void plug_all() {
        for (const auto& settings : three_pads()) {
            bus.plug(bus.add(settings));
        }
    }

    emulator::EventLoop loop;
    emulator::Bus bus{loop, false};

  private:
    emulator::Fd always_readable_{::eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)};
};

inline emulator::Fd connect_to(const std::string& path) {
    emulator::Fd socket{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    require(::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "a connection");
    return socket;
}

constexpr std::size_t most_passed = 4;

// Bytes, and descriptors that go along with them: what sendmsg() says.
inline ssize_t send_with(int socket, std::span<const unsigned char> bytes, const std::vector<int>& passed, int flags) {
    require(passed.size() <= most_passed, "room for descriptors");
    alignas(cmsghdr) std::array<char, CMSG_SPACE(most_passed * sizeof(int))> control{};
    iovec part{const_cast<unsigned char*>(bytes.data()), bytes.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!passed.empty()) {
        const std::size_t size = passed.size() * sizeof(int);
        message.msg_control = control.data();
        message.msg_controllen = CMSG_SPACE(size);
        cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(size);
        std::memcpy(CMSG_DATA(header), passed.data(), size);
    }
    return ::sendmsg(socket, &message, flags);
}

} // namespace fuzz
