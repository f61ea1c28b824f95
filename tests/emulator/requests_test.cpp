// The emulator's two sockets, without a program: what a program that has gone mad may ask for.
#include "control/requests.hpp"
#include "fuzz/virtual_pads.hpp"
#include "host/usbfs_protocol.h"
#include "host/usbfs_server.hpp"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/usbdevice_fs.h>
#include <utility>

using emulator::Fd;

namespace {

using Bytes = std::vector<unsigned char>;

struct Ends {
    Fd own;
    Fd others;
};

Ends sockets() {
    std::array<int, 2> ends{};
    emulator::check(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()), "socketpair");
    return {Fd{ends[0]}, Fd{ends[1]}};
}

Ends pipe_with(int flags) {
    std::array<int, 2> ends{};
    emulator::check(::pipe2(ends.data(), O_CLOEXEC | flags), "pipe2");
    return {Fd{ends[1]}, Fd{ends[0]}};
}

Fd no_device() {
    return Fd{::open("/dev/null", O_RDWR | O_CLOEXEC)};
}

class UsbfsRequests : public testing::Test {
  protected:
    UsbfsRequests() { pads_.plug_all(); }

    static usbfs_request request_for(std::uint32_t operation) {
        usbfs_request request{};
        request.operation = operation;
        return request;
    }
    static usbfs_request opening() {
        usbfs_request request = request_for(usbfs_open);
        request.interface = emulator::Bus::number;
        request.argument = 3; // the VCOM pad's address
        return request;
    }
    static usbfs_request bulk(std::uint8_t endpoint, std::uint32_t length) {
        usbfs_request request = request_for(usbfs_submit);
        request.type = USBDEVFS_URB_TYPE_BULK;
        request.endpoint = endpoint;
        request.length = length;
        return request;
    }

    // The error of the reply, or -1 where none came.
    int ask(usbfs_request request, const Bytes& payload = {}, const std::vector<const Fd*>& passed = {}) {
        request.payload = static_cast<std::uint32_t>(payload.size());
        const auto* head = reinterpret_cast<const unsigned char*>(&request);
        Bytes bytes(head, head + sizeof request);
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        std::vector<int> numbers;
        for (const Fd* fd : passed) {
            numbers.push_back(fd->get());
        }
        emulator::check(static_cast<int>(fuzz::send_with(client_.get(), bytes, numbers, MSG_NOSIGNAL)), "sendmsg");
        pads_.run();
        usbfs_reply reply{};
        const auto size = ::recv(client_.get(), &reply, sizeof reply, MSG_DONTWAIT);
        return size == sizeof reply ? reply.error : -1;
    }

    fuzz::VirtualPads pads_;
    std::string path_ = fuzz::socket_path();
    emulator::UsbfsServer server_{pads_.loop, pads_.bus, path_};
    Fd client_ = fuzz::connect_to(path_);
    Ends completions_ = sockets();
    Ends pipe_ = pipe_with(O_NONBLOCK);
};

} // namespace

TEST_F(UsbfsRequests, ATransferBringsNoMoreBytesThanItHasRoomFor) {
    ASSERT_EQ(ask(opening(), {}, {&completions_.others, &pipe_.others}), 0);
    ASSERT_EQ(ask(request_for(usbfs_claim)), 0);
    EXPECT_EQ(ask(bulk(0x81, 8), Bytes(100)), EINVAL);
    EXPECT_EQ(ask(bulk(0x02, 8), Bytes(100)), EINVAL);
    EXPECT_EQ(ask(bulk(0x02, 100), Bytes(8)), EINVAL);
    EXPECT_EQ(ask(bulk(0x02, 8), Bytes(8)), 0);
}

TEST_F(UsbfsRequests, DescriptorsOfAWrongKindEndNothing) {
    const Fd wrong = no_device();
    EXPECT_EQ(ask(opening(), {}, {&wrong, &pipe_.others}), EINVAL);
    ASSERT_EQ(ask(opening(), {}, {&completions_.others, &pipe_.others}), 0);
    usbfs_request waited_for = bulk(0x02, 0);
    waited_for.operation = usbfs_transfer;
    EXPECT_EQ(ask(waited_for, {}, {&wrong}), EINVAL);
    EXPECT_EQ(ask(waited_for, {}, {&completions_.others}), 0);
}

TEST_F(UsbfsRequests, APipeThatWouldKeepTheEmulatorWaitingIsRefused) {
    const Ends waiting = pipe_with(0);
    EXPECT_EQ(ask(opening(), {}, {&completions_.others, &waiting.others}), EINVAL);
    EXPECT_EQ(ask(opening(), {}, {&completions_.others, &pipe_.others}), 0);
}

TEST(ControlRequests, AListHasALineForAPadWhateverItsSerialNumber) {
    fuzz::VirtualPads pads;
    auto settings = emulator::parse_pad_settings("type=1,serial=A\\u000a\\u000aB\\u007f\\u0000é", 1);
    settings.pen.signature = fuzz::three_pads()[0].pen.signature;
    pads.bus.plug(pads.bus.add(settings));
    EXPECT_TRUE(emulator::answer_request(pads.bus, "list").ends_with("serial=A\\u000a\\u000aB\\u007f\\u0000é"));
}
