// vxpadctl doctor, and what other commands say about pads that they miss, over virtual pads.
#include "vxpadctl_test.hpp"

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using namespace vxpadctl_test;

namespace {

const std::string node = "/dev/bus/usb/001/";

class Doctor : public Vxpadctl {
  protected:
    Outcome run_here(const std::vector<std::string>& pads, const std::string& script) const {
        return run(pads, "cd " + quoted(directory_) + "\n" + script);
    }
};

// A pad that sends by itself is recorded meanwhile.
const std::string busy_pad = "--pad=serial=A1,pen=loop";
std::string while_recording(const std::string& commands) {
    return "vxpadctl record 1 -o a.rec & recorder=$!\n"
           "until grep -qs '^[0-9]' a.rec; do sleep 0.05; done\n" +
           commands + "\nkill -INT $recorder; wait $recorder\n";
}

// Pulls pad 1 out as the command behind it says in the file "told" that it waits for that pad.
const std::string unplug_where_it_waits =
    "{ until grep -qs waiting told; do sleep 0.05; done; vxpad-emulator-control unplug 1; } & ";

TEST_F(Doctor, FindsHealthyPadsWell) {
    const auto outcome =
        run_here({"--pad=serial=A1,maker=Acme,product=Pad 100", "--vcom=type=17,serial=B2"}, "vxpadctl doctor");
    EXPECT_THAT(outcome.out,
                AllOf(ContainsRegex("^vxpadctl [0-9.]+, library libvxpadcom.*, libusb [0-9.]+, hidapi [0-9.]+, Linux "),
                      HasSubstr("\nPad 1 on the bus: f1a0:1001 in port 1-1\n"), HasSubstr("Maker:         Acme\n"),
                      HasSubstr("Serial:        A1\n"), HasSubstr("this user may open it"),
                      HasSubstr("Drivers:       0 usbhid, 1 usbhid\n"), HasSubstr("In use by:     nobody"),
                      ContainsRegex("Answer:        after [0-9]+ ms\n  Firmware:      1.2.3.4 VPAD\n")));
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr("in port 1-2\n"), HasSubstr("Serial:        B2\n"), HasSubstr("\nAll is well.\n")));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Doctor, NumbersPadsAsTheListDoes) {
    const auto outcome = run_here(
        {"--pad=type=16,serial=C", "--vcom=type=16,serial=D", "--pad=type=11,serial=A", "--pad=type=11,serial=B"},
        "vxpadctl list | awk 'NR > 1 { print $1, $(NF - 2) }' >list\n"
        "for pad in 1 2 3 4; do\n"
        "    echo $pad $(vxpadctl doctor $pad | sed -n 's/^  Serial: *//p')\n"
        "done | diff list -");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
}

TEST_F(Doctor, ExaminesTheChosenPadOnly) {
    const auto outcome = run_here({"--pad=serial=A1", "--pad=serial=B2"},
                                  "vxpadctl doctor 1-2; vxpadctl doctor /dev/bus/usb/001/002; vxpadctl doctor 3");
    EXPECT_THAT(outcome.out, AllOf(ContainsRegex("in port 1-2\n(.|\n)*in port 1-1\n"), Not(HasSubstr("Pad 3"))));
    EXPECT_THAT(outcome.err, HasSubstr("vxpadctl: there is no pad 3 on the bus\n"));
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Doctor, SaysThatThereIsNoPad) {
    const auto outcome =
        run_here({}, "vxpad-emulator-control unplug 1; vxpadctl doctor; echo $?; vxpadctl doctor --json");
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr("\nno pad found."), HasSubstr("\n1\n{\"well\": false,"), HasSubstr("\"pads\": []}")));
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Doctor, TellsDenied) {
    const auto outcome =
        run_here({"--pad=serial=A1,access=denied", "--pad=serial=B2"}, "vxpadctl doctor; echo $?; vxpadctl list");
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr("Finding:       denied\na pad (f1a0:1001) is plugged in, but there is no "
                                "permission to open " +
                                node),
                      HasSubstr("Answer:        not asked"), HasSubstr("\n1 of 2 pads cannot be used.\n1\n")));
    EXPECT_THAT(outcome.err, HasSubstr("no permission to open " + node));
    EXPECT_EQ(outcome.status, 1);
}

// Root may do much that an ordinary user may not.
TEST_F(Doctor, ServesAnOrdinaryUser) {
    fs::permissions(directory_, fs::perms::all);
    const auto outcome = run_alone(
        "cd " + quoted(directory_) + "; export TMPDIR=$PWD; program=$(command -v vxpadctl)\n" + as_somebody() +
        "$(command -v vxpad-emulator) run --pad=serial=A1,access=denied --pad=serial=B2 -- $program doctor");
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr("this user may not open it (Permission denied)\n"),
                      HasSubstr("Finding:       denied\na pad (f1a0:1001) is plugged in, but there is no permission"),
                      HasSubstr("; this user may open it (owner)\n"), HasSubstr("Finding:       well\n"),
                      HasSubstr("\n1 of 2 pads cannot be used.\n")));
    EXPECT_EQ(outcome.status, 1) << outcome.err;
}

TEST_F(Doctor, TellsWhoHasABusyPad) {
    const auto outcome =
        run_here({busy_pad}, while_recording("vxpadctl doctor; echo $? $recorder; vxpadctl list; vxpadctl info 1"));
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("Finding:       busy\n"), HasSubstr(node),
                                   ContainsRegex("is in use by vxpadctl .process ([0-9]+)..*"),
                                   HasSubstr("usbfs (a program)"), HasSubstr("\n1 of 1 pad cannot be used.\n1 ")));
    const std::size_t status = outcome.out.find("used.\n1 ") + 8;
    const std::string recorder = outcome.out.substr(status, outcome.out.find('\n', status) - status);
    EXPECT_THAT(outcome.out, HasSubstr("vxpadctl (process " + recorder + "). Close"));
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("1 of the pads plugged in cannot be used:\n" + node),
                                   HasSubstr("there is no pad 1\n1 of the pads"),
                                   HasSubstr("in use by vxpadctl (process " + recorder + ")")));
}

TEST_F(Doctor, ASilentPadHoldsNobodyUp) {
    const auto outcome = run_here({"--pad=serial=A1", "--pad=serial=B2", "--vcom=serial=C3", "--fault=1:silence"},
                                  "vxpadctl doctor --json >one; echo $?\n"
                                  "vxpad-emulator-control clear-faults 1; vxpadctl doctor --json >two; echo $?");
    EXPECT_EQ(outcome.out, "1\n0\n") << "what the silent pad was asked must not be in the way later";
    EXPECT_THAT(outcome.err,
                ContainsRegex("vxpadctl: waiting for /dev/bus/usb/001/.* .f1a0:1001. to answer, 1 of 4 s\n"));
    EXPECT_THAT(contents(directory_ / "one"),
                AllOf(HasSubstr("\"answer_ms\": null, \"firmware\": null"),
                      HasSubstr("\"finding\": \"silent\", \"advice\": \"" + node),
                      HasSubstr("does not answer. Plug it out"), HasSubstr("\"finding\": \"well\"")));
    EXPECT_THAT(contents(directory_ / "two"), Not(HasSubstr("\"driver\": \"\"")));
}

// A process that is ended while it asks, as three attempts take too long here, cannot give an interface back itself.
// The next look comes before any question.
TEST_F(Doctor, TheKernelHasASilentPadBack) {
    const auto outcome =
        run_here({"--pad=serial=A1", "--fault=1:delay=900,on=set-feature", "--fault=1:silence,on=get-feature"},
                 "vxpadctl doctor >/dev/null; vxpadctl doctor");
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr("Finding:       silent\n"), HasSubstr("Drivers:       0 usbhid, 1 usbhid")));
}

TEST_F(Doctor, TellsLinesOfIdsThatAreLeftOut) {
    const std::string file = write("my.ids", "1234 5678 usb 16\n");
    const auto outcome = run_here({"--pad=serial=A1"}, "VXPADCOM_IDS=" + quoted(file) + " vxpadctl doctor");
    EXPECT_THAT(outcome.out, HasSubstr("\nleft out: " + file + ":1: the transport is neither hid nor vcom\n"));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Doctor, ASilentVcomPadIsSilent) {
    const auto outcome = run_here({"--vcom=serial=C3", "--fault=1:drop,on=ssp"}, "vxpadctl doctor");
    EXPECT_THAT(outcome.out, HasSubstr("Finding:       silent\n" + node));
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Doctor, TellsAPadThatIsPulledOutMeanwhile) {
    const auto outcome = run_here({"--pad=serial=A1", "--pad=serial=B2", "--fault=1:silence"},
                                  unplug_where_it_waits + "vxpadctl doctor 2>told");
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr("Finding:       unplugged\n" + node), HasSubstr("was pulled out meanwhile."),
                      HasSubstr("Finding:       well\n"), HasSubstr("\n1 of 2 pads cannot be used.\n")));
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Doctor, TellsTwins) {
    const std::string twins[] = {"--pad=serial=A1", "--vcom=serial=A1"};
    for (const std::string& twin : twins) {
        const auto outcome = run_here({twin, twin, "--pad=serial=B2"}, "vxpadctl doctor; echo $?; vxpadctl list");
        EXPECT_THAT(outcome.out,
                    AllOf(HasSubstr("Finding:       twin\n" + node), HasSubstr("cannot be told apart"),
                          HasSubstr("Finding:       well\n"), HasSubstr("\n2 of 3 pads cannot be used.\n1\n")));
        EXPECT_THAT(outcome.err, AllOf(HasSubstr("1 of the pads plugged in cannot be used:\n" + node),
                                       HasSubstr("cannot be told apart"), Not(HasSubstr("does not answer"))));
        EXPECT_EQ(outcome.status, 1);
    }
}

TEST_F(Doctor, WritesABundleForOthers) {
    const auto outcome = run_here(
        {"--pad=serial=SN0042"}, "HOME=$PWD vxpadctl doctor --bundle bundle.txt && vxpadctl doctor --bundle none/such");
    EXPECT_THAT(outcome.out, HasSubstr("SN0042"));
    EXPECT_THAT(outcome.err,
                AllOf(HasSubstr("vxpadctl: bundle.txt holds all of this"), HasSubstr("cannot write none/such")));
    EXPECT_THAT(contents(directory_ / "bundle.txt"),
                AllOf(StartsWith("vxpadctl doctor, "), HasSubstr("Serial:        ...42 (6 characters)"),
                      HasSubstr("\"serial\": \"...42 (6 characters)\""), HasSubstr("All is well."),
                      Not(HasSubstr("SN0042"))));
    EXPECT_EQ(outcome.status, 1);
}

// ---- the other commands ----

TEST_F(Doctor, AListTellsWhichPadItWaitsFor) {
    const auto outcome = run_here({"--pad=serial=A1", "--fault=1:silence,count=5"}, "vxpadctl list --json");
    EXPECT_THAT(outcome.out, StartsWith("["));
    EXPECT_THAT(outcome.err,
                StartsWith("vxpadctl: waiting for /dev/bus/usb/001/002 (f1a0:1001) to answer, for 2 s so far\n"));
}

TEST_F(Doctor, AListTellsASilentPad) {
    const auto outcome = run_here({"--pad=serial=A1", "--fault=1:stall,on=get-feature"}, "vxpadctl list --json");
    EXPECT_EQ(outcome.out, "[]\n");
    EXPECT_THAT(outcome.err,
                HasSubstr("1 of the pads plugged in cannot be used:\n/dev/bus/usb/001/002 (f1a0:1001) does "
                          "not answer. Plug it out"));
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Doctor, AListTellsOfAPadThatIsPulledOutMeanwhile) {
    const auto outcome = run_here({"--pad=serial=A1", "--fault=1:silence"},
                                  unplug_where_it_waits + "vxpadctl list 2>told; wait; cat told >&2");
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("was pulled out meanwhile."), Not(HasSubstr("does not answer"))));
}

TEST_F(Doctor, AListNamesPadsBehindASilentOne) {
    const auto outcome = run_here(
        {"--pad=type=11,serial=A1", "--pad=type=16,serial=B2", "--vcom=serial=C3", "--fault=1:stall,on=get-feature"},
        "vxpadctl list");
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("C3"), Not(HasSubstr("B2"))));
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("2 of the pads plugged in cannot be used:\n"),
                                   HasSubstr("(f1a0:0b01) has not been found: it does not answer, or a search ended"),
                                   HasSubstr("(f1a0:1001) has not been found")));
}

} // namespace
