#include "findings.hpp"

#include "examination.hpp"
#include "kernel_log.hpp"
#include "machine_tree.hpp"
#include "messages.hpp"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <unistd.h>

using namespace vxpadctl;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace fs = std::filesystem;

namespace {

constexpr pid_t self = 77;

class Findings : public vxpadctl_test::MachineTree {
  protected:
    Look look() const {
        Look made{.device = pad_};
        made.rights.is_there = true;
        made.drivers = {{0, "usbhid"}, {1, "usbhid"}};
        made.device_driver = "usb";
        return made;
    }

    // The folder of a process that has the pad open.
    void hold(const std::string& pid, const std::string& name) const {
        put("proc/" + pid + "/comm", name + "\n");
        link("proc/" + pid + "/fd/0", "/dev/null");
        link("proc/" + pid + "/fd/5", pad_.node);
    }

    const Surroundings with_rules_{.rules = "/usr/lib/udev/rules.d/70-vxpadcom.rules"};
};

// As the document writes them: with … for what differs.
std::vector<std::string> lines_for_people(std::string_view message) {
    std::vector<std::string> lines;
    while (!message.empty()) {
        const std::size_t end = std::min(message.find('\n'), message.size());
        std::string line{message.substr(0, end)};
        message.remove_prefix(std::min(end + 1, message.size()));
        line.erase(0, line.find_first_not_of(' '));
        for (std::size_t at = line.find("{}"); at != std::string::npos; at = line.find("{}")) {
            line.replace(at, 2, "…");
        }
        lines.push_back(line);
    }
    return lines;
}

TEST_F(Findings, APadThatNobodyHasMayBeAsked) {
    EXPECT_EQ(obstacle_of(look(), self), Finding::well);
}

TEST_F(Findings, DeniedIsWhatCannotBeOpened) {
    for (const int error : {EACCES, EPERM}) {
        Look denied = look();
        denied.rights.open_error = error;
        EXPECT_EQ(obstacle_of(denied, self), Finding::denied);
        EXPECT_THAT(advice_for(Finding::denied, denied, {}),
                    AllOf(HasSubstr("no permission to open " + pad_.node), HasSubstr("Install them with\n"),
                          Not(HasSubstr("ssh"))));
        EXPECT_THAT(advice_for(Finding::denied, denied, with_rules_),
                    AllOf(HasSubstr("If that is you, plug the pad in again"), Not(HasSubstr("Install"))));
    }
}

TEST_F(Findings, DeniedOverSshLeadsToAGroup) {
    EXPECT_THAT(advice_for(Finding::denied, look(), {.rules = "/etc/udev/rules.d/x", .over_ssh = true}),
                HasSubstr("over ssh and not at the screen: give the pads to a group"));
}

TEST_F(Findings, DeniedWithARuleThatIsNotInEffectSaysSo) {
    Look denied = look();
    denied.rights.open_error = EACCES;
    denied.tag = SeatTag::missing;
    EXPECT_THAT(advice_for(Finding::denied, denied, with_rules_),
                HasSubstr("udev has not applied them to " + pad_.node));
    EXPECT_THAT(advice_for(Finding::denied, denied, {}), Not(HasSubstr("has not applied")));
    denied.device.from_file = true;
    EXPECT_THAT(advice_for(Finding::denied, denied, with_rules_),
                AllOf(Not(HasSubstr("has not applied")), HasSubstr("70-vxpadcom-f1a0-1001.rules")))
        << "the installed rules are not for it";
}

TEST_F(Findings, AMissingDeviceFileIsAContainersMatter) {
    Look missing = look();
    missing.rights = {};
    missing.rights.open_error = ENOENT;
    EXPECT_EQ(obstacle_of(missing, self), Finding::denied);
    EXPECT_THAT(advice_for(Finding::denied, missing, {}), AllOf(HasSubstr("container"), Not(HasSubstr("udev"))));
}

TEST_F(Findings, BusyNamesTheProgram) {
    Look busy = look();
    busy.drivers[1].driver = "usbfs";
    busy.holders.processes = {{4711, "counter-app"}};
    EXPECT_EQ(obstacle_of(busy, self), Finding::busy);
    EXPECT_THAT(advice_for(Finding::busy, busy, {}), HasSubstr("in use by counter-app (process 4711). Close"));
}

TEST_F(Findings, AProgramThatOnlyHasThePadOpenIsNotInTheWay) {
    Look open = look();
    open.holders.processes = {{4711, "lsusb"}};
    EXPECT_EQ(obstacle_of(open, self), Finding::well);
}

TEST_F(Findings, WhatThisProcessHasIsNotBusy) {
    Look own = look();
    own.drivers[0].driver = "usbfs";
    own.holders.processes = {{self, "vxpadctl"}};
    EXPECT_EQ(obstacle_of(own, self), Finding::well);
}

TEST_F(Findings, BusyWithAnotherUsersProgramSaysHowToSeeIt) {
    Look busy = look();
    busy.drivers[0].driver = "usbfs";
    busy.holders.all_seen = false;
    EXPECT_EQ(obstacle_of(busy, self), Finding::busy);
    EXPECT_THAT(advice_for(Finding::busy, busy, {}), HasSubstr("another user. To see which: sudo vxpadctl doctor"));
}

TEST_F(Findings, BusyWithADriverNamesIt) {
    Look busy = look();
    busy.device_driver = "usbip-host";
    busy.rights.open_error = EACCES;
    EXPECT_EQ(obstacle_of(busy, self), Finding::busy);
    EXPECT_THAT(advice_for(Finding::busy, busy, {}), HasSubstr("kernel's driver usbip-host"));
}

TEST_F(Findings, EachHasASentenceOfItsOwn) {
    Look denied = look();
    denied.rights.open_error = EACCES;
    std::vector<std::string> sentences;
    for (const Finding finding : {Finding::denied, Finding::busy, Finding::silent, Finding::unplugged, Finding::twin}) {
        const std::string sentence = advice_for(finding, denied, {}, &pad_);
        EXPECT_THAT(sentence, AllOf(HasSubstr(pad_.node), Not(HasSubstr("{}"))));
        EXPECT_EQ(std::ranges::count(sentences, sentence), 0);
        sentences.push_back(sentence);
    }
    EXPECT_EQ(advice_for(Finding::well, denied, {}), "");
}

TEST_F(Findings, TwinsAreFoundByWhatTheyTell) {
    std::vector<Examined> pads(5);
    for (Examined& pad : pads) {
        pad.look = look();
    }
    pads[1].answer = PadAnswer{1, "", pad_.id, "OTHER"};
    pads[2].look.device.node = "/dev/bus/usb/001/009";
    pads[3].finding = Finding::silent;
    pads[4].answer = PadAnswer{1, "", {0xf1a0, 0x4242}, pad_.serial};
    find_twins(pads, {});
    EXPECT_EQ(pads[0].finding, Finding::twin);
    EXPECT_THAT(pads[0].advice, HasSubstr("/dev/bus/usb/001/009 (f1a0:1001) and " + pad_.node));
    EXPECT_EQ(pads[1].finding, Finding::well);
    EXPECT_EQ(pads[2].finding, Finding::twin);
    EXPECT_EQ(pads[3].finding, Finding::silent);
    EXPECT_EQ(pads[4].finding, Finding::well) << "it tells other ids";
}

// ---- what they are judged by ----

TEST_F(Findings, HoldersAreTheProcessesWithThePadOpen) {
    hold("300", "second");
    hold("20", "first");
    put("proc/40/comm", "other\n");
    link("proc/40/fd/1", "/dev/null");
    put("proc/stat", "");
    put("proc/50/comm", "without a folder\n");
    const Holders holders = holders_of(pad_, directory_);
    EXPECT_THAT(holders.processes, ElementsAre(Holder{20, "first"}, Holder{300, "second"}));
    EXPECT_TRUE(holders.all_seen);
}

TEST_F(Findings, AHolderMayKnowThePadByAnotherName) {
    put("proc/20/comm", "in a cont\xc3\n"); // cut in the middle of a character
    fs::create_directories(directory_ / "other");
    fs::create_hard_link(pad_.node, directory_ / "other/name");
    link("proc/20/fd/3", directory_ / "other/name");
    EXPECT_THAT(holders_of(pad_, directory_).processes, ElementsAre(Holder{20, "in a cont?"}));
}

TEST_F(Findings, NobodyHoldsAPadThatIsGone) {
    hold("20", "first");
    fs::remove(pad_.node);
    EXPECT_THAT(holders_of(pad_, directory_).processes, IsEmpty());
    EXPECT_THAT(holders_of(pad_, directory_ / "nowhere").processes, IsEmpty());
}

TEST_F(Findings, ThisProcessKnowsWhatItHasOpen) {
    EXPECT_FALSE(is_open_here(pad_));
    const int fd = ::open(pad_.node.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_TRUE(is_open_here(pad_));
    ::close(fd);
    EXPECT_FALSE(is_open_here(pad_));
}

TEST_F(Findings, DriversAreThoseOfTheInterfaces) {
    link("sys/bus/usb/devices/1-4:1.0/driver", "../../../bus/usb/drivers/usbhid");
    link("sys/bus/usb/devices/1-4/driver", "../../../bus/usb/drivers/usb");
    EXPECT_THAT(drivers_of(pad_, directory_), ElementsAre(InterfaceDriver{0, "usbhid"}, InterfaceDriver{1, ""}));
    EXPECT_EQ(device_driver_of(pad_, directory_), "usb");
    EXPECT_EQ(device_driver_of(pad_, directory_ / "nowhere"), "");
}

TEST_F(Findings, TheRuleIsInEffectWhereUdevHasSetTheTag) {
    pad_.node = "/dev/bus/usb/002/007";
    EXPECT_EQ(seat_tag_of(pad_, directory_), SeatTag::unknown);
    put("run/udev/data/c189:6", "G:uaccess\n");
    EXPECT_EQ(seat_tag_of(pad_, directory_), SeatTag::missing);
    put("run/udev/data/c189:134", "I:123\nE:ID_MODEL=uaccess\nG:seat\n");
    EXPECT_EQ(seat_tag_of(pad_, directory_), SeatTag::missing);
    put("run/udev/data/c189:134", "I:123\nG:seat\nQ:uaccess\n");
    EXPECT_EQ(seat_tag_of(pad_, directory_), SeatTag::set);
    pad_.node = "elsewhere";
    EXPECT_EQ(seat_tag_of(pad_, directory_), SeatTag::unknown);
}

TEST_F(Findings, RulesAreLookedForWhereUdevLooks) {
    EXPECT_EQ(installed_rules(directory_), std::nullopt);
    const std::string packaged = put("usr/lib/udev/rules.d/70-vxpadcom.rules", "rules");
    EXPECT_EQ(installed_rules(directory_), packaged);
    put("etc/udev/rules.d/70-vxpadcom.rules", "");
    EXPECT_EQ(installed_rules(directory_), std::nullopt) << "an empty one turns them off";
}

TEST_F(Findings, KernelMessagesArePickedByPort) {
    put("dev/kmsg", "6,100,5000000,-;usb 1-4: new full-speed USB device number 7\n SUBSYSTEM=usb\n DEVICE=+usb:1-4\n"
                    "6,101,5100000,-;usb 1-42: another\n"
                    "6,102,5200000,-;usb 1-4.1: behind it\n"
                    "3,103,6123456,-;usbhid 1-4:1.0: can't add hid device: -71\n"
                    "4,104,7000000,-;hub 1-0:1.0: nothing\nnonsense\n;\n,,,;usb 1-4: no time");
    const KernelLog log = read_kernel_log(directory_);
    EXPECT_EQ(log.trouble, "");
    EXPECT_THAT(messages_about("1-4", log.lines),
                ElementsAre("[5.000] usb 1-4: new full-speed USB device number 7",
                            "[6.123] usbhid 1-4:1.0: can't add hid device: -71", "[0.000] usb 1-4: no time"));
    EXPECT_THAT(messages_about("", log.lines), IsEmpty());
    EXPECT_THAT(messages_about("1-4", std::vector<std::string>(30, "[0.000] usb 1-4: x")), SizeIs(20));
}

TEST_F(Findings, AKernelLogThatCannotBeReadSaysWhy) {
    EXPECT_THAT(read_kernel_log(directory_).trouble, HasSubstr("dev/kmsg: No such file"));
    fs::create_directories(directory_ / "dev/kmsg");
    EXPECT_THAT(read_kernel_log(directory_).trouble, HasSubstr("Is a directory"));
}

// ---- how they are told ----

TEST_F(Findings, AnAnswerSurvivesItsWayBetweenProcesses) {
    const PadAnswer answer{12, "1.2.3.4 VPAD", {0xf1a0, 0x1001}, "SN 42"};
    EXPECT_EQ(parse_answer(to_text(answer)), answer);
    const PadAnswer odd{0, "", {}, "line\nbreak"};
    EXPECT_EQ(parse_answer(to_text(odd))->serial, "line break");
    for (const char* text : {"", "1", "1 2 3", "1 2 3\n", "1 2 3\nversion", "x 2 3\na\nb\n"}) {
        EXPECT_EQ(parse_answer(text), std::nullopt) << text;
    }
}

TEST_F(Findings, ABundleHidesWhoAndWhich) {
    Examination examination;
    examination.user = {1000, {1000}};
    examination.pads.resize(1);
    examination.pads[0].look = look();
    examination.pads[0].kernel_messages = {"[1.000] usb 1-4: SerialNumber: SN0042"};
    examination.pads[0].advice = "see /home/clara/pads";
    const std::string text = masked(examination_text(examination), masks_of(examination, "/home/clara", "clara"));
    EXPECT_THAT(text, AllOf(HasSubstr("SerialNumber: ...42 (6 characters)"), HasSubstr("see HOME/pads"),
                            Not(HasSubstr("SN0042")), Not(HasSubstr("clara"))));
}

TEST_F(Findings, ABundleHidesWhoMayUseThePadAndWhatItTells) {
    Examination examination;
    examination.user = {1000, {1000}};
    examination.pads.resize(1);
    Examined& pad = examination.pads[0];
    pad.look = look();
    pad.look.rights.owner = 4000000001U; // ids without names are shown as they are
    pad.look.rights.acl.entries = {{AclEntry::Kind::user, 4000000002U, 6}, {AclEntry::Kind::group, 4000000003U, 6}};
    pad.answer = PadAnswer{1, "", pad_.id, "TOLD0815"};
    const std::string text = examination_text(examination) + examination_json(examination);
    EXPECT_THAT(text, AllOf(HasSubstr("4000000001"), HasSubstr("4000000002"), HasSubstr("TOLD0815")));
    const std::string shown = masked(text, masks_of(examination, "", "root"));
    EXPECT_THAT(shown,
                AllOf(HasSubstr("USER root, user USER rw, group 4000000003 rw"), HasSubstr("...15 (8 characters)"),
                      Not(HasSubstr("4000000001")), Not(HasSubstr("4000000002")), Not(HasSubstr("TOLD0815"))));
    examination.pads[0].look.rights.owner = 0;
    EXPECT_THAT(masked("root", masks_of(examination, "", "root")), "root") << "everybody's";
}

TEST(Masks, HideWholeWordsOnly) {
    EXPECT_EQ(masked("pat and pattern, pat's pat-2 /pat/", {{"pat", "USER"}}), "USER and pattern, USER's pat-2 /USER/");
    EXPECT_EQ(masked("a1 and a1", {{"a1", "..."}, {"", "?"}}), "a1 and a1");
    EXPECT_EQ(masked_serial("1234"), "(4 characters)");
    EXPECT_EQ(masked_serial("A"), "(1 character)");
}

TEST_F(Findings, TextAndJsonTellTheSame) {
    Examination examination;
    examination.versions = {{"vxpadctl", "1"}, {"Linux", "6"}};
    examination.pads.resize(1);
    Examined& pad = examination.pads[0];
    pad.number = 1;
    pad.look = look();
    pad.look.holders.processes = {{5, "a\x1b[31m"}};
    pad.answer = PadAnswer{12, "1.2.3.4 VPAD", pad_.id, "SN0042"};
    EXPECT_THAT(examination_text(examination),
                AllOf(StartsWith("vxpadctl 1, Linux 6\n\nPad 1 on the bus: f1a0:1001 in port 1-4\n"),
                      HasSubstr("\n  Answer:        after 12 ms\n"), HasSubstr("\n  Firmware:      1.2.3.4 VPAD\n"),
                      HasSubstr("a\\x1b[31m (process 5)"), HasSubstr("\n\nAll is well.\n"), Not(HasSubstr("\x1b"))));
    EXPECT_THAT(examination_json(examination),
                AllOf(StartsWith("{\"well\": true, \"versions\": {\"vxpadctl\": \"1\", \"Linux\": \"6\"}"),
                      HasSubstr("\"answer_ms\": 12, \"firmware\": \"1.2.3.4 VPAD\""),
                      HasSubstr("\"finding\": \"well\""), Not(HasSubstr("\x1b"))));
    pad.finding = Finding::silent;
    pad.answer.reset();
    EXPECT_THAT(examination_text(examination),
                AllOf(HasSubstr("Finding:       silent\n"), HasSubstr("\n1 of 1 pad cannot")));
    EXPECT_THAT(examination_json(examination), AllOf(HasSubstr("{\"well\": false"), HasSubstr("\"answer_ms\": null")));
    examination.pads.clear();
    EXPECT_FALSE(examination.is_well());
    EXPECT_THAT(examination_text(examination), HasSubstr("no pad found"));
}

TEST_F(Findings, WhatIsToldOfAPadIsOneBlockOfText) {
    Examination examination;
    examination.left_out = {"my.ids:3: the vendor id"};
    examination.pads.resize(1);
    Examined& pad = examination.pads[0];
    pad.look = look();
    pad.look.device.from_file = true;
    pad.look.holders.all_seen = false;
    pad.finding = Finding::busy;
    pad.kernel_messages = {"[1.000] usb 1-4: \x1b[1m", "[2.000] usb 1-4: reset"};
    EXPECT_THAT(
        examination_text(examination),
        AllOf(StartsWith("\nleft out: my.ids:3: the vendor id\n\nPad "),
              HasSubstr("\n  Rule:          its own, for its ids stand in a file; udev says nothing"),
              HasSubstr("\n  In use by:     nobody; other users' programs cannot be seen\n"),
              HasSubstr("\n  Answer:        not asked\n"),
              HasSubstr("\n  Kernel:        [1.000] usb 1-4: \\x1b[1m\n                 [2.000] usb 1-4: reset\n")));
    EXPECT_THAT(examination_json(examination), HasSubstr("\"left_out\": [\"my.ids:3: the vendor id\"]"));
    examination.kernel_log_trouble = "/dev/kmsg: Operation not permitted";
    EXPECT_THAT(examination_text(examination),
                HasSubstr("\n  Kernel:        cannot be read (/dev/kmsg: Operation not permitted). Try: "));
}

TEST(Messages, AllAreExplainedInTheDocument) {
    const std::string document = vxpadctl_test::contents(TROUBLESHOOTING);
    for (const MessageText& message : all_messages()) {
        for (const std::string& line : lines_for_people(message.text)) {
            EXPECT_THAT(document, HasSubstr("`" + line));
        }
    }
}

} // namespace
