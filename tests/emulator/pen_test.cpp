// Runs under vxpad-emulator with the pads that CMakeLists.txt plugs in, and reads what they play through libusb and
// hidapi alone.
#include "eventually.hpp"
#include "pads.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <hidapi.h>
#include <libusb.h>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using emulator::request;
using program::eventually;
using namespace pads;

// The pads of CMakeLists.txt.
constexpr int hid_pad = 1;        // type 16, three interfaces, pen data on the second one
constexpr int vcom_pad = 2;       // 500 records a second while biodata is on
constexpr int strokes_pad = 3;    // type 1, draws two_strokes.txt
constexpr int looping_pad = 4;    // HID, plays at all times
constexpr int looping_vcom = 5;   // VCOM, likewise
constexpr int requested_vcom = 6; // VCOM, plays on request alone
constexpr int pad_count = 6;

constexpr int hid_interface = 1;
constexpr std::size_t most_waiting = 4096;

// "name=value" of the pad's state
std::string state_of(int pad, const std::string& name) {
    const auto text = " " + on_pad("state", pad) + " ";
    const auto start = text.find(" " + name + "=");
    if (start == std::string::npos) {
        return "none";
    }
    const auto value = start + name.size() + 2;
    return text.substr(value, text.find(' ', value) - value);
}

bool has_finished(int pad) {
    return eventually([&] { return state_of(pad, "pen") == "resting"; });
}

std::uint64_t number_at(const Bytes& bytes, std::size_t offset, std::size_t size) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < size; ++i) {
        number |= std::uint64_t{bytes.at(offset + i)} << 8 * i;
    }
    return number;
}

struct Packet {
    explicit Packet(const Bytes& bytes)
        : head{number_at(bytes, 0, 2)}, x{number_at(bytes, 2, 2)}, y{number_at(bytes, 4, 2)}, //
          pressure{number_at(bytes, 6, 2)}, number{number_at(bytes, 8, 4)},                   //
          sent{std::chrono::nanoseconds{number_at(bytes, 12, 8)}} {}

    std::uint64_t head;
    std::uint64_t x;
    std::uint64_t y;
    std::uint64_t pressure;
    std::uint64_t number;
    std::chrono::nanoseconds sent; // by the clock that Clock shows
};

// A pad's endpoint for what it sends.
class Source {
  public:
    Source(int pad, int interface) : handle_{usb_.open(pad)}, endpoint_{static_cast<unsigned char>(0x81 + interface)} {
        if (!handle_) {
            throw std::runtime_error("pad " + std::to_string(pad) + " cannot be opened");
        }
        libusb_set_auto_detach_kernel_driver(handle_.get(), 1);
        EXPECT_EQ(libusb_claim_interface(handle_.get(), interface), 0);
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    virtual ~Source() = default;

    // Nothing when none comes in time.
    virtual std::optional<Bytes> read(unsigned int time_out) = 0;

    std::vector<Packet> read_many(std::size_t count) {
        std::vector<Packet> packets;
        while (packets.size() < count) {
            const auto bytes = read(5000);
            if (!bytes) {
                ADD_FAILURE() << "nothing after " << packets.size() << " packets";
                break;
            }
            packets.emplace_back(*bytes);
        }
        return packets;
    }

    // What was on its way has been read then.
    void drain() {
        while (read(50)) {
            ;
        }
    }

  protected:
    libusb_device_handle* handle() const { return handle_.get(); }
    unsigned char endpoint() const { return endpoint_; }

  private:
    Usb usb_;
    pads::UsbHandle handle_;
    unsigned char endpoint_;
};

// Reads each interface itself: hidapi drops what nobody fetches for a while.
class Reports : public Source {
  public:
    explicit Reports(int pad, int interface = 0)
        : Source(pad, interface), report_size_(pad == strokes_pad ? oldest_report_size : report_size) {}

    std::optional<Bytes> read(unsigned int time_out) override {
        Bytes report(report_size_);
        int size = 0;
        if (libusb_interrupt_transfer(handle(), endpoint(), report.data(), static_cast<int>(report.size()), &size,
                                      time_out) != 0) {
            return std::nullopt;
        }
        report.resize(static_cast<std::size_t>(size));
        return report;
    }

  private:
    static constexpr std::size_t report_size = 64;
    static constexpr std::size_t oldest_report_size = 20;

    std::size_t report_size_;
};

class Records : public Source {
  public:
    explicit Records(int pad) : Source(pad, 0) {}

    // Skips what is no pen data.
    std::optional<Bytes> read(unsigned int time_out) override {
        for (;;) {
            Bytes piece(4096);
            int size = 0;
            if (libusb_bulk_transfer(handle(), endpoint(), piece.data(), 4096, &size, time_out) != 0) {
                return std::nullopt;
            }
            piece.resize(static_cast<std::size_t>(size));
            const Bytes token{0xaa, 0x55, 0x02};
            if (piece.size() < 5 || !std::equal(token.begin(), token.end(), piece.begin()) || piece[3] < 0xc0) {
                continue;
            }
            Bytes record;
            for (std::size_t i = 4; i < piece.size(); ++i) {
                record.push_back(piece[i]);
                if (i > 4 && piece[i - 1] == 0xaa && piece[i] == 0x55) {
                    ++i; // the escape
                }
            }
            EXPECT_EQ(record.size(), (piece[3] & 0x3fU) + 1);
            return record;
        }
    }

    void switch_biodata(bool on) const {
        Bytes message{0xaa, 0x55, 0x02, 0x01, 0x02, 0x00, 0x11, static_cast<unsigned char>(on ? 1 : 0), 0x00};
        int sent = 0;
        EXPECT_EQ(libusb_bulk_transfer(handle(), 0x02, message.data(), static_cast<int>(message.size()), &sent, 1000),
                  0);
    }
};

void expect_numbers(const std::vector<Packet>& packets, std::uint64_t first) {
    for (std::size_t i = 0; i < packets.size(); ++i) {
        ASSERT_EQ(packets[i].number, first + i);
    }
}

class Pens : public pads::FreshPads {
  protected:
    Pens() : FreshPads{pad_count} {}
};

// ---- the signature ----

TEST_F(Pens, SignatureIsDrawnPointByPoint) {
    Reports reports(strokes_pad);
    on_pad("play", strokes_pad);
    const auto packets = reports.read_many(6);
    EXPECT_TRUE(has_finished(strokes_pad));
    EXPECT_FALSE(reports.read(50)) << "once";
    std::vector<std::array<std::uint64_t, 5>> drawn;
    for (const auto& packet : packets) {
        drawn.push_back({packet.number, packet.head, packet.x, packet.y, packet.pressure});
    }
    const std::vector<std::array<std::uint64_t, 5>> expected{
        {0, 0x0150, 10, 1000, 1},   {1, 0x0150, 20, 2000, 65535}, {2, 0x0050, 20, 2000, 0},
        {3, 0x0150, 30, 3000, 300}, {4, 0x0150, 40, 4000, 400},   {5, 0x0050, 40, 4000, 0},
    };
    EXPECT_EQ(drawn, expected);
}

TEST_F(Pens, ReportHasTheSizeOfThePadsReports) {
    Reports small(strokes_pad);
    Reports large(hid_pad, hid_interface);
    on_pad("play", strokes_pad, "1");
    on_pad("play", hid_pad, "2");
    EXPECT_EQ(small.read(5000).value_or(Bytes()).size(), 20U);
    ASSERT_EQ(large.read(5000).value_or(Bytes()).size(), 64U);
    const auto report = large.read(5000).value_or(Bytes(64));
    EXPECT_EQ(Bytes(report.begin() + 20, report.end()), Bytes(44, 1)) << "filled up with its number";
}

TEST_F(Pens, SignatureThatComesWithTheEmulatorIsDrawn) {
    Reports reports(hid_pad, hid_interface);
    on_pad("play", hid_pad, "once 5000");
    ASSERT_TRUE(has_finished(hid_pad));
    const auto packets = reports.read_many(std::stoul(state_of(hid_pad, "pen-sent")));
    ASSERT_GT(packets.size(), 100U);
    const auto lifted = std::ranges::count_if(packets, [](const auto& packet) { return packet.pressure == 0; });
    EXPECT_GT(lifted, 1) << "strokes";
    EXPECT_LT(lifted, 20);
    EXPECT_EQ(packets.back().pressure, 0U);
    EXPECT_GT(std::ranges::max(packets, {}, &Packet::x).x, 1000U);
    EXPECT_GT(std::ranges::max(packets, {}, &Packet::y).y, 500U);
}

// ---- rate and order ----

class Rates : public Pens, public testing::WithParamInterface<std::tuple<int, int>> {};

INSTANTIATE_TEST_SUITE_P(Both, Rates, testing::Combine(testing::Values(hid_pad, vcom_pad), testing::Values(500, 1500)),
                         [](const auto& test) {
                             return std::string{std::get<0>(test.param) == hid_pad ? "hid" : "vcom"} +
                                    std::to_string(std::get<1>(test.param));
                         });

TEST_P(Rates, PacketsComeInOrderAndTheirRateDoesNotDrift) {
    const int pad = std::get<0>(GetParam());
    const int rate = std::get<1>(GetParam());
    std::unique_ptr<Source> source;
    if (pad == hid_pad) {
        source = std::make_unique<Reports>(pad, hid_interface);
    } else {
        source = std::make_unique<Records>(pad);
    }
    const auto count = static_cast<std::size_t>(2 * rate);
    on_pad("play", pad, std::to_string(count) + " " + std::to_string(rate));
    const auto packets = source->read_many(count);
    ASSERT_EQ(packets.size(), count);
    expect_numbers(packets, 0);
    EXPECT_TRUE(has_finished(pad));

    // A busy machine makes single packets late, all of them in a stretch only a drift does.
    const auto least_delay = [&](std::size_t first) {
        auto least = std::chrono::nanoseconds::max();
        for (std::size_t i = first; i < first + count / 4; ++i) {
            least = std::min(least, packets[i].sent - packets[0].sent -
                                        std::chrono::nanoseconds(std::chrono::seconds(i)) / rate);
        }
        return least;
    };
    const auto drift = least_delay(count - count / 4) - least_delay(0);
    EXPECT_LT(drift, 5ms);
    EXPECT_GT(drift, -5ms);
}

TEST_F(Pens, LoopGoesOnUntilItIsStopped) {
    Reports reports(strokes_pad);
    on_pad("play", strokes_pad, "loop 1000");
    const auto packets = reports.read_many(50);
    expect_numbers(packets, 0);
    for (std::size_t i = 0; i < packets.size(); ++i) {
        ASSERT_EQ(packets[i].x, (std::array{10U, 20U, 20U, 30U, 40U, 40U})[i % 6]);
    }
    EXPECT_EQ(state_of(strokes_pad, "pen"), "playing");
    on_pad("stop", strokes_pad);
    EXPECT_EQ(state_of(strokes_pad, "pen"), "resting");
    reports.drain();
    const auto sent = std::stoul(state_of(strokes_pad, "pen-sent"));
    on_pad("play", strokes_pad, "3 1000");
    const auto more = reports.read_many(3);
    expect_numbers(more, sent);
    EXPECT_EQ(more.at(0).x, 10U) << "from the beginning";
}

TEST_F(Pens, NewPlayingTakesTheOldOnesPlace) {
    Reports reports(strokes_pad);
    on_pad("play", strokes_pad, "loop 1");
    on_pad("play", strokes_pad, "4 1000");
    EXPECT_TRUE(has_finished(strokes_pad));
    reports.drain();
    EXPECT_LE(std::stoul(state_of(strokes_pad, "pen-sent")), 5U);
}

TEST_F(Pens, WrongRequestsAreRefused) {
    for (const auto* wrong : {"0", "-1", "twice", "1000000001", "loop 0", "loop 100001", "once fast"}) {
        EXPECT_THROW(on_pad("play", hid_pad, wrong), std::runtime_error) << wrong;
    }
    on_pad("unplug", hid_pad);
    for (const auto* wrong : {"play", "stop"}) {
        EXPECT_THROW(on_pad(wrong, hid_pad), std::runtime_error) << wrong;
    }
}

// ---- what the program switches, and what plays by itself ----

TEST_F(Pens, BiodataSwitchingIsFollowed) {
    Records records(vcom_pad);
    EXPECT_FALSE(records.read(50));
    records.switch_biodata(true);
    const auto packets = records.read_many(20);
    expect_numbers(packets, 0);
    EXPECT_EQ(packets.at(7).head, 7U);
    EXPECT_GT(packets.back().x, 0U);
    records.switch_biodata(false);
    records.drain();
    const auto sent = std::stoul(state_of(vcom_pad, "pen-sent"));
    EXPECT_EQ(state_of(vcom_pad, "pen"), "resting");
    records.switch_biodata(true);
    expect_numbers(records.read_many(20), sent);
}

TEST_F(Pens, SwitchingOnKeepsWhatWasAskedFor) {
    Records records(vcom_pad);
    on_pad("play", vcom_pad, "100 200");
    records.switch_biodata(true);
    expect_numbers(records.read_many(100), 0);
    EXPECT_TRUE(has_finished(vcom_pad));
    EXPECT_EQ(state_of(vcom_pad, "pen-sent"), "100");
}

TEST_F(Pens, LoopingPadsAskNobody) {
    expect_numbers(Reports(looping_pad).read_many(30), 0);
    Records records(looping_vcom);
    expect_numbers(records.read_many(30), 0);
    records.switch_biodata(true);
    records.switch_biodata(false);
    EXPECT_EQ(state_of(looping_vcom, "pen"), "playing");
    expect_numbers(records.read_many(30), 30);
}

TEST_F(Pens, SwitchedOffPadsPlayOnRequestAlone) {
    Records records(requested_vcom);
    records.switch_biodata(true);
    EXPECT_FALSE(records.read(100));
    on_pad("play", requested_vcom, "50 1000");
    expect_numbers(records.read_many(50), 0);
}

// ---- nobody reads, the pad goes ----

TEST_F(Pens, WaitingReportsAreBoundedAndTheOthersCounted) {
    on_pad("play", hid_pad, "5000 100000");
    ASSERT_TRUE(has_finished(hid_pad));
    EXPECT_EQ(state_of(hid_pad, "inputs-waiting-1"), std::to_string(most_waiting));
    EXPECT_EQ(state_of(hid_pad, "inputs-lost"), std::to_string(5000 - most_waiting));
    Reports reports(hid_pad, hid_interface);
    expect_numbers(reports.read_many(most_waiting), 0);
    EXPECT_FALSE(reports.read(50));
    on_pad("play", hid_pad, "1");
    EXPECT_EQ(reports.read_many(1).at(0).number, 5000U) << "the gap can be seen";
}

TEST_F(Pens, PadMayGoWhileItPlays) {
    for (std::uint64_t round = 0; round < 20; ++round) {
        Reports reports(looping_pad);
        Records records(looping_vcom);
        expect_numbers(reports.read_many(3), 0);
        expect_numbers(records.read_many(3), 0);
        for (const int pad : {looping_pad, looping_vcom}) {
            on_pad("unplug", pad);
        }
        EXPECT_EQ(state_of(looping_pad, "pen"), "none");
        EXPECT_FALSE(records.read(1000));
        for (const int pad : {looping_pad, looping_vcom}) {
            on_pad("plug", pad);
        }
    }
}

TEST_F(Pens, HidapiReadsIt) {
    ASSERT_EQ(hid_init(), 0);
    auto* device = hid_open_path("1-1:1.1");
    ASSERT_NE(device, nullptr);
    on_pad("play", hid_pad, "200 500");
    for (std::uint64_t number = 0; number < 200; ++number) {
        Bytes report(64);
        ASSERT_EQ(hid_read_timeout(device, report.data(), report.size(), 5000), 64);
        ASSERT_EQ(Packet(report).number, number);
    }
    hid_close(device);
    EXPECT_EQ(hid_exit(), 0);
}

// ---- recordings ----

class Recordings : public Pens {
  protected:
    Recordings() : file_{fs::temp_directory_path() / ("vxpad-recording-" + std::to_string(getpid()))} {}
    ~Recordings() override { fs::remove(file_); }

    void replay(int pad, const std::string& text) const {
        std::ofstream(file_, std::ios::binary) << text;
        on_pad("replay", pad, file_.string());
    }

    const fs::path& file() const { return file_; }

  private:
    fs::path file_;
};

const std::string head = "vxpadcom-recording 1\n";

TEST_F(Recordings, PacketsComeAsTheyWereAtTheirTimes) {
    Reports reports(hid_pad, hid_interface);
    const auto start = Clock::now();
    replay(hid_pad, head + "# made by hand\nmaker ACME & Sons\nproduct\nserial 1 2 3\ninterface 0\npacket-size 64\n\n"
                           "0 0102ff\n20000 03\n20000 04 05\n120000 06\n");
    for (const auto& expected : {Bytes{1, 2, 0xff}, Bytes{3}, Bytes{4, 5}, Bytes{6}}) {
        auto report = expected;
        report.resize(64);
        EXPECT_EQ(reports.read(5000), report);
    }
    EXPECT_GE(Clock::now() - start, 120ms);
    EXPECT_TRUE(has_finished(hid_pad));
    EXPECT_EQ(state_of(hid_pad, "pen-sent"), "4");

    Records records(vcom_pad);
    replay(vcom_pad, head + "1000 aa5501\n");
    EXPECT_EQ(records.read(5000), Bytes({0xaa, 0x55, 0x01}));
}

TEST_F(Recordings, BrokenOnesAreRefused) {
    const std::vector<std::pair<std::string, std::string>> broken{
        {"", "no packet"},
        {"vxpadcom-recording 2\n0 00\n", ":1: a recording begins"},
        {"\n" + head + "0 00\n", ":1: a recording begins"},
        {head, "no packet"},
        {head + "0 00\ncolor red\n", ":3: neither"},
        {head + "0 00\nmaker late\n", ":3: header lines"},
        {head + "interface\n0 00\n", ":2: "},
        {head + "interface 255\n0 00\n", ":2: "},
        {head + "packet-size 0\n0 00\n", ":2: "},
        {head + "packet-size 2\n0 0000\n1 000000\n", ":4: a packet has 1 to 2 bytes"},
        {head + "0\n", ":2: a packet has"},
        {head + "0 0\n", ":2: '0' has an odd"},
        {head + "0 0g\n", ":2: '0g'"},
        {head + "5 00\n4 00\n", ":3: older"},
        {head + "0x5 00\n", ":2: '0x5'"},
        {head + "99999999999999999999999 00\n", ":2: "},
        {head + "604800000001 00\n", ":2: "},
        {head + "0 " + std::string(8194, '0') + "\n", ":2: a packet has 1 to 4096"},
        {head + "0 " + std::string(130, '0') + "\n", "packets of 65 bytes; the pad sends at most 64"},
        {head + std::string(70000, ' ') + "\n0 00\n", ":2: longer than"},
        {head + std::string("\0 00\n", 5), ":2: neither"},
    };
    for (const auto& [text, message] : broken) {
        try {
            replay(hid_pad, text);
            ADD_FAILURE() << text.substr(0, 60);
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string{error.what()}.find(message), std::string::npos) << error.what();
        }
    }
    EXPECT_EQ(state_of(hid_pad, "pen"), "resting");
}

TEST_F(Recordings, WhatIsNoFileOrTooLargeIsRefusedAtOnce) {
    EXPECT_THROW(on_pad("replay", hid_pad, "/nonexistent/file"), std::runtime_error);
    EXPECT_THROW(on_pad("replay", hid_pad, "/dev/zero"), std::runtime_error);
    EXPECT_THROW(on_pad("replay", hid_pad, "/"), std::runtime_error);
    ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
    EXPECT_THROW(on_pad("replay", hid_pad, file().string()), std::runtime_error) << "nobody writes into it";
    fs::remove(file());
    std::ofstream(file()) << head;
    fs::resize_file(file(), std::uintmax_t{1} << 40);
    EXPECT_THROW(on_pad("replay", hid_pad, file().string()), std::runtime_error);
}

TEST_F(Recordings, PlayingEndsAReplayAndTheOtherWayRound) {
    Reports reports(strokes_pad);
    replay(strokes_pad, head + "0 01\n500000000 02\n");
    EXPECT_EQ(state_of(strokes_pad, "pen"), "playing");
    on_pad("play", strokes_pad, "2 1000");
    EXPECT_TRUE(has_finished(strokes_pad));
    on_pad("play", strokes_pad, "loop 1");
    replay(strokes_pad, head + "0 01\n");
    EXPECT_TRUE(has_finished(strokes_pad));
}

} // namespace
