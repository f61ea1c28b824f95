// Runs with the pads of emulator.pads, and looks at them through plain system calls: these behave as those of the
// kernel.
#include "classic_pads.hpp"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

using emulator::request;
using namespace pads;

int open_node(int pad) {
    const auto list = request("list");
    const auto line = list.find("port=1-" + std::to_string(pad));
    const auto address = std::stoi(list.substr(list.find("address=", line) + 8));
    char path[64];
    std::snprintf(path, sizeof path, "/dev/bus/usb/001/%03d", address);
    return open(path, O_RDWR | O_CLOEXEC);
}

TEST_F(Pads, SystemCallsBehaveAsThoseOfTheKernel) {
    EXPECT_LT(open("/dev/bus/usb/001/126", O_RDWR), 0);
    EXPECT_EQ(errno, ENOENT);
    const int node = open_node(main_pad);
    ASSERT_GE(node, 0);
    unsigned char data[64];
    usbdevfs_ctrltransfer device_descriptor{0x80, 6, 0x0100, 0, 18, 1000, data};
    EXPECT_EQ(ioctl(node, USBDEVFS_CONTROL, &device_descriptor), 18);
    EXPECT_EQ(hex({data, data + 2}), "1201");
    on_pad("fault", main_pad, "silence,count=1");
    device_descriptor.timeout = 30;
    EXPECT_EQ(ioctl(node, USBDEVFS_CONTROL, &device_descriptor), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    on_pad("fault", main_pad, "stall,count=1");
    EXPECT_EQ(ioctl(node, USBDEVFS_CONTROL, &device_descriptor), -1);
    EXPECT_EQ(errno, EPIPE);

    EXPECT_EQ(ioctl(node, USBDEVFS_GET_SPEED, nullptr), -1);
    EXPECT_EQ(errno, ENOTTY);
    void* reaped = nullptr;
    EXPECT_EQ(ioctl(node, USBDEVFS_REAPURBNDELAY, &reaped), -1);
    EXPECT_EQ(errno, EAGAIN);

    usbdevfs_ioctl detach{0, USBDEVFS_DISCONNECT, nullptr};
    EXPECT_EQ(ioctl(node, USBDEVFS_IOCTL, &detach), 0);
    usbdevfs_bulktransfer input{0x81, sizeof data, 1000, data};
    on_pad("input", main_pad, "0 77");
    EXPECT_EQ(ioctl(node, USBDEVFS_BULK, &input), 64);
    EXPECT_EQ(data[0], 0x77);

    usbdevfs_urb urb;
    std::memset(&urb, 0, sizeof urb);
    urb.type = USBDEVFS_URB_TYPE_INTERRUPT;
    urb.endpoint = 0x81;
    urb.buffer = data;
    urb.buffer_length = sizeof data;
    EXPECT_EQ(ioctl(node, USBDEVFS_SUBMITURB, &urb), 0);
    EXPECT_EQ(ioctl(node, USBDEVFS_DISCARDURB, &urb), 0);
    EXPECT_EQ(ioctl(node, USBDEVFS_DISCARDURB, &urb), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ioctl(node, USBDEVFS_REAPURB, &reaped), 0);
    EXPECT_EQ(reaped, &urb);
    EXPECT_EQ(urb.status, -ENOENT);
    EXPECT_EQ(ioctl(node, USBDEVFS_REAPURBNDELAY, &reaped), -1);
    EXPECT_EQ(errno, EAGAIN);

    EXPECT_EQ(ioctl(node, USBDEVFS_SUBMITURB, &urb), 0);
    pollfd entry{node, POLLOUT, 0};
    EXPECT_EQ(poll(&entry, 1, 0), 0) << "nothing can be reaped";
    on_pad("unplug", main_pad);
    EXPECT_EQ(poll(&entry, 1, 1000), 1);
    EXPECT_NE(entry.revents & POLLERR, 0);
    EXPECT_EQ(ioctl(node, USBDEVFS_SUBMITURB, &urb), -1);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(ioctl(node, USBDEVFS_REAPURB, &reaped), 0) << "what is done can be reaped after an unplug";
    EXPECT_EQ(urb.status, -ESHUTDOWN);
    EXPECT_EQ(ioctl(node, USBDEVFS_REAPURB, &reaped), -1);
    EXPECT_EQ(errno, ENODEV);
    close(node);
}

TEST_F(Pads, StandardRequestsAreAnsweredAndOthersStall) {
    const int node = open_node(main_pad);
    ASSERT_GE(node, 0);
    usbdevfs_ioctl detach{0, USBDEVFS_DISCONNECT, nullptr}; // or interface 0 is busy
    EXPECT_EQ(ioctl(node, USBDEVFS_IOCTL, &detach), 0);
    unsigned char data[64] = {};
    struct Request {
        std::uint8_t type;
        std::uint8_t request;
        std::uint16_t value;
        std::uint16_t index;
        std::uint16_t length;
        int result; // bytes, or -1: it stalls
    };
    constexpr Request requests[] = {
        {0x80, 0, 0, 0, 2, 2},        // status
        {0x80, 8, 0, 0, 1, 1},        // configuration
        {0x00, 9, 1, 0, 0, 0},        // and to set it
        {0x00, 9, 2, 0, 0, -1},       // there is one only
        {0x81, 10, 0, 0, 1, 1},       // interface
        {0x01, 11, 0, 0, 0, 0},       // and to set it
        {0x01, 11, 1, 0, 0, -1},      // there is one setting only
        {0x02, 1, 0, 0x81, 0, 0},     // end of a halt
        {0x80, 6, 0x0201, 0, 9, -1},  // a second configuration
        {0x80, 6, 0x0f00, 0, 5, -1},  // a descriptor that is not there
        {0x80, 77, 0, 0, 1, -1},      // no request at all
        {0xa1, 1, 0x0100, 0, 64, 64}, // an input report
        {0xa1, 2, 0, 0, 1, 1},        // idle rate
        {0x21, 10, 0, 0, 0, 0},       // and to set it
        {0xa1, 77, 0, 0, 1, -1},      // no request at all
        {0x21, 9, 0x0400, 0, 64, -1}, // a report of no type
        {0x21, 77, 0, 0, 0, -1},      // no request at all
        {0xc0, 1, 0, 0, 1, -1},       // a maker's own
    };
    for (const auto& one : requests) {
        usbdevfs_ctrltransfer transfer{one.type, one.request, one.value, one.index, one.length, 1000, data};
        EXPECT_EQ(ioctl(node, USBDEVFS_CONTROL, &transfer), one.result)
            << int{one.type} << ' ' << int{one.request} << ' ' << one.value;
        if (one.result < 0) {
            EXPECT_EQ(errno, EPIPE);
        }
    }
    close(node);
}

TEST_F(Pads, InterfacesAreClaimedAndLeftAsTheKernelHasIt) {
    const int node = open_node(main_pad);
    ASSERT_GE(node, 0);
    const auto fails = [&](unsigned long request, auto argument, int error) {
        const int result = ioctl(node, request, &argument);
        const int failure = errno;
        EXPECT_EQ(result, error == 0 ? 0 : -1);
        EXPECT_EQ(result == 0 ? 0 : failure, error);
    };
    constexpr unsigned int none = 99;
    fails(USBDEVFS_RELEASEINTERFACE, 0U, EINVAL); // nobody has it
    fails(USBDEVFS_CLAIMINTERFACE, none, ENOENT);
    usbdevfs_disconnect_claim claim{};
    claim.interface = none;
    fails(USBDEVFS_DISCONNECT_CLAIM, claim, EINVAL);
    claim.interface = 0;
    claim.flags = USBDEVFS_DISCONNECT_CLAIM_IF_DRIVER;
    std::strcpy(claim.driver, "usbfs");
    fails(USBDEVFS_DISCONNECT_CLAIM, claim, EBUSY); // the kernel's own has it
    claim.flags = USBDEVFS_DISCONNECT_CLAIM_EXCEPT_DRIVER;
    std::strcpy(claim.driver, "usbhid");
    fails(USBDEVFS_DISCONNECT_CLAIM, claim, EBUSY);
    claim.flags = 0;
    fails(USBDEVFS_DISCONNECT_CLAIM, claim, 0);
    fails(USBDEVFS_CLAIMINTERFACE, 0U, 0); // again
    fails(USBDEVFS_IOCTL, usbdevfs_ioctl{0, USBDEVFS_CONNECT, nullptr}, EBUSY);
    fails(USBDEVFS_IOCTL, usbdevfs_ioctl{static_cast<int>(none), USBDEVFS_CONNECT, nullptr}, EINVAL);
    fails(USBDEVFS_IOCTL, usbdevfs_ioctl{static_cast<int>(none), USBDEVFS_DISCONNECT, nullptr}, EINVAL);
    fails(USBDEVFS_SETINTERFACE, usbdevfs_setinterface{0, 0}, 0);
    fails(USBDEVFS_SETINTERFACE, usbdevfs_setinterface{0, 1}, EINVAL);
    fails(USBDEVFS_SETINTERFACE, usbdevfs_setinterface{none, 0}, ENOENT);
    fails(USBDEVFS_CLEAR_HALT, 0x81U, 0);
    fails(USBDEVFS_CLEAR_HALT, 0x5fU, ENOENT);
    EXPECT_EQ(ioctl(node, USBDEVFS_RESET, nullptr), 0);

    unsigned char data[64] = {};
    usbdevfs_urb urb;
    std::memset(&urb, 0, sizeof urb);
    urb.buffer = data;
    urb.buffer_length = sizeof data;
    urb.type = USBDEVFS_URB_TYPE_INTERRUPT;
    urb.endpoint = 0x8f; // which is not there
    EXPECT_EQ(ioctl(node, USBDEVFS_SUBMITURB, &urb), -1);
    EXPECT_EQ(errno, ENOENT);
    urb.type = USBDEVFS_URB_TYPE_ISO;
    EXPECT_EQ(ioctl(node, USBDEVFS_SUBMITURB, &urb), -1);
    urb.type = USBDEVFS_URB_TYPE_CONTROL;
    urb.endpoint = 0;
    data[0] = 0x80;
    data[7] = 1; // 256 bytes, for which there is no room
    EXPECT_EQ(ioctl(node, USBDEVFS_SUBMITURB, &urb), -1);
    EXPECT_EQ(errno, EINVAL);
    close(node);
}

TEST_F(Pads, OtherFilesAreLeftAlone) {
    for (int i = 0; i < 200; ++i) { // more than the table of the library below has entries
        EXPECT_LT(open("/dev/vxpad-none", O_RDONLY), 0);
    }
    const int null = open("/dev/null", O_RDWR);
    ASSERT_GE(null, 0);
    EXPECT_EQ(write(null, "x", 1), 1);
    close(null);
    EXPECT_TRUE(asks_version(open_hid(main_pad, 0)));
}

} // namespace
