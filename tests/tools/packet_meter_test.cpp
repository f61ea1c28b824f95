#include "packet_meter.hpp"

#include <gmock/gmock.h>

using namespace vxpadctl;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

const PacketMeter::Clock::time_point start{1h};

void take_many(PacketMeter& meter, int packets, std::chrono::milliseconds first, std::chrono::milliseconds pause) {
    for (int i = 0; i < packets; ++i) {
        meter.take({start + first + i * pause, {0x50, static_cast<std::uint8_t>(i), 0x64, 0x00}});
    }
}

} // namespace

TEST(PacketMeter, RateIsThatOfTheLastSecond) {
    PacketMeter meter{{}, start};
    take_many(meter, 300, 0ms, 10ms);
    EXPECT_DOUBLE_EQ(meter.rate(start + 2990ms), 100);
    take_many(meter, 250, 3000ms, 2ms);
    EXPECT_DOUBLE_EQ(meter.rate(start + 3499ms), 300);
    EXPECT_DOUBLE_EQ(meter.rate(start + 3999ms), 250);
    EXPECT_DOUBLE_EQ(meter.rate(start + 5s), 0);
    EXPECT_EQ(meter.count(), 550U);
}

TEST(PacketMeter, RateOfTheFirstMomentIsNoLess) {
    PacketMeter meter{{}, start};
    EXPECT_DOUBLE_EQ(meter.rate(start), 0);
    take_many(meter, 50, 1ms, 2ms);
    EXPECT_DOUBLE_EQ(meter.rate(start + 100ms), 500);
}

TEST(PacketMeter, ALineTellsEverything) {
    PacketMeter meter{parse_layout("pressure=2:u16le"), start};
    EXPECT_EQ(meter.line(start + 500ms), "0.5 s  0.0 reports/s  0 packets");
    take_many(meter, 1, 600ms, 1ms);
    EXPECT_EQ(meter.line(start + 1s), "1.0 s  1.0 reports/s  1 packet  pressure   100  50 00 64 00");
    take_many(meter, 1, 1700ms, 1ms);
    EXPECT_EQ(PacketMeter({}, start).line(start + 2s), "2.0 s  0.0 reports/s  0 packets");
}

TEST(PacketMeter, MeterShowsPressureAgainstTheHighestSoFar) {
    PacketMeter meter{parse_layout("pressure=0:u8"), start};
    meter.take({start, {200}});
    EXPECT_THAT(meter.lines(start + 1s)[1],
                AllOf(HasSubstr("pressure"), HasSubstr(" 200 "), EndsWith("[" + std::string(40, '#') + "]")));
    meter.take({start, {50}});
    EXPECT_THAT(meter.lines(start + 1s)[1],
                AllOf(HasSubstr(" 50 "), EndsWith("[" + std::string(10, '#') + std::string(30, '-') + "]")));
    meter.take({start, {}});
    EXPECT_THAT(meter.lines(start + 1s)[1], EndsWith("[" + std::string(40, '-') + "]"));
}

TEST(PacketMeter, WithoutPressureTheMeterShowsTheRate) {
    PacketMeter meter{parse_layout("x=0:u8"), start};
    take_many(meter, 100, 0ms, 10ms);
    EXPECT_THAT(meter.lines(start + 990ms)[1],
                AllOf(HasSubstr("rate"), Not(HasSubstr("pressure")), HasSubstr("101.0 [####")));
}

TEST(PacketMeter, ShowsTheLastPacketsNewestFirst) {
    PacketMeter meter{{}, start};
    const std::size_t lines = meter.lines(start).size();
    take_many(meter, 10, 0ms, 10ms);
    const auto shown = meter.lines(start + 100ms);
    EXPECT_EQ(shown.size(), lines);
    EXPECT_EQ(shown[2], "50 09 64 00");
    EXPECT_EQ(shown[5], "50 06 64 00");
}

TEST(PacketMeter, TellsWhereAPacketHasNoPressure) {
    const Layout layout = parse_layout("pressure=2:u16le");
    EXPECT_EQ(packet_text(Bytes{1, 2, 3}, &layout[0]), "pressure     ?  01 02 03");
    EXPECT_EQ(packet_text(Bytes{1, 2, 3}, nullptr), "01 02 03");
}
