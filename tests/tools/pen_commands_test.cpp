// What pads send by themselves, as people watch, record, replay and plot it.
#include "vxpadctl_test.hpp"

#include <algorithm>
#include <chrono>

using testing::AllOf;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using namespace vxpadctl_test;

namespace {

std::vector<std::string> lines_of(const std::string& text) {
    std::istringstream stream{text};
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The bytes of a recording's packets, in hexadecimal.
std::vector<std::string> packets_of(const std::string& recording) {
    std::vector<std::string> packets;
    for (const std::string& line : lines_of(recording)) {
        if (line[0] >= '0' && line[0] <= '9') {
            packets.push_back(line.substr(line.find(' ') + 1));
        }
    }
    return packets;
}

// A virtual pad's packet tells its number.
unsigned int number_of(const std::string& packet) {
    unsigned int number = 0;
    for (std::size_t byte = 12; byte-- > 8;) {
        number = number << 8 | static_cast<unsigned int>(std::stoul(packet.substr(2 * byte, 2), nullptr, 16));
    }
    return number;
}

void expect_without_gap(const std::vector<std::string>& packets) {
    for (std::size_t i = 1; i < packets.size(); ++i) {
        ASSERT_EQ(number_of(packets[i]), number_of(packets[0]) + i);
    }
}

// Shell functions that wait: the run as a whole has a bound.
const std::string helpers = R"sh(
await() { until vxpad-emulator-control "$1" | grep -q "$2"; do sleep 0.01; done; }
await_packets() { until [ "$(cat "$1" 2>/dev/null | grep -c '^[0-9]')" -ge "$2" ]; do sleep 0.01; done; }
)sh";

struct Transport {
    const char* name;
    const char* playing; // a pad that plays while somebody receives
    const char* silent;
    const char* await; // until b.rec is recorded; the second pad may send packets of ff for that
};

void PrintTo(const Transport& transport, std::ostream* stream) {
    *stream << transport.name;
}

const std::string marker(128, 'f');

const Transport hid{"HID", "--pad=pen=loop,pen-rate=200,serial=A", "--pad=pen=off,serial=B",
                    "until grep -qs '^[0-9]' b.rec; do vxpad-emulator-control input 2 0 $marker; sleep 0.05; done\n"};
const Transport vcom{"VCOM", "--vcom=pen=follow,pen-rate=200,serial=A", "--vcom=pen=off,serial=B",
                     "await 'ssp 2' biodata=1\n"};

class PenCommands : public Vxpadctl, public testing::WithParamInterface<Transport> {
  protected:
    Outcome run_with_pad(const std::string& script) const {
        return run({GetParam().playing}, "cd " + quoted(directory_) + helpers + script);
    }

    std::string file(const std::string& name) const { return contents(directory_ / name); }
};

INSTANTIATE_TEST_SUITE_P(, PenCommands, testing::Values(hid, vcom),
                         [](const auto& tested) { return std::string(tested.param.name); });

const std::string recording =
    "vxpadcom-recording 1\nmaker Acme\n# a comment\n0 0102030405\n1000 0102\n250000 0a0b0c0d0e\n";

} // namespace

TEST_P(PenCommands, WhatAPadSendsIsRecorded) {
    const auto outcome = run_with_pad("vxpadctl record 1 -o a.rec --count 40; echo status $?\n"
                                      "vxpad-emulator-control ssp 1 | grep -o biodata=.");
    EXPECT_THAT(outcome.out, MatchesRegex("40 packets in 0\\..* s recorded in a.rec\nstatus 0\nbiodata=0\n"));
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(file("a.rec"), AllOf(StartsWith("vxpadcom-recording 1\n# recorded "),
                                     HasSubstr("\nmaker Virtual Pads\nproduct Virtual Signature Pad\nserial A\n"
                                               "interface 0\npacket-size 64\n0 ")));
    const auto packets = packets_of(file("a.rec"));
    ASSERT_THAT(packets, AllOf(SizeIs(40), Each(SizeIs(128))));
    expect_without_gap(packets);
}

TEST_P(PenCommands, WhatAPadSendsIsExportedByItsFields) {
    const auto outcome =
        run_with_pad("vxpadctl record 1 -o a.rec --count 40 >/dev/null\n"
                     "vxpadctl export a.rec --layout @" VIRTUAL_PAD_LAYOUT " -o a.csv\n"
                     "vxpadctl export - --format inkml --layout @" VIRTUAL_PAD_LAYOUT " <a.rec | grep -c serialNo=.A.");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out, "1\n");
    const auto packets = packets_of(file("a.rec"));
    const auto rows = lines_of(file("a.csv"));
    ASSERT_EQ(rows.size(), packets.size() + 1);
    EXPECT_EQ(rows[0], "time,x,y,pressure,number");
    for (std::size_t i = 0; i < packets.size(); ++i) {
        const auto word = [&](std::size_t at) {
            return std::stoul(packets[i].substr(2 * at + 2, 2) + packets[i].substr(2 * at, 2), nullptr, 16);
        };
        std::ostringstream numbers;
        numbers << ',' << word(2) << ',' << word(4) << ',' << word(6) << ',' << number_of(packets[i]);
        EXPECT_THAT(rows[i + 1], AllOf(MatchesRegex("[0-9]+\\.[0-9]{6},.*"), EndsWith(numbers.str())));
    }
}

TEST_P(PenCommands, MonitorWritesALineOfJsonForEachPacket) {
    const auto outcome = run_with_pad("vxpadctl monitor 1 --json --count 30 --layout @" VIRTUAL_PAD_LAYOUT "\n"
                                      "vxpadctl monitor 1 --json --count 1");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
    const auto lines = lines_of(outcome.out);
    ASSERT_THAT(lines, SizeIs(31));
    EXPECT_THAT(lines[0], StartsWith("{\"time\": 0.000000, \"x\": "));
    EXPECT_THAT(lines[30], MatchesRegex("\\{\"time\": 0\\.000000, \"bytes\": \"[0-9a-f]{128}\"\\}"));
    const auto number = [&](std::size_t i) { return std::stoul(lines[i].substr(lines[i].rfind(' '))); };
    for (std::size_t i = 0; i < 30; ++i) {
        EXPECT_THAT(lines[i], MatchesRegex("\\{\"time\": [0-9]+\\.[0-9]{6}, \"x\": [0-9]+, \"y\": [0-9]+, "
                                           "\"pressure\": [0-9]+, \"number\": [0-9]+\\}"));
        EXPECT_EQ(number(i), number(0) + i);
    }
}

TEST_P(PenCommands, JsonEndsWithItsReader) {
    const auto outcome = run_with_pad("{ vxpadctl monitor 1 --json; echo status $? >&2; } | head -n 1 | cut -c 1-8\n"
                                      "vxpadctl monitor 1 --json >/dev/full; echo status $?\n"
                                      "vxpad-emulator-control ssp 1 | grep -o biodata=.");
    EXPECT_EQ(outcome.out, "{\"time\":\nstatus 1\nbiodata=0\n");
    EXPECT_EQ(outcome.err, "status 0\nvxpadctl: cannot write the result: No space left on device\n");
}

TEST_P(PenCommands, ARecordingThatAnotherPadReplaysIsRecordedAlike) {
    const auto outcome = run({GetParam().playing, GetParam().silent},
                             "cd " + quoted(directory_) + helpers + "marker=" + marker +
                                 "\n"
                                 "vxpad-emulator-control unplug 2\n"
                                 "vxpadctl record 1 -o a.rec --count 40\n"
                                 "vxpad-emulator-control unplug 1\n"
                                 "vxpad-emulator-control plug 2\n"
                                 "vxpadctl record 1 -o b.rec & recorder=$!\n" +
                                 GetParam().await +
                                 "vxpadctl replay a.rec --pad 2\n"
                                 "until [ \"$(grep '^[0-9]' b.rec | grep -vc $marker)\" -ge 40 ]; do sleep 0.01; done\n"
                                 "kill -INT $recorder; wait $recorder; echo status $?");
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("virtual pad 2 plays 40 packets in 0."), EndsWith("status 130\n")));
    EXPECT_THAT(file("a.rec"), HasSubstr("\nserial A\n"));
    EXPECT_THAT(file("b.rec"), HasSubstr("\nserial B\n"));
    auto replayed = packets_of(file("b.rec"));
    std::erase(replayed, marker);
    ASSERT_THAT(replayed, SizeIs(40));
    EXPECT_EQ(replayed, packets_of(file("a.rec")));
}

TEST_P(PenCommands, InterruptedRecordingsAreComplete) {
    const auto outcome = run_with_pad(R"sh(
for signal in INT TERM; do
    vxpadctl record 1 -o $signal.rec & recorder=$!
    await_packets $signal.rec 20
    kill -$signal $recorder
    wait $recorder
    echo status $?
    vxpad-emulator-control ssp 1 | grep -o biodata=.
done)sh");
    EXPECT_EQ(outcome.err, "vxpadctl: interrupted\nvxpadctl: interrupted\n");
    std::string expected;
    for (const char* name : {"INT.rec", "TERM.rec"}) {
        const auto packets = packets_of(file(name));
        EXPECT_GE(packets.size(), 20U);
        EXPECT_THAT(packets, Each(SizeIs(128)));
        expect_without_gap(packets);
        expected +=
            std::to_string(packets.size()) + " packets in .* s recorded in " + name + "\nstatus 130\nbiodata=0\n";
    }
    EXPECT_THAT(outcome.out, MatchesRegex(expected));
}

TEST_P(PenCommands, AnUnpluggedPadEndsARecordingThatIsKept) {
    const auto outcome = run_with_pad("vxpadctl record 1 -o a.rec & recorder=$!\n"
                                      "await_packets a.rec 20\n"
                                      "vxpad-emulator-control unplug 1\n"
                                      "wait $recorder; echo status $?\n"
                                      "vxpadctl replay a.rec --fast | wc -l");
    const auto packets = packets_of(file("a.rec"));
    EXPECT_GE(packets.size(), 20U);
    expect_without_gap(packets);
    const std::string count = std::to_string(packets.size());
    EXPECT_THAT(outcome.out, MatchesRegex(count + " packets in 0\\..* s recorded in a.rec\nstatus 1\n" + count + "\n"));
    EXPECT_THAT(outcome.err, EndsWith("vxpadctl: pad 1 was pulled out, after " + count + " packets\n"));
}

TEST_P(PenCommands, MonitorTellsOfWhatComes) {
    const auto outcome = run_with_pad("vxpadctl monitor 1 --layout @" VIRTUAL_PAD_LAYOUT " --count 250");
    const auto lines = lines_of(outcome.out);
    ASSERT_GE(lines.size(), 2U) << "a line each second, and one at the end";
    EXPECT_THAT(lines, Each(MatchesRegex("[0-9]+\\.[0-9] s  [0-9.]+ reports/s  [0-9]+ packets  pressure +[0-9]+  "
                                         "[0-9a-f]{2}( [0-9a-f]{2}){63}")));
    EXPECT_THAT(lines.back(), HasSubstr("  250 packets  "));
    EXPECT_THAT(outcome.out, Not(HasSubstr("\033")));
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, MonitorDrawsOnATerminal) {
    const auto outcome =
        run({"--pad=pen=loop,pen-rate=200"},
            "TERM=xterm script -qefc 'vxpadctl monitor 1 --count 400 --layout pressure=6:u16le' /dev/null </dev/null");
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("\033[6A"), HasSubstr("     400 packets"), HasSubstr("pressure "),
                                   HasSubstr(" reports/s"), HasSubstr("[#")));
    EXPECT_EQ(outcome.status, 0);
}

// A line that scrolls out at the top would be drawn again and again.
TEST_F(Vxpadctl, MonitorFitsATerminalOfFiveRows) {
    const auto outcome =
        run({"--pad=pen=loop,pen-rate=200"},
            "TERM=xterm script -qefc 'stty rows 5 columns 30; vxpadctl monitor 1 --count 400' /dev/null "
            "</dev/null");
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr("\033[4A"), Not(HasSubstr("\033[6A")), HasSubstr("…"), HasSubstr(" reports/…")));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, MonitorOfAnUnpluggedPadFails) {
    const auto outcome = run({"--vcom=type=16"}, helpers + "vxpadctl monitor 1 & monitor=$!\n"
                                                           "await 'ssp 1' biodata=1\n"
                                                           "vxpad-emulator-control unplug 1\n"
                                                           "wait $monitor");
    EXPECT_THAT(outcome.err, HasSubstr("vxpadctl: pad 1 was pulled out, after "));
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Vxpadctl, ShortPacketsAreRecordedAsShort) {
    const auto outcome = run({"--pad=type=1,pen=loop,pen-interface=1"},
                             "vxpadctl record 1 --interface 1 --count 3 -o - --trace 2>/dev/null");
    EXPECT_THAT(outcome.out, AllOf(StartsWith("vxpadcom-recording 1\n"), HasSubstr("\ninterface 1\npacket-size 20\n")));
    EXPECT_THAT(packets_of(outcome.out), AllOf(SizeIs(3), Each(SizeIs(40))));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, SaysThatNothingCame) {
    for (const char* command : {"monitor 1", "record 1 -o /dev/null", "record 1 --interface 1 -o /dev/null"}) {
        const auto outcome = run({"--pad=pen=off"}, "vxpadctl " + std::string(command) + " --seconds 0.1");
        EXPECT_EQ(outcome.err, "vxpadctl: no packet came\n") << command;
        EXPECT_EQ(outcome.status, 1) << command;
    }
}

TEST_F(Vxpadctl, ReadersThatHaveEnoughEndARecording) {
    const auto outcome =
        run({"--pad=pen=loop,pen-rate=200"},
            "status=" + quoted(directory_ / "status") +
                "\n{ vxpadctl record 1 -o -; echo $? >$status; } | head -n 2 | head -c 20; cat $status\n"
                "vxpad-emulator-control ssp 1 | grep -o biodata=.");
    EXPECT_EQ(outcome.out, "vxpadcom-recording 10\nbiodata=0\n");
    EXPECT_EQ(outcome.err, "");
}

TEST_F(Vxpadctl, RecordingsThatCannotBeWrittenLeaveThePadInOrder) {
    const auto outcome =
        run({"--vcom=type=16"}, "vxpadctl record 1 -o /dev/full; echo status $?\n"
                                "vxpadctl record 1 -o " +
                                    quoted(directory_ / "missing" / "a.rec") +
                                    "; echo status $?\nvxpad-emulator-control ssp 1 | grep -o biodata=.");
    EXPECT_EQ(outcome.out, "status 1\nstatus 1\nbiodata=0\n");
    EXPECT_THAT(outcome.err, AllOf(StartsWith("vxpadctl: cannot write /dev/full: No space left on device\n"),
                                   EndsWith("missing/a.rec: No such file or directory\n")));
}

TEST_F(Vxpadctl, PenCommandsRefusePadsAndInterfacesThatAreNotThere) {
    for (const char* command : {"monitor", "record -o /dev/null"}) {
        const auto outcome =
            run({"--pad=type=16"}, "vxpadctl " + std::string(command) + " 2; vxpadctl " + command + " 1 --interface 2");
        EXPECT_EQ(outcome.err, "vxpadctl: there is no pad 2, the last one is 1\n"
                               "vxpadctl: there is no interface 2: pad 1 has 2, counted from 0\n");
        EXPECT_EQ(outcome.status, 1);
    }
}

TEST_F(Vxpadctl, ReplayShowsALineForEachPacketAtItsTime) {
    const std::string file = quoted(write("a.rec", recording));
    const std::string expected = "0.000000  pressure     5  01 02 03 04 05\n0.001000  pressure     ?  01 02\n"
                                 "0.250000  pressure    14  0a 0b 0c 0d 0e\n";
    const auto start = std::chrono::steady_clock::now();
    const auto outcome = run_alone("vxpadctl replay " + file + " --layout pressure=4:u8");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250));
    EXPECT_EQ(outcome.out, expected);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, ReplayTakesAnotherSpeed) {
    const std::string file = quoted(write("a.rec", "vxpadcom-recording 1\n0 01\n86400000000 02\n"));
    EXPECT_EQ(run_alone("vxpadctl replay --fast " + file).out, "0.000000  01\n86400.000000  02\n");
    const std::string short_file = quoted(write("b.rec", "vxpadcom-recording 1\n0 01\n100000000 02\n"));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(run_alone("vxpadctl replay --speed 1000 " + short_file).status, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
}

TEST_F(Vxpadctl, ReplayCanBeInterrupted) {
    const auto outcome = run_alone("cd " + quoted(directory_) + "\nvxpadctl replay " +
                                   quoted(write("a.rec", "vxpadcom-recording 1\n0 01\n86400000000 02\n")) +
                                   " >shown & player=$!\n"
                                   "until [ -s shown ]; do sleep 0.01; done\n"
                                   "kill -INT $player; wait $player");
    EXPECT_EQ(outcome.err, "vxpadctl: interrupted\n");
    EXPECT_EQ(outcome.status, 130);
}

TEST_F(Vxpadctl, ReplayEndsWithItsReader) {
    std::string text = "vxpadcom-recording 1\n";
    for (int i = 0; i < 20000; ++i) {
        text += "0 " + std::string(64, '7') + "\n";
    }
    const auto outcome = run_alone("{ vxpadctl replay --fast " + quoted(write("a.rec", text)) +
                                   "; echo status $? >&2; } | head -n 1 | head -c 8");
    EXPECT_EQ(outcome.out, "0.000000");
    EXPECT_EQ(outcome.err, "status 0\n");
}

TEST_F(Vxpadctl, ReplayTellsWhichLineIsWrong) {
    const auto outcome =
        run_alone("vxpadctl replay " + quoted(write("a.rec", "vxpadcom-recording 1\n0 01\n\n1 0\033\n")));
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("a.rec:4: "), Not(HasSubstr("\033"))));
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Vxpadctl, VirtualPadsReplayOnlyWhereTheyAre) {
    const std::string command = "vxpadctl replay " + quoted(write("a.rec", recording)) + " --pad 2";
    EXPECT_THAT(run_alone(command).err, HasSubstr("--pad is for virtual pads"));
    const auto outcome = run({}, command);
    EXPECT_THAT(outcome.err, HasSubstr("'2' is not a number from 1 to 1"));
    EXPECT_EQ(outcome.status, 1);
    const std::string spaced = quoted(write("a b.rec", recording));
    EXPECT_THAT(run({}, "vxpadctl replay " + spaced + " --pad 1").err, HasSubstr("with blanks in its path"));
}

TEST_F(Vxpadctl, PlotsWhatAPadHasWritten) {
    std::vector<long> x;
    std::vector<long> y;
    for (const std::string& line : lines_of(contents(SIGNATURE))) {
        std::istringstream words{line};
        long at_x = 0;
        long at_y = 0;
        if (line[0] != '#' && words >> at_x >> at_y) {
            x.push_back(at_x);
            y.push_back(at_y);
        }
    }
    const auto outcome =
        run({"--vcom=pen=off"}, "cd " + quoted(directory_) + helpers +
                                    "vxpadctl record 1 -o a.rec --count 470 & recorder=$!\n"
                                    "await 'ssp 1' biodata=1\n"
                                    "vxpad-emulator-control play 1 470 500\n"
                                    "wait $recorder\n"
                                    "vxpadctl plot a.rec --layout-file " VIRTUAL_PAD_LAYOUT " -o a.svg");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
    const auto [left, right] = std::ranges::minmax(x);
    const auto [top, bottom] = std::ranges::minmax(y);
    const long edge = (right - left) * 3;
    const auto hundredths = [](long number) {
        return std::to_string(number / 100) + "." + std::to_string(number % 100 + 100).substr(1);
    };
    EXPECT_THAT(contents(directory_ / "a.svg"),
                AllOf(HasSubstr("viewBox=\"" + hundredths(100 * left - edge) + " " + hundredths(100 * top - edge) +
                                " " + hundredths(100 * (right - left) + 2 * edge) + " " +
                                hundredths(100 * (bottom - top) + 2 * edge) + "\""),
                      HasSubstr("<title>a.rec</title>"), HasSubstr("<path d=\"M300 520L320 502")));
}

TEST_F(Vxpadctl, PlotTellsWhatItLeavesOut) {
    const auto outcome =
        run_alone("vxpadctl plot " + quoted(write("<&>.rec", recording)) + " --layout x=2:u8,y=4:u8 -o -");
    EXPECT_EQ(outcome.err, "vxpadctl: 1 packet left out, too short for the layout\n");
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("<path d=\"M3 5L12 14\""), HasSubstr("<title>&lt;&amp;&gt;.rec</title>")));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, PlotWithoutAnythingToDrawFails) {
    const std::string plot = "vxpadctl plot " + quoted(write("a.rec", recording)) + " -o a.svg --layout ";
    auto outcome = run_alone(plot + "x=60:u8,y=1:u8");
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("3 packets left out"), HasSubstr("the field x lies beyond the packets"),
                                   Not(HasSubstr("pressure above 0"))));
    EXPECT_EQ(outcome.status, 1);
    outcome = run_alone("vxpadctl plot " + quoted(write("b.rec", "vxpadcom-recording 1\n0 010200\n")) +
                        " -o b.svg --layout x=0:u8,y=1:u8,pressure=2:u8");
    EXPECT_EQ(outcome.err, "vxpadctl: there is no stroke to draw: no packet has a pressure above 0\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(run_alone(plot + "x=1:u8").status, 2);
    outcome = run_alone(plot + "@" + quoted(write("bad.layout", "x=1:u8\ny=\033:u8\n")));
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("bad.layout:2: "), Not(HasSubstr("\033"))));
    EXPECT_EQ(outcome.status, 1);
}
