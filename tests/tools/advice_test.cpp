#include "advice.hpp"

#include "findings.hpp"

#include "machine_tree.hpp"

#include <gmock/gmock.h>

using namespace vxpadctl;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
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

TEST(Advice, LikelyPadsAreNamedWithTheLineToAdd) {
    const std::vector<LikelyPad> likely{{{0x1234, 0x5678}, id_lines::Transport::hid, "Acme Desk Pad"},
                                        {{0x1234, 0x9}, id_lines::Transport::vcom, ""}};
    EXPECT_THAT(
        explain_missing_pads(0, {}, searched, likely),
        AllOf(HasSubstr("1234:5678 (Acme Desk Pad) is plugged in and may be a pad"),
              HasSubstr("    sudo vxpadctl ids add 1234 5678 --transport hid --type 16 --name 'Acme Desk Pad'\n"),
              HasSubstr("    1234 5678 hid 16 Acme Desk Pad\n"), HasSubstr("    1234 0009 vcom 16 Pad\n"),
              HasSubstr("vxpad-emulator run")));
    const std::vector<BusDevice> on_bus{device(Access::open)};
    EXPECT_EQ(explain_missing_pads(1, on_bus, searched, likely), "");
}

TEST(Advice, DeniedAccessToAnAddedPadLeadsToARuleOfItsOwn) {
    const std::vector<SearchedId> added{{.id = {0x1234, 0x5678}, .from_file = true}, {{0x1000, 0x10}}};
    std::vector<BusDevice> on_bus{{{0x1234, 0x5678}, "/dev/bus/usb/001/008", Access::denied}};
    on_bus[0].from_file = true;
    EXPECT_THAT(explain_missing_pads(0, on_bus, added),
                AllOf(HasSubstr("(1234:5678)"), HasSubstr("/etc/udev/rules.d/70-vxpadcom-1234-5678.rules"),
                      HasSubstr(R"(SUBSYSTEM=="usb", ENV{DEVTYPE}=="usb_device", )"
                                R"(ATTR{idVendor}=="1234", ATTR{idProduct}=="5678", MODE="0660", TAG+="uaccess")"),
                      HasSubstr("udevadm control --reload"), Not(HasSubstr("70-vxpadcom.rules"))));
    std::vector<BusDevice> both = on_bus;
    both.push_back(device(Access::denied));
    EXPECT_THAT(explain_missing_pads(0, both, added),
                AllOf(HasSubstr("70-vxpadcom.rules"), HasSubstr("70-vxpadcom-1234-5678.rules")));
    const std::string of_one = explain_denied_access(on_bus, {});
    on_bus.push_back(on_bus[0]);
    EXPECT_EQ(explain_denied_access(on_bus, {}), of_one) << "a rule for each pair, not for each pad";
}

TEST(Advice, NothingIsSaidWhereNothingIsMissing) {
    const std::vector<BusDevice> on_bus{device(Access::open)};
    EXPECT_EQ(explain_missing_pads(1, on_bus, searched), "");
}

TEST(Advice, ReasonsFollowTheNumberOfMissingPads) {
    const std::vector<BusDevice> on_bus{device(Access::open)};
    const std::vector<std::string> reasons{"That one hums.", "That one is wet."};
    EXPECT_EQ(explain_missing_pads(0, on_bus, searched, {}, reasons),
              "1 of the pads plugged in cannot be used:\nThat one hums.\nThat one is wet.\n"
              "To examine each pad: vxpadctl doctor\nTo see the library's own account: vxpadctl list --trace");
    EXPECT_THAT(explain_missing_pads(1, on_bus, searched, {}, reasons),
                testing::StartsWith("That one hums.\nThat one is"));
    const std::vector<BusDevice> closed{device(Access::denied)};
    EXPECT_THAT(explain_missing_pads(0, closed, searched, {}, reasons),
                AllOf(testing::StartsWith("That one hums.\n"), HasSubstr("no permission")));
}

namespace {

class Reasons : public vxpadctl_test::MachineTree {
  protected:
    Reasons() { pad_.port = "none"; }

    BusDevice other(const std::string& address, const std::string& serial) const {
        BusDevice made = pad_;
        made.node = put("dev/bus/usb/001/" + address, "");
        made.serial = serial;
        return made;
    }

    static Pad found(const BusDevice& device) {
        Pad pad{};
        pad.transport = device.hid_interfaces.empty() ? "VCOM" : "HID";
        pad.serial = device.serial;
        pad.id = device.id;
        return pad;
    }
};

TEST_F(Reasons, ThereAreNoneWhereNothingIsMissing) {
    EXPECT_THAT(reasons_for_missing({{pad_}}, {{pad_}}, {{found(pad_)}}), IsEmpty());
}

TEST_F(Reasons, APadThatHasGoneWasPulledOut) {
    EXPECT_THAT(reasons_for_missing({{pad_}}, {}, {}),
                ElementsAre(HasSubstr(pad_.node + " (f1a0:1001) was pulled out")));
}

TEST_F(Reasons, TheOneThatIsMissingIsSilent) {
    const std::vector<BusDevice> now{pad_, other("008", "B2")};
    EXPECT_THAT(reasons_for_missing(now, now, {{found(pad_)}}),
                ElementsAre(AllOf(HasSubstr("001/008"), HasSubstr("does not answer. Plug"))));
}

TEST_F(Reasons, OfSeveralOneMayHaveEndedTheSearch) {
    const std::vector<BusDevice> now{pad_, other("008", "B2"), other("009", "C3")};
    EXPECT_THAT(reasons_for_missing(now, now, {{found(now[1])}}),
                ElementsAre(AllOf(HasSubstr("001/007"), HasSubstr("or a search ended")), HasSubstr("001/009")));
}

TEST_F(Reasons, ASecondPadOfTheSameIdentityIsATwin) {
    const std::vector<BusDevice> now{pad_, other("008", pad_.serial)};
    EXPECT_THAT(reasons_for_missing(now, now, {{found(pad_)}}),
                ElementsAre(HasSubstr("001/007 (f1a0:1001) and " + now[1].node)));
}

TEST_F(Reasons, ADeniedPadIsToldByItself) {
    pad_.access = Access::denied;
    EXPECT_THAT(reasons_for_missing({{pad_}}, {{pad_}}, {}), IsEmpty());
}

TEST_F(Reasons, AVcomPadMayTellAnotherSerialNumber) {
    BusDevice vcom = other("008", "B2");
    vcom.hid_interfaces.clear();
    Pad told = found(vcom);
    told.serial = "told";
    const std::vector<BusDevice> now{pad_, vcom};
    EXPECT_THAT(reasons_for_missing(now, now, {{told}}), ElementsAre(HasSubstr("001/007")));
}

} // namespace
