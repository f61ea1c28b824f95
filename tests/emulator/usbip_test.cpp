// Started under `vxpad-emulator serve`: what a kernel that imports pads gets to see, and what comes of clients that are
// no kernels.
#include "control_client.hpp"
#include "program.hpp"
#include "usbip_client.hpp"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <list>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using program::eventually;
using usbip_client::Bytes;
using usbip_client::Client;
using usbip_client::operation;
using usbip_client::Reply;
using usbip_client::Submit;
using Clock = std::chrono::steady_clock;

constexpr int busy = 2;
constexpr int no_device = 4;
constexpr int stalled = -32;  // EPIPE
constexpr int overflow = -75; // EOVERFLOW
constexpr int connection_reset = -104;
constexpr int remote_io = -121;

std::vector<std::string> listed() {
    std::vector<std::string> names;
    for (const auto& device : Client{}.list()) {
        names.push_back(device.bus_id);
    }
    return names;
}

// Pad 1 is a HID pad with two interfaces, pad 2 a VCOM pad, pad 3 a HID pad of type 1 without a serial number.
class Usbip : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator::is_running()) << "start this program with vxpad-emulator serve";
        for (const auto* pad : {"1", "2", "3"}) {
            emulator::request(std::string{"clear-faults "} + pad);
            if (emulator::request(std::string{"state "} + pad).starts_with("plugged=1")) {
                emulator::request(std::string{"unplug "} + pad);
            }
            emulator::request(std::string{"plug "} + pad);
            emulator::request(std::string{"log "} + pad);
        }
    }

    static void import(Client& client, std::string_view bus_id) { ASSERT_EQ(client.import(bus_id), 0U) << bus_id; }
};

TEST_F(Usbip, ListTellsThePads) {
    Client client;
    const auto devices = client.list();
    ASSERT_EQ(devices.size(), 3U);
    EXPECT_TRUE(client.has_ended());

    const auto& hid = devices[0];
    EXPECT_EQ(hid.bus_id, "1-1");
    EXPECT_TRUE(hid.path.ends_with("/1-1")) << hid.path;
    EXPECT_EQ(hid.bus, 1U);
    EXPECT_GE(hid.address, 2U);
    EXPECT_EQ(hid.speed, 2U);
    const auto told = emulator::request("list");
    std::ostringstream ids;
    ids << std::hex << "vendor=" << hid.vendor << " id=" << hid.product;
    EXPECT_NE(told.find(ids.str()), std::string::npos) << told;
    EXPECT_NE(told.find("address=" + std::to_string(hid.address) + " "), std::string::npos) << told;
    EXPECT_EQ(hid.rest, (Bytes{1, 0, 0, 0, 0, 1, 1, 2}));
    EXPECT_EQ(hid.interfaces, (std::vector<Bytes>{{3, 0, 0, 0}, {3, 0, 0, 0}}));

    EXPECT_EQ(devices[1].bus_id, "1-2");
    EXPECT_EQ(devices[1].rest.back(), 1);
    EXPECT_EQ(devices[1].interfaces, (std::vector<Bytes>{{0xff, 0, 0, 0}}));
    EXPECT_EQ(devices[2].bus_id, "1-3");
}

TEST_F(Usbip, OneImportForAPadAtATime) {
    Client first;
    import(first, "1-1");
    EXPECT_EQ(first.imported().bus_id, "1-1");
    EXPECT_EQ(listed(), (std::vector<std::string>{"1-2", "1-3"}));

    Client second;
    EXPECT_EQ(second.import("1-1"), static_cast<unsigned>(busy));
    EXPECT_TRUE(second.has_ended());
    EXPECT_EQ(first.get_descriptor(0x0100, 18).length, 18U);
    Client other;
    import(other, "1-2");

    first.close();
    EXPECT_TRUE(eventually([] { return listed() == std::vector<std::string>{"1-1", "1-3"}; }));
    Client third;
    import(third, "1-1");
}

TEST_F(Usbip, WhatIsNotThereCannotBeImported) {
    emulator::request("unplug 3");
    for (const auto& bus_id : {std::string{"1-3"}, std::string{"1-4"}, std::string{}, std::string{"1-1x"},
                               std::string(32, '1'), std::string{"1-"}}) {
        Client client;
        EXPECT_EQ(client.import(bus_id), static_cast<unsigned>(no_device)) << bus_id;
        EXPECT_TRUE(client.has_ended()) << bus_id;
    }
}

TEST_F(Usbip, ServesWhatAKernelAsks) {
    Client client;
    import(client, "1-1");
    const auto device = client.get_descriptor(0x0100, 64);
    EXPECT_EQ(device.status, 0);
    ASSERT_EQ(device.length, 18U);
    EXPECT_EQ(device.data[0], 18);
    EXPECT_EQ(client.get_descriptor(0x0100, 18).data, device.data);
    EXPECT_EQ(client.get_descriptor(0x0100, 8).data, Bytes(device.data.begin(), device.data.begin() + 8));

    const auto qualifier = client.get_descriptor(0x0600, 10);
    EXPECT_EQ(qualifier.status, stalled);
    EXPECT_EQ(qualifier.length, 0U);

    const auto head = client.get_descriptor(0x0200, 9);
    ASSERT_EQ(head.length, 9U);
    const auto total = static_cast<std::uint16_t>(head.data[2] | head.data[3] << 8);
    const auto all = client.get_descriptor(0x0200, total);
    EXPECT_EQ(all.length, total);
    EXPECT_EQ(total, 9 + 2 * (9 + 9 + 7));
    EXPECT_EQ(client.get_descriptor(0x0201, 9).status, stalled);

    EXPECT_EQ(client.control({0x80, 6, 0x0300, 0, 255}).data, (Bytes{4, 3, 9, 4}));
    EXPECT_EQ(client.control({0x80, 6, 0x0303, 0x0409, 255}).data, (Bytes{6, 3, 'A', 0, '1', 0}));
    EXPECT_EQ(client.control({0x80, 6, 0x0309, 0x0409, 255}).status, stalled);

    EXPECT_EQ(client.control({0x00, 9, 1, 0, 0}).status, 0);
    EXPECT_EQ(client.control({0x00, 9, 2, 0, 0}).status, stalled);
    for (const std::uint16_t interface : {std::uint16_t{0}, std::uint16_t{1}}) {
        EXPECT_EQ(client.control({0x21, 0x0a, 0, interface, 0}).status, 0);
        const auto report = client.control({0x81, 6, 0x2200, interface, 200});
        EXPECT_EQ(report.status, 0);
        EXPECT_GT(report.length, 20U);
        EXPECT_EQ(all.data[9 + 25U * interface + 9 + 7], report.length) << "as its HID descriptor says";
        EXPECT_EQ(client.control({0x02, 1, 0, static_cast<std::uint16_t>(0x81 + interface), 0}).status, 0);
    }
    EXPECT_EQ(client.control({0x21, 0x0a, 0, 2, 0}).status, stalled);

    Client third;
    import(third, "1-3");
    const auto other = third.get_descriptor(0x0100, 18);
    EXPECT_EQ(other.data[16], 0) << "it has no serial number";
    EXPECT_EQ(third.control({0x80, 6, 0x0303, 0x0409, 255}).status, stalled);
}

TEST_F(Usbip, RepliesNeverExceedTheBuffer) {
    Client client;
    import(client, "1-1");
    auto submit = client.make(0, true, 7);
    submit.setup = {0x80, 6, 0x0100, 0, 255};
    client.start(submit);
    EXPECT_EQ(client.read_reply().length, 7U);
    submit = client.make(0, true, 255);
    submit.setup = {0x80, 6, 0x0100, 0, 7};
    client.start(submit);
    EXPECT_EQ(client.read_reply().length, 7U);
    client.start_in(1, 20);
    client.start_in(1, 0);
    emulator::request("input 1 0 0102 2");
    auto reply = client.read_reply();
    EXPECT_EQ(reply.status, overflow);
    EXPECT_EQ(reply.length, 20U);
    reply = client.read_reply();
    EXPECT_EQ(reply.status, overflow);
    EXPECT_EQ(reply.length, 0U);
}

TEST_F(Usbip, FeatureReports) {
    Client client;
    import(client, "1-1");
    Bytes report(64);
    report[0] = 0x01;
    const auto set = client.control({0x21, 9, 0x0300, 1, 64}, report);
    EXPECT_EQ(set.status, 0);
    EXPECT_EQ(set.length, 64U);
    const auto get = client.control({0xa1, 1, 0x0300, 1, 64});
    EXPECT_EQ(get.status, 0);
    EXPECT_EQ(get.length, 64U);
    const auto log = emulator::request("log 1");
    EXPECT_TRUE(log.starts_with("out feature 1 01")) << log;
    EXPECT_NE(log.find("\nin feature 1 01"), std::string::npos) << log;

    EXPECT_EQ(client.control({0x21, 9, 0x0200, 0, 64}, report).length, 64U);
    EXPECT_TRUE(emulator::request("log 1").starts_with("out output 0 01"));
    Bytes too_long(65);
    const auto refused = client.control({0x21, 9, 0x0300, 0, 65}, too_long);
    EXPECT_EQ(refused.status, stalled);
    EXPECT_EQ(refused.length, 0U);
}

TEST_F(Usbip, InputReportsComeToTheirInterface) {
    Client client;
    import(client, "1-1");
    const auto first = client.start_in(1, 64);
    const auto second = client.start_in(2, 64);
    const auto third = client.start_in(2, 64);
    EXPECT_TRUE(client.is_silent());
    emulator::request("input 1 1 a1");
    emulator::request("input 1 1 a2");
    emulator::request("input 1 0 a3");
    for (const auto& [number, byte] : {std::pair{second, 0xa1}, {third, 0xa2}, {first, 0xa3}}) {
        const auto reply = client.read_reply();
        EXPECT_EQ(reply.number, number);
        EXPECT_EQ(reply.status, 0);
        ASSERT_EQ(reply.length, 64U);
        EXPECT_EQ(reply.data[0], byte);
    }
}

TEST_F(Usbip, PadSetsThePace) {
    Client client;
    import(client, "1-1");
    client.start_in(1, 64);
    const auto begin = Clock::now();
    emulator::request("play 1 100 500");
    for (std::uint8_t i = 0; i < 100; ++i) {
        const auto reply = client.read_reply();
        ASSERT_EQ(reply.length, 64U);
        EXPECT_EQ(reply.data[8], i);
        client.start_in(1, 64);
    }
    EXPECT_GE(Clock::now() - begin, 190ms);
    EXPECT_TRUE(client.is_silent());
}

TEST_F(Usbip, BulkInAndOut) {
    Client client;
    import(client, "1-2");
    const auto number = client.start_in(1, 4096);
    EXPECT_TRUE(client.is_silent());
    emulator::request("send 2 0102030405");
    auto reply = client.read_reply();
    EXPECT_EQ(reply.number, number);
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(reply.data, (Bytes{1, 2, 3, 4, 5}));

    reply = client.out(2, {9, 8, 7});
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(reply.length, 3U);
    EXPECT_EQ(emulator::request("log 2"), "in bulk 0 0102030405\nout bulk 0 090807");

    // A read in parts that ends early: the kernel puts out the parts behind.
    auto submit = client.make(1, true, 64);
    submit.flags = 1; // a short packet is an error
    client.start(submit);
    emulator::request("send 2 0a0b");
    reply = client.read_reply();
    EXPECT_EQ(reply.status, remote_io);
    EXPECT_EQ(reply.data, (Bytes{0x0a, 0x0b}));
}

TEST_F(Usbip, WrongEndpointsStall) {
    Client hid;
    import(hid, "1-1");
    Client vcom;
    import(vcom, "1-2");
    for (const auto endpoint : {3U, 4U, 15U, 16U, 129U, 0x10001U, 0xffffffffU}) {
        hid.start_in(endpoint, 64);
        EXPECT_EQ(hid.read_reply().status, stalled) << endpoint;
        EXPECT_EQ(hid.out(endpoint, {1, 2}).status, stalled) << endpoint;
        vcom.start_in(endpoint, 64);
        EXPECT_EQ(vcom.read_reply().status, stalled) << endpoint;
    }
    EXPECT_EQ(hid.out(1, {1, 2}).length, 0U);
    EXPECT_EQ(vcom.out(1, {1, 2}).status, stalled);
    vcom.start_in(2, 64);
    EXPECT_EQ(vcom.read_reply().status, stalled);

    // The command and the setup packet tell different directions or lengths.
    auto submit = hid.make(0, false, 0);
    submit.setup = {0x80, 6, 0x0100, 0, 18};
    hid.start(submit);
    EXPECT_EQ(hid.read_reply().status, stalled);
    submit = hid.make(0, true, 64);
    submit.setup = {0x21, 9, 0x0300, 0, 64};
    hid.start(submit);
    EXPECT_EQ(hid.read_reply().status, stalled);
    submit = hid.make(0, false, 2);
    submit.setup = {0x21, 9, 0x0300, 0, 64};
    submit.data = {1, 2};
    hid.start(submit);
    EXPECT_EQ(hid.read_reply().status, stalled);
    EXPECT_EQ(emulator::request("log 1"), "");
    EXPECT_EQ(hid.get_descriptor(0x0100, 18).length, 18U);
}

TEST_F(Usbip, CancelledRequestIsAnsweredByItsUnlinkAlone) {
    Client client;
    import(client, "1-1");
    const auto first = client.start_in(1, 64);
    const auto second = client.start_in(1, 64);
    auto unlink = client.start_unlink(first);
    auto reply = client.read_reply();
    EXPECT_EQ(reply.code, 4U);
    EXPECT_EQ(reply.number, unlink);
    EXPECT_EQ(reply.status, connection_reset);
    EXPECT_TRUE(client.is_silent());

    emulator::request("input 1 0 b1");
    reply = client.read_reply();
    EXPECT_EQ(reply.code, 3U);
    EXPECT_EQ(reply.number, second);
    EXPECT_EQ(reply.data.at(0), 0xb1);

    for (const auto done : {first, second, 4711U}) { // cancelled, completed, never heard of
        unlink = client.start_unlink(done);
        reply = client.read_reply();
        EXPECT_EQ(reply.code, 4U);
        EXPECT_EQ(reply.number, unlink);
        EXPECT_EQ(reply.status, 0);
    }
    EXPECT_TRUE(client.is_silent());
    EXPECT_EQ(client.get_descriptor(0x0100, 18).length, 18U);
}

TEST_F(Usbip, LateControlReplyHoldsNothingElse) {
    Client client;
    import(client, "1-1");
    emulator::request("fault 1 delay=60000,on=get-feature,count=1");
    const auto input = client.start_in(1, 64);
    const auto late = client.start_control({0xa1, 1, 0x0300, 0, 64});
    const auto behind = client.start_control({0x80, 6, 0x0100, 0, 18});
    EXPECT_TRUE(client.is_silent());
    emulator::request("input 1 0 c1");
    EXPECT_EQ(client.read_reply().number, input);
    const auto unlink = client.start_unlink(late);
    // What stood behind it in the pad's queue may come before the reply to the unlink.
    const auto one = client.read_reply();
    const auto other = client.read_reply();
    EXPECT_EQ(std::minmax(one.number, other.number), std::minmax(behind, unlink));
    EXPECT_TRUE(client.is_silent());

    emulator::request("fault 1 silence,on=get-feature,count=1");
    const auto hanging = client.start_control({0xa1, 1, 0x0300, 0, 64});
    EXPECT_TRUE(client.is_silent());
    client.start_unlink(hanging);
    EXPECT_EQ(client.read_reply().status, connection_reset);
}

TEST_F(Usbip, FaultsStrike) {
    Client client;
    import(client, "1-1");
    emulator::request("fault 1 stall,on=get-feature,count=1");
    EXPECT_EQ(client.control({0xa1, 1, 0x0300, 0, 64}).status, stalled);
    EXPECT_EQ(client.control({0xa1, 1, 0x0300, 0, 64}).status, 0);
    emulator::request("fault 1 short=3,on=get-feature,count=1");
    EXPECT_EQ(client.control({0xa1, 1, 0x0300, 0, 64}).length, 3U);
    emulator::request("fault 1 unplug,on=get-feature,count=1");
    client.start_control({0xa1, 1, 0x0300, 0, 64});
    EXPECT_TRUE(client.has_ended());
    EXPECT_TRUE(emulator::request("state 1").starts_with("plugged=0"));
}

TEST_F(Usbip, UnplugEndsTheConnectionAndPlugMakesImportable) {
    Client client;
    import(client, "1-1");
    Client other;
    import(other, "1-2");
    client.start_in(1, 64);
    client.start_in(2, 64);
    emulator::request("input 1 1 d1");
    emulator::request("unplug 1");
    const auto reply = client.read_reply(); // what was done before
    EXPECT_EQ(reply.data.at(0), 0xd1);
    EXPECT_TRUE(client.receive(1).empty());
    EXPECT_EQ(listed(), (std::vector<std::string>{"1-3"}));

    emulator::request("plug 1");
    EXPECT_EQ(listed(), (std::vector<std::string>{"1-1", "1-3"}));
    Client again;
    import(again, "1-1");
    EXPECT_NE(again.device(), client.device());
    EXPECT_EQ(again.get_descriptor(0x0100, 18).length, 18U);
    EXPECT_EQ(other.get_descriptor(0x0100, 18).length, 18U);
}

TEST_F(Usbip, ClientsThatGoLeaveNothingBehind) {
    for (int i = 0; i < 50; ++i) {
        Client client;
        ASSERT_TRUE(eventually([&] { return listed().size() == 3; }));
        import(client, "1-1");
        client.start_in(1, 64);
        client.start_in(2, 64);
        client.start_control({0x80, 6, 0x0100, 0, 18});
        if (i % 2 == 0) {
            const linger at_once{1, 0};
            ASSERT_EQ(setsockopt(client.fd(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once), 0);
        }
    }
    ASSERT_TRUE(eventually([&] { return listed().size() == 3; }));
    Client client;
    import(client, "1-1");
    client.start_in(1, 64);
    emulator::request("input 1 0 e1");
    EXPECT_EQ(client.read_reply().data.at(0), 0xe1) << "taken by one that has gone";
}

TEST_F(Usbip, BytesMayComeOneByOneOrAllAtOnce) {
    Client slow;
    for (const auto byte : operation(0x8003, "1-1")) {
        slow.send(Bytes{byte});
        std::this_thread::sleep_for(1ms);
    }
    ASSERT_EQ(slow.read_import(), 0U);
    auto submit = slow.make(0, false, 64);
    submit.setup = {0x21, 9, 0x0300, 0, 64};
    submit.data.resize(64);
    for (const auto byte : submit.bytes()) {
        slow.send(Bytes{byte});
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(slow.read_reply().length, 64U);

    Client hasty;
    const auto address = Client{}.list().at(0).address;
    hasty.set_device(1U << 16 | address);
    auto bytes = operation(0x8003, "1-2");
    for (int i = 0; i < 10; ++i) {
        submit = hasty.make(0, true, 18);
        submit.setup = {0x80, 6, 0x0100, 0, 18};
        const auto more = submit.bytes();
        bytes.insert(bytes.end(), more.begin(), more.end());
    }
    hasty.send(bytes);
    ASSERT_EQ(hasty.read_import(), 0U);
    for (std::uint32_t i = 1; i <= 10; ++i) {
        const auto head = hasty.receive(48 + 18);
        ASSERT_EQ(head.size(), 48U + 18);
        EXPECT_EQ(usbip_client::number(head, 4, 4), i);
    }
}

// What a connection that has not imported anything may not say.
TEST_F(Usbip, WrongOperationsEndTheirConnection) {
    Client good;
    import(good, "1-2");
    for (const auto& bytes : {operation(0x8005, {}, 0x0110), operation(0x8003, "1-1", 0x0112), operation(0x8006),
                              operation(0x0003), operation(0), Bytes(8, 0xff), Bytes(100, 0), Submit{}.bytes()}) {
        Client client;
        client.send(bytes);
        EXPECT_TRUE(client.receive(1).empty());
        EXPECT_EQ(good.get_descriptor(0x0100, 18).length, 18U);
    }
    EXPECT_EQ(listed(), (std::vector<std::string>{"1-1", "1-3"}));
}

TEST_F(Usbip, WrongCommandsEndTheirConnection) {
    constexpr std::int32_t mebibyte = 1 << 20;
    using Change = std::function<void(Client&, Submit&)>;
    const std::vector<std::pair<const char*, Change>> wrong{
        {"a negative length", [](Client&, Submit& submit) { submit.length = -1; }},
        {"the most negative length", [](Client&, Submit& submit) { submit.length = INT32_MIN; }},
        {"a negative length out",
         [](Client&, Submit& submit) {
             submit.in = 0;
             submit.length = -64;
         }},
        {"a long length", [](Client&, Submit& submit) { submit.length = 16 * mebibyte + 1; }},
        {"the longest length", [](Client&, Submit& submit) { submit.length = INT32_MAX; }},
        {"a long length out",
         [](Client&, Submit& submit) {
             submit.in = 0;
             submit.length = 16 * mebibyte + 1;
         }},
        {"isochronous packets", [](Client&, Submit& submit) { submit.packets = 8; }},
        {"many isochronous packets", [](Client&, Submit& submit) { submit.packets = INT32_MAX; }},
        {"negative packets", [](Client&, Submit& submit) { submit.packets = -2; }},
        {"another device", [](Client&, Submit& submit) { ++submit.device; }},
        {"no device", [](Client&, Submit& submit) { submit.device = 0; }},
        {"command 0", [](Client&, Submit& submit) { submit.code = 0; }},
        {"a reply", [](Client&, Submit& submit) { submit.code = 3; }},
        {"a reply to an unlink", [](Client&, Submit& submit) { submit.code = 4; }},
        {"an unknown command", [](Client&, Submit& submit) { submit.code = 0xffffffff; }},
        {"a number in use", [](Client& client, Submit& submit) { submit.number = client.start_in(1, 64); }},
        {"a number in use, to no endpoint",
         [](Client& client, Submit& submit) {
             submit.number = client.start_in(1, 64);
             submit.endpoint = 9;
         }},
        {"too many requests",
         [](Client& client, Submit&) {
             for (int i = 0; i < 1024; ++i) {
                 client.start_in(1, 64);
             }
         }},
        {"too much at a time",
         [](Client& client, Submit& submit) {
             client.start_in(1, 10 * mebibyte);
             submit.length = 6 * mebibyte + 1;
         }},
    };
    Client good;
    import(good, "1-2");
    for (const auto& [name, change] : wrong) {
        Client client;
        ASSERT_TRUE(eventually([] { return listed().size() == 2; })) << name;
        import(client, "1-1");
        auto submit = client.make(1, true, 64);
        submit.number = 1000000;
        change(client, submit);
        client.send(submit.bytes());
        EXPECT_TRUE(client.has_ended()) << name;
        EXPECT_EQ(good.get_descriptor(0x0100, 18).length, 18U) << name;
    }
    EXPECT_TRUE(eventually([] { return listed().size() == 2; }));
}

TEST_F(Usbip, LargestRequestsWork) {
    Client client;
    import(client, "1-1");
    for (int i = 0; i < 1024; ++i) {
        client.start_in(1, 64);
    }
    emulator::request("input 1 0 01 1024");
    for (int i = 0; i < 1024; ++i) {
        ASSERT_EQ(client.read_reply().length, 64U);
    }
    auto submit = client.make(1, true, 64);
    submit.packets = -1; // as some say where there are none
    client.start(submit);
    emulator::request("input 1 0 01");
    EXPECT_EQ(client.read_reply().length, 64U);

    Client vcom;
    import(vcom, "1-2");
    const auto reply = vcom.out(2, Bytes(16 << 20, 0x11));
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(reply.length, 16U << 20);
    EXPECT_EQ(vcom.out(2, {1}).length, 1U);
    EXPECT_EQ(emulator::request("log 2"), "1 older lines lost\nout bulk 0 01") << "the log is no place for all of it";
}

TEST_F(Usbip, HalfSentencesHoldNothing) {
    Client good;
    import(good, "1-2");
    std::list<Client> silent;
    const auto import_bytes = operation(0x8003, "1-1");
    for (const std::size_t size : {0U, 1U, 7U, 8U, 39U}) {
        silent.emplace_back().send(std::span{import_bytes}.first(size));
    }
    Client half;
    import(half, "1-1");
    auto submit = half.make(2, false, 1 << 20);
    submit.data.resize(1000);
    half.send(submit.bytes());
    EXPECT_EQ(good.get_descriptor(0x0100, 18).length, 18U);
    half.close();
    EXPECT_TRUE(eventually([] { return listed().size() == 2; }));
    for (auto& client : silent) {
        EXPECT_TRUE(client.is_silent(0ms)) << "it may still go on";
    }
    silent.back().send(std::span{import_bytes}.subspan(39));
    EXPECT_EQ(silent.back().read_import(), 0U);
}

TEST_F(Usbip, OfAThousandConnectionsTheOldestIdleOnesGo) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    ASSERT_GT(limit.rlim_cur, 1100U);
    Client good;
    import(good, "1-1");
    std::list<Client> idle;
    for (int i = 0; i < 1000; ++i) {
        idle.emplace_back();
    }
    EXPECT_EQ(good.get_descriptor(0x0100, 18).length, 18U);
    EXPECT_EQ(listed(), (std::vector<std::string>{"1-2", "1-3"}));
    EXPECT_TRUE(idle.front().has_ended());
    EXPECT_EQ(idle.back().list().size(), 2U);
    std::ptrdiff_t left = 0;
    for (auto& client : idle) {
        left += client.is_silent(0ms) ? 1 : 0;
    }
    EXPECT_LE(left, 64);
    EXPECT_GE(left, 60);
}

long resident_kilobytes(pid_t process) {
    std::ifstream status{"/proc/" + std::to_string(process) + "/status"};
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            return std::stol(line.substr(6));
        }
    }
    return -1;
}

TEST_F(Usbip, ClientThatStopsReadingLosesItsConnectionAlone) {
    Client good;
    import(good, "1-2");
    Client deaf;
    const int small = 4096;
    ASSERT_EQ(setsockopt(deaf.fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
    import(deaf, "1-1");
    const auto before = resident_kilobytes(getppid());
    ASSERT_GT(before, 0);
    Bytes many;
    for (int i = 0; i < 1000; ++i) {
        auto submit = deaf.make(0, true, 4096);
        submit.setup = {0x80, 6, 0x0200, 0, 4096};
        const auto bytes = submit.bytes();
        many.insert(many.end(), bytes.begin(), bytes.end());
    }
    const auto begin = Clock::now();
    auto last = begin;
    std::size_t sent = 0;
    while (Clock::now() - last < 500ms) { // until the server listens no more
        ASSERT_LT(Clock::now() - begin, 8s) << "it listens for ever";
        const auto size = ::send(deaf.fd(), many.data() + sent % many.size(), many.size() - sent % many.size(),
                                 MSG_DONTWAIT | MSG_NOSIGNAL);
        if (size > 0) {
            sent += static_cast<std::size_t>(size);
            last = Clock::now();
        } else {
            ASSERT_EQ(errno, EAGAIN);
            std::this_thread::sleep_for(1ms);
        }
    }
    EXPECT_LT(resident_kilobytes(getppid()) - before, 128 << 10); // a sanitizer keeps what was freed
    const auto asked = Clock::now();
    EXPECT_EQ(good.get_descriptor(0x0100, 18).length, 18U);
    EXPECT_LT(Clock::now() - asked, 1s);
    EXPECT_EQ(listed(), (std::vector<std::string>{"1-3"})) << "it may still come back";
    EXPECT_TRUE(eventually([] { return listed().size() == 2; }, 30s));
}

TEST_F(Usbip, SlowReaderGetsEverything) {
    Client slow;
    const int small = 65536;
    ASSERT_EQ(setsockopt(slow.fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
    import(slow, "1-1");
    constexpr int count = 20000;
    std::thread writer{[&] {
        Bytes many;
        for (std::uint32_t i = 1; i <= count; ++i) {
            Submit submit;
            submit.number = i;
            submit.device = slow.device();
            submit.in = 1;
            submit.length = 59;
            submit.setup = {0x80, 6, 0x0200, 0, 59};
            const auto bytes = submit.bytes();
            many.insert(many.end(), bytes.begin(), bytes.end());
        }
        slow.send(many);
    }};
    std::this_thread::sleep_for(300ms); // the server has stopped listening by now
    for (std::uint32_t i = 1; i <= count; ++i) {
        const auto bytes = slow.receive(48 + 59);
        ASSERT_EQ(bytes.size(), 48U + 59);
        ASSERT_EQ(usbip_client::number(bytes, 4, 4), i);
    }
    writer.join();
}

} // namespace
