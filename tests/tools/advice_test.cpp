#include "advice.hpp"

#include <gmock/gmock.h>

using namespace vxpadctl;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::vector<SearchedId> searched{{{0x1000, 0x10}}, {{0x1000, 0x20}},        {{0x2000, 0x10}},
                                       {{0x2000, 0x20}}, {{0x3000, 0x5}, "Acme"}, {{0x3000, 0x5}, "Other"}};

BusDevice device(Access access) {
    return {{0x1000, 0x10}, "/dev/bus/usb/001/007", access};
}

} // namespace

TEST(Advice, WithoutAnyPadTellsTheIdsAndTheWayToVirtualOnes) {
    EXPECT_THAT(explain_missing_pads(0, {}, searched),
                AllOf(HasSubstr("vendor 1000 2000, product 0010 0020\n"), HasSubstr("vendor 3000, product 0005\n"),
                      HasSubstr("vxpad-emulator run -- vxpadctl list")));
}

TEST(Advice, DeniedAccessNamesTheDeviceAndTheRulesFile) {
    const std::vector<BusDevice> on_bus{device(Access::denied)};
    EXPECT_THAT(explain_missing_pads(0, on_bus, searched),
                AllOf(HasSubstr("no permission to open /dev/bus/usb/001/007"), HasSubstr("(1000:0010)"),
                      HasSubstr("70-vxpadcom.rules"), HasSubstr("udevadm control --reload"),
                      Not(HasSubstr("virtual pads"))));
}

TEST(Advice, DeniedAccessIsToldBesideUsablePads) {
    const std::vector<BusDevice> on_bus{device(Access::open), device(Access::denied)};
    EXPECT_THAT(explain_missing_pads(1, on_bus, searched), HasSubstr("no permission"));
}

TEST(Advice, SilentPadsLeadToTheTrace) {
    const std::vector<BusDevice> on_bus{device(Access::open), device(Access::open)};
    EXPECT_THAT(explain_missing_pads(0, on_bus, searched),
                AllOf(HasSubstr("2 of the pads plugged in cannot be used"), HasSubstr("--trace")));
}

TEST(Advice, NothingIsSaidWhereNothingIsMissing) {
    const std::vector<BusDevice> on_bus{device(Access::open)};
    EXPECT_EQ(explain_missing_pads(1, on_bus, searched), "");
}
