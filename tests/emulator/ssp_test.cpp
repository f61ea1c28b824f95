// Runs under vxpad-emulator with the pads that CMakeLists.txt plugs in, and talks SSP to them through libusb and hidapi
// alone, with bytes written out by hand.
#include "pads.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <gtest/gtest.h>
#include <hidapi.h>
#include <libusb.h>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using emulator::request;
using namespace pads;

// The pads of CMakeLists.txt.
constexpr int vcom_pad = 1;    // type 16, two busy state queries, 500 records a second
constexpr int hid_pad = 2;     // type 17, the same
constexpr int failing_pad = 3; // VCOM, named: configuration fails, 200 components
constexpr int silent_pad = 4;  // HID without SSP
constexpr int pad_count = 4;

constexpr unsigned char in_endpoint = 0x81;
constexpr unsigned char out_endpoint = 0x02;

Bytes operator+(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Bytes part(const Bytes& bytes, std::size_t start, std::size_t end) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(start), bytes.begin() + static_cast<std::ptrdiff_t>(end)};
}

const Bytes start_of_frame{0xaa, 0x55, 0x02};
const Bytes components_request = start_of_frame + Bytes{0x00, 0x00, 0x00, 0x10};
const Bytes components_reply = start_of_frame + Bytes{0x00, 0x06, 0x00, 0x10, 0x01, 0x04, 0x05, 0x0b, 0x03, 0x01};
const Bytes state_request = start_of_frame + Bytes{0x02, 0x00, 0x00, 0x10};
const Bytes report_request = start_of_frame + Bytes{0xc0, 0x00};

// A request to a component with two parameters, ready for the stream.
Bytes request_of(unsigned char component, unsigned char id, unsigned char first = 0, unsigned char second = 0) {
    return start_of_frame + Bytes{component, 0x02, 0x00, id, first, second};
}

Bytes variable_request(unsigned char id, const std::string& key, const std::string& value) {
    Bytes data(60);
    std::copy(key.begin(), key.end(), data.begin());
    std::copy(value.begin(), value.end(), data.begin() + 40);
    return start_of_frame + Bytes{0x02, 60, 0x00, id} + data;
}

// Both ways of carrying the stream.
class Link {
  public:
    Link() = default;
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    virtual ~Link() = default;

    virtual bool send(Bytes stream) = 0;

    // One read: a bulk transfer, or a report's 62 bytes; nothing after a failure.
    virtual std::optional<Bytes> read(unsigned int time_out) = 0;
};

class VcomLink : public Link {
  public:
    explicit VcomLink(int pad) : handle_{usb_.open(pad)} {}

    libusb_device_handle* handle() const { return handle_.get(); }
    libusb_context* context() const { return usb_.context(); }

    bool send(Bytes stream) override {
        int sent = 0;
        return libusb_bulk_transfer(handle(), out_endpoint, stream.data(), static_cast<int>(stream.size()), &sent,
                                    1000) == 0 &&
               sent == static_cast<int>(stream.size());
    }

    std::optional<Bytes> read(unsigned int time_out) override {
        Bytes data(4096);
        if (read_into(data, time_out) != 0) {
            return std::nullopt;
        }
        return data;
    }

    int read_into(Bytes& data, unsigned int time_out) {
        int size = 0;
        const int result =
            libusb_bulk_transfer(handle(), in_endpoint, data.data(), static_cast<int>(data.size()), &size, time_out);
        data.resize(static_cast<std::size_t>(size));
        return result;
    }

  private:
    Usb usb_;
    UsbHandle handle_;
};

class HidLink : public Link {
  public:
    explicit HidLink(int pad) : device_{hid_open_path(("1-" + std::to_string(pad) + ":1.0").c_str())} {}

    bool send(Bytes stream) override {
        for (std::size_t start = 0; start < stream.size(); start += 63) {
            const auto report = Bytes{0, 0xf8} + part(stream, start, std::min(start + 63, stream.size()));
            if (!write(report)) {
                return false;
            }
        }
        return true;
    }

    // Asks again while there are only zeros.
    std::optional<Bytes> read(unsigned int time_out) override {
        const auto deadline = Clock::now() + std::chrono::milliseconds(time_out);
        do {
            Bytes request(65);
            request[1] = 0xf9;
            if (!write(request)) {
                return std::nullopt;
            }
            const auto bytes = read_on();
            if (!bytes || std::ranges::any_of(*bytes, [](unsigned char byte) { return byte != 0; })) {
                return bytes;
            }
        } while (Clock::now() < deadline);
        return std::nullopt;
    }

    // Without another request.
    std::optional<Bytes> read_on() {
        Bytes report(65);
        const int size = hid_get_feature_report(device_.get(), report.data(), report.size());
        if (size != 65 || report[1] != 0xf9 || report[2] != 0) {
            return std::nullopt;
        }
        return part(report, 3, 65);
    }

  private:
    bool write(const Bytes& report) {
        return hid_send_feature_report(device_.get(), report.data(), report.size()) == static_cast<int>(report.size());
    }

    pads::Hid device_;
};

class SspPads : public pads::FreshPads {
  protected:
    SspPads() : FreshPads{pad_count} {}
};

// The first bytes of what is read, as many as are expected; a HID pad's zeros may follow.
std::string converse(Link& link, const Bytes& stream, std::size_t size, unsigned int time_out = 2000) {
    if (!link.send(stream)) {
        return "not sent";
    }
    Bytes reply;
    while (reply.size() < size) {
        const auto more = link.read(time_out);
        if (!more) {
            return hex(reply) + " and no more";
        }
        reply = reply + *more;
    }
    return hex(part(reply, 0, size));
}

std::string converse(Link& link, const Bytes& stream) {
    return converse(link, stream, components_reply.size());
}

bool has_line(const std::string& text, const std::string& line) {
    return ("\n" + text + "\n").find("\n" + line + "\n") != std::string::npos;
}

// ---- the same on both transports ----

class SspPad : public SspPads, public testing::WithParamInterface<int> {
  protected:
    void SetUp() override {
        SspPads::SetUp();
        if (pad() == vcom_pad) {
            link_ = std::make_unique<VcomLink>(pad());
        } else {
            link_ = std::make_unique<HidLink>(pad());
        }
    }
    void TearDown() override {
        link_.reset();
        SspPads::TearDown();
    }

    int pad() const { return GetParam(); }
    Link& link() const { return *link_; }
    std::string ask(const Bytes& stream, std::size_t size) const { return converse(link(), stream, size); }

  private:
    std::unique_ptr<Link> link_;
};

INSTANTIATE_TEST_SUITE_P(BothKinds, SspPad, testing::Values(vcom_pad, hid_pad),
                         [](const auto& pad) { return pad.param == vcom_pad ? "vcom" : "hid"; });

TEST_P(SspPad, ComponentsAreListed) {
    EXPECT_EQ(converse(link(), components_request), hex(components_reply));
    EXPECT_TRUE(has_line(on_pad("log", pad()), "out ssp 0 00000010"));
}

TEST_P(SspPad, DescriptionTellsVersionAndSerialNumber) {
    const auto reply = ask(request_of(1, 0x10), 3 + 3 + 31 + 4);
    ASSERT_EQ(reply.size(), 82U) << reply;
    EXPECT_EQ(reply.substr(0, 16), "aa55020122001001");
    EXPECT_EQ(reply.substr(32), "07000000"
                                "08000000"
                                "09000000"
                                "0a000000"
                                "41424344"
                                "04"
                                "53313233");
    // The ids of the type, which are not the ones a VCOM pad has on the bus.
    const auto list = request("list");
    const auto line = list.substr(list.find(std::to_string(pad()) + " plugged"));
    const auto id = line.substr(line.find(" id=") + 4, 4);
    EXPECT_EQ(reply.substr(24, 4) == id.substr(2, 2) + id.substr(0, 2), pad() == hid_pad) << reply << " " << line;
}

TEST_P(SspPad, RequestMayBeCutAnywhere) {
    const Bytes noise{0xaa, 0x00, 0x55, 0x02, 0xaa};
    const auto unfinished = start_of_frame + Bytes{0x01, 0x20};
    // The last byte may be the first one of a token.
    const auto stream = noise + unfinished + request_of(1, 0x13, 0xaa, 0xaa);
    for (std::size_t cut = 1; cut < stream.size(); ++cut) {
        ASSERT_TRUE(link().send(part(stream, 0, cut)));
        ASSERT_EQ(ask(part(stream, cut, stream.size()), 8), "aa55020101001302") << "cut at " << cut;
    }
}

TEST_P(SspPad, MarkersInMessagesAreEscaped) {
    const auto key = std::string{"\x55key\xaa"};
    auto stream = variable_request(0x14, key, std::string{"1\xaa\x55\xaa\x55\xaa"});
    std::size_t escapes = 0;
    for (std::size_t i = 3; i + 1 < stream.size(); ++i) {
        if (stream[i] == 0xaa && stream[i + 1] == 0x55) {
            stream.insert(stream.begin() + static_cast<std::ptrdiff_t>(i) + 2, 0x00);
            ++escapes;
        }
    }
    EXPECT_EQ(escapes, 2U);
    EXPECT_EQ(ask(stream, 8), "aa55020201001401");
    EXPECT_NE(on_pad("log", pad()).find("31aa55aa55aa00"), std::string::npos) << "taken as it was meant";
}

TEST_P(SspPad, WhatIsUnknownIsRefused) {
    EXPECT_EQ(ask(request_of(1, 0x77), 8), "aa55020101007702");
    EXPECT_EQ(ask(request_of(9, 0x10), 8), "aa55020901001002");
    EXPECT_EQ(ask(request_of(0, 0x11), 8), "aa55020001001102");
    EXPECT_EQ(ask(start_of_frame + Bytes{0x01, 0x00, 0x00, 0x10}, 8), "aa55020101001002") << "parameters are missing";
    EXPECT_NE(on_pad("ssp", pad()).find("refused=4"), std::string::npos);
}

TEST_P(SspPad, ModesAndButtons) {
    EXPECT_EQ(ask(request_of(1, 0x12), 9 + 16), "aa5502011200120104"
                                                "00000000"
                                                "05000000"
                                                "06000000"
                                                "0d000000");
    on_pad("button", pad(), "200");
    EXPECT_EQ(ask(request_of(1, 0x13, 3, 0x10), 11), "aa550201040013010310c8");
    EXPECT_EQ(ask(request_of(1, 0x13, 1, 0x12), 11), "aa550201040013010112c8");
    EXPECT_EQ(ask(request_of(1, 0x13, 2, 0x10), 10), "aa550201030013010210");
    const auto state = on_pad("ssp", pad());
    EXPECT_TRUE(has_line(state, "refreshed 6 1")) << state;
    EXPECT_NE(state.find(" mode=6 button=200 "), std::string::npos) << state;
    EXPECT_EQ(ask(request_of(1, 0x13, 4, 0x10), 8), "aa55020101001302") << "no such mode";
}

TEST_P(SspPad, ConfigurationTakesItsTime) {
    const auto state = [&] { return ask(state_request, 9).substr(12); };
    EXPECT_EQ(state(), "100100") << "idle";
    EXPECT_EQ(ask(variable_request(0x14, "some.key", "0100"), 8), "aa55020201001401");
    EXPECT_EQ(state(), "100101");
    EXPECT_EQ(ask(variable_request(0x14, "some.key", "0200"), 8), "aa55020201001402") << "it is busy";
    EXPECT_EQ(state(), "100102");
    EXPECT_EQ(state(), "100103") << "done";
    EXPECT_EQ(ask(variable_request(0x17, "some.key", ""), 8), "aa55020201001701");
    const auto text = on_pad("ssp", pad());
    EXPECT_TRUE(has_line(text, "variable some.key 0100")) << text;
    EXPECT_TRUE(has_line(text, "persisted some.key")) << text;
}

TEST_P(SspPad, ConnectionTypeIsSetWithoutReply) {
    EXPECT_EQ(ask(request_of(3, 0x10), 9), "aa5502030200100107");
    ASSERT_TRUE(link().send(request_of(3, 0x11, 9)));
    EXPECT_EQ(ask(request_of(3, 0x10), 9), "aa5502030200100109");
}

TEST_P(SspPad, PenDataComesWhileItIsOn) {
    EXPECT_EQ(ask(request_of(1, 0x11, 1), 8), "aa55020101001101");
    for (unsigned char number = 0; number < 5; ++number) {
        const auto record = link().read(2000);
        ASSERT_TRUE(record && record->size() >= 10);
        EXPECT_EQ(hex(part(*record, 0, 6)), hex({0xaa, 0x55, 0x02, 0xd3, number, 0}));
    }
    ASSERT_TRUE(link().send(request_of(1, 0x11, 0)));
    const auto state = on_pad("ssp", pad());
    EXPECT_TRUE(state.starts_with("biodata=0 ")) << state;
    while (link().read(30)) { // what was on its way
        ;
    }
    EXPECT_EQ(on_pad("ssp", pad()), state) << "30 ms without a record";
}

TEST_P(SspPad, ControlSocketSendsRecordsAndBytes) {
    on_pad("pen", pad(), "0102aa55");
    const auto record = link().read(2000);
    ASSERT_TRUE(record && record->size() >= 9);
    EXPECT_EQ(hex(part(*record, 0, 9)), "aa5502c30102aa5500");
    on_pad("send", pad(), "aa55aa");
    const auto bytes = link().read(2000);
    ASSERT_TRUE(bytes && bytes->size() >= 3);
    EXPECT_EQ(hex(part(*bytes, 0, 3)), "aa55aa");
    EXPECT_THROW(on_pad("pen", pad(), std::string(130, '0')), std::runtime_error);
}

// ---- faults of messages ----

TEST_P(SspPad, ReplyCanBeDroppedOnceInAWhile) {
    on_pad("fault", pad(), "drop,after=1,count=1");
    EXPECT_EQ(converse(link(), components_request), hex(components_reply));
    ASSERT_TRUE(link().send(components_request));
    EXPECT_FALSE(link().read(30));
    EXPECT_TRUE(has_line(on_pad("log", pad()), "in ssp 0 00060010010405" // its end follows
                                               "0b0301 dropped"));
    EXPECT_EQ(converse(link(), components_request), hex(components_reply));
}

TEST_P(SspPad, ReplyCanTellWrongThings) {
    on_pad("fault", pad(), "wrong-component,count=1");
    on_pad("fault", pad(), "wrong-result,after=1,count=1");
    on_pad("fault", pad(), "replace=7f0200aa5501,after=2,count=1");
    EXPECT_EQ(ask(components_request, 8), "aa55020106001001");
    EXPECT_EQ(ask(components_request, 8), "aa55020006001002");
    EXPECT_EQ(ask(components_request, 10), "aa55027f0200aa550001");
    EXPECT_EQ(converse(link(), components_request), hex(components_reply));
}

TEST_P(SspPad, NoiseComesBeforeTheToken) {
    on_pad("fault", pad(), "noise=5,seed=3,count=1");
    const auto stream = ask(components_request, 5 + components_reply.size());
    EXPECT_EQ(stream.substr(10), hex(components_reply));
    EXPECT_NE(stream.substr(0, 10), "0000000000");
}

TEST_P(SspPad, DelayedReplyIsOvertaken) {
    on_pad("fault", pad(), "delay-reply=40,count=1");
    const auto start = Clock::now();
    ASSERT_TRUE(link().send(components_request));
    EXPECT_EQ(ask(state_request, 9).substr(6, 2), "02");
    const auto late = link().read(2000);
    EXPECT_GE(Clock::now() - start, 40ms);
    ASSERT_TRUE(late);
    EXPECT_EQ(hex(part(*late, 0, components_reply.size())), hex(components_reply));
}

TEST_P(SspPad, MergedReplyWaitsForTheNextBytes) {
    on_pad("fault", pad(), "merge,count=1");
    ASSERT_TRUE(link().send(components_request));
    EXPECT_FALSE(link().read(30));
    ASSERT_TRUE(link().send(components_request));
    const auto both = link().read(2000);
    ASSERT_TRUE(both && both->size() >= 2 * components_reply.size());
    EXPECT_EQ(hex(part(*both, 0, 2 * components_reply.size())), hex(components_reply + components_reply));
}

TEST_P(SspPad, PenDataHasItsOwnFaults) {
    on_pad("fault", pad(), "drop,on=pen,count=1");
    on_pad("pen", pad(), "01");
    on_pad("pen", pad(), "02");
    const auto record = link().read(2000);
    ASSERT_TRUE(record && record->size() >= 5);
    EXPECT_EQ(hex(part(*record, 0, 5)), "aa5502c002");
}

TEST_P(SspPad, JunkComesForEver) {
    on_pad("fault", pad(), "junk");
    ASSERT_TRUE(link().send(components_request));
    for (int i = 0; i < 10; ++i) {
        const auto junk = link().read(2000);
        ASSERT_TRUE(junk);
        EXPECT_EQ(junk->size(), pad() == vcom_pad ? 4096U : 62U);
        EXPECT_EQ(std::ranges::count(*junk, 0xaa), 0);
        EXPECT_GT(std::ranges::count_if(*junk, [](unsigned char byte) { return byte != 0; }), 31);
    }
    on_pad("clear-faults", pad());
    EXPECT_TRUE(link().read(2000)) << "until it is pulled out";
}

TEST_F(SspPads, SplitReplyComesInPieces) {
    VcomLink vcom{vcom_pad};
    on_pad("fault", vcom_pad, "split=5,count=1");
    ASSERT_TRUE(vcom.send(components_request));
    for (const std::size_t start : {0U, 5U, 10U}) {
        const auto piece = vcom.read(2000);
        ASSERT_TRUE(piece);
        EXPECT_EQ(hex(*piece), hex(part(components_reply, start, std::min(start + 5, components_reply.size()))));
    }
    HidLink hid{hid_pad};
    on_pad("fault", hid_pad, "split=5,count=1");
    EXPECT_EQ(converse(hid, components_request, 6), hex(part(components_reply, 0, 5)) + "00");
}

TEST_F(SspPads, MessageCanBeCutAtEveryByte) {
    VcomLink link{vcom_pad};
    for (std::size_t size = 1; size < components_reply.size(); ++size) {
        on_pad("fault", vcom_pad, "cut=" + std::to_string(size) + ",count=1");
        ASSERT_TRUE(link.send(components_request));
        const auto stream = link.read(2000);
        ASSERT_TRUE(stream);
        EXPECT_EQ(hex(*stream), hex(part(components_reply, 0, size)));
    }
}

TEST_F(SspPads, FaultsStrikeOnlyWhereTheyCan) {
    for (const auto* fault : {"drop,on=bulk-in", "stall,on=ssp", "split=0", "cut", "replace=0", "merge=1",
                              "short=1,on=pen", "noise=1,on=any", "drop,seed=1"}) {
        EXPECT_THROW(on_pad("fault", vcom_pad, fault), std::runtime_error) << fault;
    }
}

// ---- HID pads ----

TEST_F(SspPads, LongReplyIsReadOnWithoutAnotherRequest) {
    HidLink link{hid_pad};
    on_pad("send", hid_pad, hex(Bytes(70, 0x11)));
    on_pad("send", hid_pad, "22");
    const auto first = link.read(2000);
    ASSERT_TRUE(first);
    EXPECT_EQ(hex(*first), hex(Bytes(62, 0x11)));
    EXPECT_EQ(link.read_on(), Bytes(8, 0x11) + Bytes(54)) << "a piece ends, though another one waits";
    EXPECT_EQ(link.read_on(), Bytes{0x22} + Bytes(61));
    EXPECT_EQ(link.read_on(), Bytes(62));
}

TEST_F(SspPads, PadWithoutSspHasAnEmptyStream) {
    HidLink link{silent_pad};
    ASSERT_TRUE(link.send(components_request)) << "a refused report like any other";
    EXPECT_FALSE(link.read(30));
    EXPECT_THROW(on_pad("ssp", silent_pad), std::runtime_error);
}

// ---- VCOM pads ----

TEST_F(SspPads, VcomPadShowsAVendorInterfaceWithTwoBulkEndpoints) {
    VcomLink link{vcom_pad};
    ASSERT_NE(link.handle(), nullptr);
    libusb_config_descriptor* configuration = nullptr;
    ASSERT_EQ(libusb_get_config_descriptor(libusb_get_device(link.handle()), 0, &configuration), 0);
    ASSERT_EQ(configuration->bNumInterfaces, 1);
    const auto& setting = configuration->interface[0].altsetting[0];
    EXPECT_EQ(setting.bInterfaceClass, LIBUSB_CLASS_VENDOR_SPEC);
    ASSERT_EQ(setting.bNumEndpoints, 2);
    EXPECT_EQ(setting.endpoint[0].bEndpointAddress, in_endpoint);
    EXPECT_EQ(setting.endpoint[1].bEndpointAddress, out_endpoint);
    for (const auto& endpoint : {setting.endpoint[0], setting.endpoint[1]}) {
        EXPECT_EQ(endpoint.bmAttributes, LIBUSB_TRANSFER_TYPE_BULK);
        EXPECT_EQ(endpoint.wMaxPacketSize, 64);
    }
    libusb_free_config_descriptor(configuration);
    EXPECT_EQ(libusb_kernel_driver_active(link.handle(), 0), 0);
    EXPECT_EQ(hid_open_path(("1-" + std::to_string(vcom_pad) + ":1.0").c_str()), nullptr);
}

TEST_F(SspPads, NamedPadHasItsMakersNameAndOtherIds) {
    VcomLink named{failing_pad};
    VcomLink other{vcom_pad};
    libusb_device_descriptor descriptor{};
    libusb_device_descriptor other_descriptor{};
    libusb_get_device_descriptor(libusb_get_device(named.handle()), &descriptor);
    libusb_get_device_descriptor(libusb_get_device(other.handle()), &other_descriptor);
    EXPECT_NE(descriptor.idVendor, other_descriptor.idVendor);
    unsigned char maker[64] = {};
    EXPECT_GT(libusb_get_string_descriptor_ascii(named.handle(), descriptor.iManufacturer, maker, sizeof maker), 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(maker), "Quillon Ltd");
}

TEST_F(SspPads, FixedCommandsTravelInLegacyMessages) {
    VcomLink link{vcom_pad};
    const auto write = [&](Bytes report) {
        report.resize(64);
        return link.send(start_of_frame + Bytes{0xbf} + report);
    };
    const auto read = [&] { return converse(link, report_request, 4 + 64); };
    ASSERT_TRUE(write({0x01, 6, 2}));
    EXPECT_EQ(read().substr(0, 12), "aa5502bf0100");
    EXPECT_NE(on_pad("state", vcom_pad).find("mode=6 mode-option=2 "), std::string::npos);
    ASSERT_TRUE(write({0x27}));
    EXPECT_EQ(read().substr(8 + 22, 2), "06");
    ASSERT_TRUE(write({0x77, 0x12}));
    EXPECT_EQ(read().substr(0, 12), "aa5502bf7712") << "looped back";
}

TEST_F(SspPads, ConfigurationCanFail) {
    VcomLink link{failing_pad};
    const auto set = variable_request(0x14, "some.key", "1");
    EXPECT_EQ(converse(link, set, 8), "aa55020201001401");
    EXPECT_EQ(converse(link, state_request, 9).substr(12), "100104");
    EXPECT_EQ(on_pad("ssp", failing_pad).find("variable"), std::string::npos);
}

TEST_F(SspPads, ManyComponentsAndModesAreListed) {
    VcomLink link{failing_pad};
    const auto components = converse(link, components_request, 3 + 3 + 3 + 200);
    EXPECT_EQ(components.substr(0, 18), "aa550200ca001001c8");
    EXPECT_EQ(components.substr(18, 8), "050b0301");
    EXPECT_EQ(components.substr(18 + 2 * 199), "63");
    const auto modes = converse(link, request_of(1, 0x12), 3 + 3 + 3 + 8);
    EXPECT_EQ(modes, "aa5502010a00120102"
                     "ffffffff"
                     "05000000");
}

TEST_F(SspPads, LongReadEndsWithThePiece) {
    VcomLink link{vcom_pad};
    on_pad("send", vcom_pad, hex(Bytes(128, 0x11)));
    on_pad("send", vcom_pad, hex(Bytes(70, 0x22)));
    EXPECT_EQ(link.read(2000), Bytes(128, 0x11)) << "an empty packet ends it";
    EXPECT_EQ(link.read(2000), Bytes(70, 0x22));
    on_pad("send", vcom_pad, hex(Bytes(64, 0x33)));
    Bytes data(64);
    EXPECT_EQ(link.read_into(data, 2000), 0);
    EXPECT_EQ(data.size(), 64U);
    EXPECT_EQ(link.read(2000), Bytes{}) << "the empty packet, as the first read had no room left to see it";
    on_pad("send", vcom_pad, "4444");
    data.resize(1);
    EXPECT_EQ(link.read_into(data, 2000), LIBUSB_ERROR_OVERFLOW);
    data.resize(64);
    EXPECT_EQ(link.read_into(data, 30), LIBUSB_ERROR_TIMEOUT);
}

TEST_F(SspPads, BytesWakeAWaitingRead) {
    VcomLink link{vcom_pad};
    Bytes data(64);
    EXPECT_EQ(link.read_into(data, 30), LIBUSB_ERROR_TIMEOUT) << "and it takes nothing of what comes later";
    std::thread sender{[] { on_pad("send", vcom_pad, "01"); }};
    EXPECT_EQ(link.read(5000), Bytes{0x01});
    sender.join();
}

TEST_F(SspPads, WaitingReadsAreServedInTurn) {
    const VcomLink link{vcom_pad};
    struct Read {
        unsigned char data[64] = {};
        int size = -1;
        int status = -1;
        int completed = 0;
        libusb_transfer* transfer = libusb_alloc_transfer(0);
        ~Read() { libusb_free_transfer(transfer); }
    };
    std::array<Read, 3> reads;
    const auto callback = [](libusb_transfer* transfer) {
        auto& read = *static_cast<Read*>(transfer->user_data);
        read.size = transfer->actual_length;
        read.status = transfer->status;
        read.completed = 1;
    };
    for (auto& read : reads) {
        libusb_fill_bulk_transfer(read.transfer, link.handle(), in_endpoint, read.data, sizeof read.data, callback,
                                  &read, 0);
        ASSERT_EQ(libusb_submit_transfer(read.transfer), 0);
    }
    ASSERT_EQ(libusb_cancel_transfer(reads[1].transfer), 0);
    on_pad("send", vcom_pad, "01");
    on_pad("send", vcom_pad, "0203");
    for (auto& read : reads) {
        timeval patience{5, 0};
        while (read.completed == 0) {
            ASSERT_EQ(libusb_handle_events_timeout_completed(link.context(), &patience, &read.completed), 0);
        }
    }
    EXPECT_EQ(reads[0].size, 1);
    EXPECT_EQ(reads[1].status, LIBUSB_TRANSFER_CANCELLED);
    EXPECT_EQ(reads[2].size, 2);
    EXPECT_EQ(reads[2].data[0], 2);
}

TEST_F(SspPads, BulkTransfersHaveFaults) {
    VcomLink link{vcom_pad};
    Bytes data(64);
    const auto read = [&](const std::string& fault, unsigned int time_out) {
        on_pad("fault", vcom_pad, fault + ",on=bulk-in,count=1");
        data.resize(64);
        return link.read_into(data, time_out);
    };
    for (int i = 0; i < 4; ++i) {
        on_pad("send", vcom_pad, "010203");
    }
    EXPECT_EQ(read("stall", 2000), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(libusb_clear_halt(link.handle(), in_endpoint), 0);
    EXPECT_EQ(read("silence", 30), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(read("short=1", 2000), 0);
    EXPECT_EQ(hex(data), "01");
    EXPECT_EQ(read("wrong-command", 2000), 0);
    EXPECT_EQ(hex(data), "020203");
    EXPECT_EQ(read("garbage", 2000), 0);
    EXPECT_NE(hex(data), "010203");
    const auto start = Clock::now();
    EXPECT_EQ(read("delay=40", 2000), 0);
    EXPECT_GE(Clock::now() - start, 40ms);
    EXPECT_EQ(hex(data), "010203") << "neither stall nor silence used anything up";

    on_pad("fault", vcom_pad, "stall,on=bulk-out,count=1");
    EXPECT_FALSE(link.send(components_request));
    on_pad("fault", vcom_pad, "short=5,on=bulk-out,count=1");
    EXPECT_FALSE(link.send(components_request)) << "not all of it was taken";
    EXPECT_FALSE(link.read(30));
    EXPECT_EQ(converse(link, components_request), hex(components_reply)) << "the next token starts anew";
}

TEST_F(SspPads, PadIsPulledOutAtTheNthBulkTransfer) {
    for (int transfers = 0; transfers < 4; ++transfers) {
        VcomLink link{vcom_pad};
        on_pad("fault", vcom_pad, "unplug,on=bulk,count=1,after=" + std::to_string(transfers));
        for (int i = 0; i < transfers / 2; ++i) {
            ASSERT_EQ(converse(link, components_request), hex(components_reply));
        }
        EXPECT_EQ(link.send(components_request), transfers % 2 == 1);
        Bytes data(64);
        EXPECT_EQ(link.read_into(data, 2000), LIBUSB_ERROR_NO_DEVICE);
        EXPECT_THROW(on_pad("ssp", vcom_pad), std::runtime_error);
        on_pad("plug", vcom_pad);
    }
}

TEST_F(SspPads, UnplugEndsAWaitingBulkRead) {
    VcomLink link{vcom_pad};
    ASSERT_TRUE(link.send(request_of(1, 0x11, 1))); // with pen data on its way, too
    ASSERT_TRUE(link.send(request_of(1, 0x11, 0)));
    while (link.read(30)) {
        ;
    }
    std::atomic<bool> begun = false;
    std::thread reader{[&] {
        Bytes data(64);
        begun = true;
        const auto start = Clock::now();
        EXPECT_EQ(link.read_into(data, 10000), LIBUSB_ERROR_NO_DEVICE);
        EXPECT_LT(Clock::now() - start, 5s);
    }};
    while (!begun) {
        std::this_thread::yield();
    }
    on_pad("unplug", vcom_pad);
    reader.join();
}

TEST_F(SspPads, PadMayBePulledOutWhileEverythingIsUnderWay) {
    VcomLink link{vcom_pad};
    on_pad("fault", vcom_pad, "delay-reply=20");
    ASSERT_TRUE(link.send(request_of(1, 0x11, 1)));
    ASSERT_TRUE(link.send(components_request));
    on_pad("unplug", vcom_pad);
    on_pad("clear-faults", vcom_pad);
    on_pad("plug", vcom_pad);
    VcomLink again{vcom_pad};
    EXPECT_FALSE(again.read(50)) << "nothing of the pad that has gone";
    EXPECT_EQ(converse(again, components_request), hex(components_reply));
}

TEST_F(SspPads, WaitingPenDataIsBounded) {
    VcomLink link{failing_pad};
    for (int i = 0; i < 4100; ++i) {
        on_pad("pen", failing_pad, "01");
    }
    EXPECT_NE(on_pad("ssp", failing_pad).find(" pen-lost=4 "), std::string::npos);
    EXPECT_EQ(link.read(2000), start_of_frame + Bytes({0xc0, 0x01}));
}

} // namespace
