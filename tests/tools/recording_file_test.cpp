#include "recording_file.hpp"
#include "scratch.hpp"

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <numeric>
#include <thread>
#include <unistd.h>

using namespace vxpadctl;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

Pad pad_100() {
    Pad pad{};
    pad.maker = "Acme, Inc.";
    pad.product = "Pad 100";
    pad.serial = "SN0042";
    return pad;
}

Packet packet_at(std::chrono::nanoseconds time, Bytes bytes) {
    return {std::chrono::steady_clock::time_point(1h + time), std::move(bytes)};
}

template <typename Work> std::string failure(Work work) {
    try {
        work();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "(went well)";
}

class RecordingFile : public vxpadctl_test::Scratch {
  protected:
    std::string text() const { return vxpadctl_test::contents(file_); }

    std::string file_ = directory_ / "pad.rec";
};

TEST_F(RecordingFile, IsWrittenAsDocumented) {
    Recorder recorder{file_, stdout};
    recorder.begin(pad_100(), 1, 20);
    const std::vector<Packet> packets{packet_at(5us, {0x50, 0x01}), packet_at(2003999ns, {0xff})};
    recorder.put(packets);
    EXPECT_THAT(text(), MatchesRegex("vxpadcom-recording 1\n"
                                     "# recorded 20..-..-..T..:..:..Z by vxpadctl\n"
                                     "maker Acme, Inc\\.\nproduct Pad 100\nserial SN0042\ninterface 1\npacket-size 20\n"
                                     "0 5001\n1998 ff\n"));
    EXPECT_EQ(recorder.count(), 2U);
    EXPECT_EQ(recorder.duration(), 1998us);
}

TEST_F(RecordingFile, IsReadAsItWasWritten) {
    Recorder recorder{file_, stdout};
    recorder.begin(pad_100(), 0, 64);
    std::vector<Packet> packets;
    for (unsigned int i = 0; i < 300; ++i) {
        Bytes bytes(1 + i % 64);
        std::iota(bytes.begin(), bytes.end(), static_cast<std::uint8_t>(i));
        packets.push_back(packet_at(i * 700us, bytes));
    }
    recorder.put(std::span(packets).first(100));
    recorder.put(std::span(packets).subspan(100));
    const Recording recording = load_recording(file_);
    ASSERT_EQ(recording.packets.size(), packets.size());
    for (std::size_t i = 0; i < packets.size(); ++i) {
        EXPECT_EQ(recording.packets[i].at, i * 700us);
        EXPECT_EQ(recording.packets[i].bytes, packets[i].bytes);
    }
}

// A crash at any time leaves whole lines.
TEST_F(RecordingFile, IsCompleteAfterEveryPacket) {
    Recorder recorder{file_, stdout};
    recorder.begin(pad_100(), 0, 64);
    for (unsigned int i = 0; i < 200; ++i) {
        const std::vector<Packet> packets{packet_at(i * 1us, Bytes(64, static_cast<std::uint8_t>(i)))};
        recorder.put(packets);
        ASSERT_EQ(load_recording(file_).packets.size(), i + 1);
        ASSERT_EQ(text().back(), '\n');
    }
}

TEST_F(RecordingFile, TextsOfAPadCannotForgeLines) {
    Pad pad = pad_100();
    pad.maker = "A\npacket-size 1\n0 00";
    pad.product = "\033[31m\\";
    pad.serial = "";
    Recorder recorder{file_, stdout};
    recorder.begin(pad, 0, 64);
    const std::vector<Packet> packets{packet_at(0us, Bytes(64, 7))};
    recorder.put(packets);
    EXPECT_THAT(text(), AllOf(HasSubstr("\nmaker A\\x0apacket-size 1\\x0a0 00\nproduct \\x1b[31m\\\\\ninterface 0\n"),
                              Not(HasSubstr("serial"))));
    ASSERT_EQ(load_recording(file_).packets.size(), 1U);
    EXPECT_EQ(load_recording(file_).packets[0].bytes, packets[0].bytes);
}

// The format's own limits would make these tests take as long as the machine is slow.
TEST_F(RecordingFile, LimitsAreThoseOfTheFormat) {
    EXPECT_EQ(RecordingLimits{}.most_packets, 1'000'000U);
    EXPECT_EQ(RecordingLimits{}.longest_file, 64U * 1024 * 1024);
}

TEST_F(RecordingFile, EndsWhereTheFormatEnds) {
    Recorder recorder{file_, stdout, {.most_packets = 1000}};
    recorder.begin(pad_100(), 0, 64);
    const std::vector<Packet> small(1001, packet_at(0us, {1}));
    recorder.put(std::span(small).first(999));
    EXPECT_FALSE(recorder.is_full());
    recorder.put(small);
    EXPECT_TRUE(recorder.is_full());
    EXPECT_EQ(recorder.count(), 1000U);
    EXPECT_EQ(load_recording(file_).packets.size(), 1000U);
}

TEST_F(RecordingFile, EndsBeforeItIsTooLarge) {
    constexpr std::size_t longest = 64U << 10;
    Recorder recorder{file_, stdout, {.longest_file = longest}};
    recorder.begin(pad_100(), 0, 64);
    const std::vector<Packet> large(600, packet_at(0us, Bytes(64, 1)));
    recorder.put(large);
    EXPECT_TRUE(recorder.is_full());
    EXPECT_LE(std::filesystem::file_size(file_), longest);
    EXPECT_GT(std::filesystem::file_size(file_), longest - 1000);
    EXPECT_EQ(load_recording(file_).packets.size(), recorder.count());
}

TEST_F(RecordingFile, ThatCannotBeWrittenIsAFailure) {
    EXPECT_THAT(failure([&] { Recorder(directory_ / "missing" / "pad.rec", stdout); }),
                AllOf(HasSubstr("cannot write "), HasSubstr("No such file")));
    EXPECT_EQ(failure([&] { Recorder("/dev/full", stdout).begin(pad_100(), 0, 64); }),
              "cannot write /dev/full: No space left on device");
}

TEST_F(RecordingFile, ThatNobodyReadsEnds) {
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    const OwnedFile results{::fdopen(ends[1], "w")};
    EXPECT_THROW(Recorder("-", results.get()).begin(pad_100(), 0, 64), ReaderGone);
}

TEST_F(RecordingFile, ThatIsMalformedIsRefusedWithTheLine) {
    const std::string begin = "vxpadcom-recording 1\n";
    const auto refusal = [&](const std::string& text) { return failure([&] { load_recording(write("bad", text)); }); };
    EXPECT_THAT(refusal("0 00\n"), HasSubstr("bad:1: a recording begins with"));
    EXPECT_THAT(refusal("vxpadcom-recording 2\n0 00\n"), HasSubstr("bad:1: "));
    EXPECT_THAT(refusal(begin + "0 00\n5 0\n"), HasSubstr("bad:3: "));
    EXPECT_THAT(refusal(begin + "5 00\n4 00\n"), HasSubstr("bad:3: older than"));
    EXPECT_THAT(refusal(begin + "packet-size 2\n0 010203\n"), HasSubstr("bad:3: "));
    EXPECT_THAT(refusal(begin + "99999999999999999999 00\n"), HasSubstr("bad:2: "));
    EXPECT_THAT(refusal(begin), HasSubstr("no packet at all"));
    EXPECT_THAT(refusal(begin + std::string(70000, '0') + "\n"), HasSubstr("bad:2: longer than"));
}

TEST_F(RecordingFile, HandsOutPacketByPacketWithThePad) {
    const std::string file =
        write("a.rec", "vxpadcom-recording 1\nmaker  A  B\\x1b\nserial\ninterface 7\n0 01\n5 0203\n4 ff\n");
    std::vector<Bytes> taken;
    const auto take = [&](const RecordedPad& pad, const RecordedPacket& packet) {
        EXPECT_EQ(pad.maker, "A  B\\x1b");
        EXPECT_EQ(pad.product, "");
        EXPECT_EQ(pad.serial, "");
        EXPECT_EQ(pad.interface, 7U);
        taken.push_back(packet.bytes);
    };
    EXPECT_THAT(failure([&] { read_packets(file, take); }), HasSubstr("a.rec:7: older than"));
    EXPECT_EQ(taken, (std::vector<Bytes>{{1}, {2, 3}})) << "what stands before the wrong line";
}

// However the pieces of it come.
TEST_F(RecordingFile, IsReadFromAPipe) {
    const std::string text = "vxpadcom-recording 1\n0 " + std::string(8000, '1') + "\n7 22";
    for (const std::size_t piece : {std::size_t{1}, std::size_t{4096}}) {
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        std::thread writer{[&] {
            for (std::size_t at = 0; at < text.size(); at += piece) {
                const std::string part = text.substr(at, piece);
                EXPECT_EQ(::write(ends[1], part.data(), part.size()), static_cast<ssize_t>(part.size()));
            }
            ::close(ends[1]);
        }};
        std::vector<std::size_t> sizes;
        emulator::read_recording(ends[0], "a pipe", [&](const RecordedPad&, const RecordedPacket& packet) {
            sizes.push_back(packet.bytes.size());
        });
        writer.join();
        ::close(ends[0]);
        EXPECT_EQ(sizes, (std::vector<std::size_t>{4000, 1}));
    }
}

TEST_F(RecordingFile, FromADescriptorIsNoLongerThanAFile) {
    const int zeros = ::open("/dev/zero", O_RDONLY);
    EXPECT_THROW(emulator::read_recording(zeros, "zeros", [](const auto&, const auto&) {}), std::invalid_argument);
    ::close(zeros);
    EXPECT_THROW(emulator::read_recording(-1, "nothing", [](const auto&, const auto&) {}), std::invalid_argument);
}

TEST_F(RecordingFile, CannotReachTheTerminalRaw) {
    const std::string file = write("bad", "vxpadcom-recording 1\n0 \033[\a\n");
    EXPECT_THAT(failure([&] { load_recording(file); }),
                AllOf(HasSubstr("bad:2: "), Not(HasSubstr("\033")), Not(HasSubstr("\a"))));
}

} // namespace
