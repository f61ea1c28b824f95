// vxpadctl as people run it, over virtual pads.
#include "vxpadctl_test.hpp"

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using namespace vxpadctl_test;

namespace {

const std::string one_pad = "--pad=type=16,interfaces=2,maker=Acme,product=Pad 100,serial=SN0042,unknown=loop-back";

// Offers an input report of the same bytes again and again while a command runs.
std::string while_report_comes(const std::string& interface, const std::string& hex, const std::string& command) {
    return "while vxpad-emulator-control input 1 " + interface + " " + hex +
           " || true; do sleep 0.02; done 2>/dev/null & feeder=$!\n" + command +
           "\nstatus=$?; kill $feeder; wait $feeder; exit $status";
}

} // namespace

TEST_F(Vxpadctl, ListsPadsInATable) {
    const auto outcome =
        run({one_pad, "--pad=type=11,interfaces=1,maker=Other Maker,product=P,serial=7", "--pad=type=1,serial=C1"},
            "vxpadctl list");
    EXPECT_EQ(outcome.out, "#  TRANSPORT  MAKER         PRODUCT                SERIAL  ID         INTERFACES\n"
                           "1  HID        Other Maker   P                      7       f1a0:0b01  1\n"
                           "2  HID        Acme          Pad 100                SN0042  f1a0:1001  2\n"
                           "3  HID        Virtual Pads  Virtual Signature Pad  C1      f1a4:0101  2\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, ListsPadsAsJson) {
    const auto outcome = run({one_pad, "--pad=type=1,interfaces=1,maker=M,product=P,serial=7"}, "vxpadctl list --json");
    EXPECT_EQ(outcome.out,
              "[{\"number\": 1, \"transport\": \"HID\", \"maker\": \"Acme\", \"product\": \"Pad 100\", "
              "\"serial\": \"SN0042\", \"vendor_id\": \"f1a0\", \"product_id\": \"1001\", \"interfaces\": 2, "
              "\"feature_report_bytes\": 64},\n"
              " {\"number\": 2, \"transport\": \"HID\", \"maker\": \"M\", \"product\": \"P\", "
              "\"serial\": \"7\", \"vendor_id\": \"f1a4\", \"product_id\": \"0101\", \"interfaces\": 1, "
              "\"feature_report_bytes\": 64}]\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, WithoutPadsSaysWhatToDo) {
    const auto outcome = run({}, "vxpad-emulator-control unplug 1; vxpadctl list --json");
    EXPECT_EQ(outcome.out, "[]\n");
    EXPECT_THAT(outcome.err, AllOf(StartsWith("vxpadctl: no pad found"), HasSubstr("1001"), HasSubstr("f1a4"),
                                   HasSubstr("vxpad-emulator run")));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, SaysThatAPadDoesNotAnswer) {
    const auto outcome = run({one_pad, "--fault=1:stall,on=get-feature"}, "vxpadctl list");
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("1 of the pads plugged in cannot be used"), Not(HasSubstr("\033["))));
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Vxpadctl, ShowsOnePad) {
    const auto outcome = run({one_pad}, "vxpadctl info 1");
    EXPECT_EQ(outcome.out, "Pad:            1\n"
                           "Transport:      HID\n"
                           "Maker:          Acme\n"
                           "Product:        Pad 100\n"
                           "Serial number:  SN0042\n"
                           "USB id:         f1a0:1001\n"
                           "Interfaces:     2\n"
                           "Feature report: 64 bytes\n"
                           "SSP:            yes\n"
                           "Packets out:    64 bytes\n"
                           "Packets in:     64 bytes\n"
                           "Signpad id:     f1a0:1001\n"
                           "Firmware:       1.2.3.4 VPAD\n"
                           "Signpad serial: SN0042\n"
                           "Connection:     0\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, ListsVcomPadsBehindHidPads) {
    const auto outcome = run({"--vcom=type=16,serial=B2", "--vcom=named=yes,maker=Quillon Ltd,type=15,serial=B3",
                              "--vcom=named=yes,maker=Other", "--pad=type=17,serial=A1"},
                             "vxpadctl list");
    EXPECT_EQ(outcome.out, "#  TRANSPORT  MAKER         PRODUCT                SERIAL  ID         INTERFACES\n"
                           "1  HID        Virtual Pads  Virtual Signature Pad  A1      f1a0:1101  2\n"
                           "2  VCOM       Virtual Pads  Virtual Signature Pad  B2      f1a0:1001  1\n"
                           "3  VCOM       Quillon Ltd   Virtual Signature Pad  B3      f1a0:0f01  1\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, SaysThatAVcomPadDoesNotAnswer) {
    const auto outcome = run({"--vcom=type=16", "--fault=1:drop,on=ssp"}, "vxpadctl list");
    EXPECT_THAT(outcome.err, HasSubstr("1 of the pads plugged in cannot be used"));
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Vxpadctl, ShowsWhatAVcomPadTells) {
    const auto outcome = run({"--vcom=type=17,serial=B2,told-serial=C3,version=5.6.7.8:ACME,connection=3"},
                             "vxpadctl info 1 && vxpadctl info 1 --json");
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("Transport:      VCOM\n"),
                                   HasSubstr("Firmware:       5.6.7.8 ACME\nSignpad serial: C3\nConnection:     3\n"),
                                   HasSubstr("\"ssp\": {\"packet_bytes\": 64, \"input_bytes\": 64, \"description\": "
                                             "{\"vendor_id\": \"f1a0\", \"product_id\": \"1101\", \"version\": "
                                             "\"5.6.7.8 ACME\", \"serial\": \"C3\"}, \"connection\": 3}}\n")));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, LeavesOutWhatAPadDoesNotTell) {
    const auto outcome = run({"--pad=type=17,components=3", "--pad=type=11"},
                             "vxpadctl info 1; vxpadctl info 2; vxpadctl info 2 --json");
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("SSP:            no\nPad:            2"),
                                   HasSubstr("Packets in:     64 bytes\n{"), HasSubstr("\"connection\": null}}\n")));
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, PadTextsDoNotReachTheTerminalRaw) {
    const auto outcome = run({R"(--pad=maker=A\u001b[31m,product=%s%n"\u0007\\\\,serial=\u202e\u0085)"},
                             "vxpadctl list; vxpadctl info 1 --json");
    EXPECT_THAT(outcome.out, AllOf(HasSubstr(R"(A\x1b[31m  %s%n"\x07\\\\)"), HasSubstr(R"("A\u001b[31m")"),
                                   HasSubstr(R"("%s%n\"\u0007\\\\")"), Not(HasSubstr("\x1b")), Not(HasSubstr("\a")),
                                   Not(HasSubstr("\u202e")), Not(HasSubstr("\u0085"))));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, LongTextsAreCutInTheTableOnly) {
    const auto outcome =
        run({"--pad=product=" + std::string(120, 'x')}, "vxpadctl list && vxpadctl info 1 && vxpadctl info 1 --json");
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("  " + std::string(39, 'x') + "…  "),
                                   HasSubstr("Product:        " + std::string(120, 'x') + "\n"),
                                   HasSubstr("\"" + std::string(120, 'x') + "\"")));
}

TEST_F(Vxpadctl, ReadsBackTheFeatureReportThatItHasSent) {
    const auto outcome = run({one_pad}, "vxpadctl feature set 1 --interface 1 --fill --reply c1 02 7f4142");
    EXPECT_EQ(outcome.out, "0000  c1 02 7f 41 42 00 00 00  00 00 00 00 00 00 00 00  |...AB...........|\n"
                           "0010  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  |................|\n"
                           "0020  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  |................|\n"
                           "0030  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  |................|\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, SendsExactlyTheBytesGiven) {
    const auto outcome = run({one_pad}, "vxpadctl feature set 1 c1 02 && vxpadctl report write 1 --interface 1 c3\n"
                                        "vxpad-emulator-control log 1 | grep -E ' c[13]'");
    EXPECT_THAT(outcome.out, StartsWith("2 bytes sent to interface 0 of pad 1\n1 byte sent to interface 1 of pad 1\n"));
    EXPECT_THAT(outcome.out, AllOf(HasSubstr(" 0 c102\n"), HasSubstr(" 1 c3\n")));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, ReadsAFeatureReportOfAnyLength) {
    const auto outcome = run({"--pad=type=1"}, "vxpadctl feature get 1; vxpadctl feature get 1 --length 3");
    EXPECT_THAT(outcome.out, HasSubstr("\n0030  "));
    EXPECT_THAT(outcome.err + outcome.out, Not(HasSubstr("\n0040  ")));
}

TEST_F(Vxpadctl, WaitsForInputReports) {
    const std::string report(128, '5');
    const auto outcome =
        run({one_pad}, while_report_comes("1", report, "vxpadctl report read 1 --interface 1 --wait 20000 --count 2"));
    const std::string line = "55 55 55 55 55 55 55 55  55 55 55 55 55 55 55 55  |UUUUUUUUUUUUUUUU|\n";
    const std::string dump = "0000  " + line + "0010  " + line + "0020  " + line + "0030  " + line;
    EXPECT_EQ(outcome.out, dump + "\n" + dump);
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, WritesInputReportsAsJson) {
    const std::string command =
        "vxpadctl report read 1 --interface 1 --wait 20000 --count 2 --json --layout a=1:u16le,b=64:u8";
    const auto outcome = run({one_pad}, while_report_comes("1", std::string(128, '5'), command));
    EXPECT_THAT(outcome.out, testing::MatchesRegex("\\{\"time\": 0\\.000000, \"a\": 21845, \"b\": null\\}\n"
                                                   "\\{\"time\": [0-9]+\\.[0-9]{6}, \"a\": 21845, \"b\": null\\}\n"));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, KnowsTheShortInputReportsOfType1) {
    const auto outcome = run({"--pad=type=1,interfaces=1"},
                             while_report_comes("0", std::string(40, '6'), "vxpadctl report read 1 --wait 20000"));
    EXPECT_EQ(outcome.out, "0000  66 66 66 66 66 66 66 66  66 66 66 66 66 66 66 66  |ffffffffffffffff|\n"
                           "0010  66 66 66 66                                       |ffff|\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, SaysThatNoInputReportCame) {
    const auto outcome = run({one_pad}, "vxpadctl report read 1 --wait 30");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "vxpadctl: no input report came within 30 ms\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Vxpadctl, EndsInOrderWhenInterrupted) {
    const auto outcome =
        run({one_pad}, while_report_comes("0", std::string(128, '5'),
                                          "mkfifo " + quoted(directory_ / "reports") +
                                              "\n"
                                              "vxpadctl report read 1 --wait 40000 --count 1000000 >" +
                                              quoted(directory_ / "reports") +
                                              " & reader=$!\n"
                                              "{ read line && kill -TERM $reader; cat >/dev/null; } <" +
                                              quoted(directory_ / "reports") + "\nwait $reader"));
    EXPECT_THAT(outcome.err, HasSubstr("vxpadctl: interrupted"));
    EXPECT_EQ(outcome.status, 130);
}

TEST_F(Vxpadctl, NamesWhatTheLibraryReports) {
    const auto outcome = run({"--pad=type=1", "--fault=1:stall,on=get-feature"}, "vxpadctl feature get 1");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "vxpadctl: Error of read HID feature for device: 1 (GetFeature, VXPCEC_INVALID_HANDLE)\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Vxpadctl, TracesBesideTheResult) {
    const auto plain = run({one_pad}, "vxpadctl info 1 --json");
    const auto traced = run({one_pad}, "vxpadctl info 1 --json --trace");
    EXPECT_EQ(traced.out, plain.out);
    EXPECT_EQ(plain.err, "");
    EXPECT_THAT(traced.err, AllOf(HasSubstr("Initialize(): enter."), HasSubstr("SERIAL_NUMBER: SN0042"),
                                  HasSubstr("pthread_mutex_lock()")));
}

TEST_F(Vxpadctl, RefusesPadsAndInterfacesThatAreNotThere) {
    auto outcome = run({one_pad}, "vxpadctl info 2");
    EXPECT_EQ(outcome.err, "vxpadctl: there is no pad 2, the last one is 1\n");
    EXPECT_EQ(outcome.status, 1);
    outcome = run({one_pad}, "vxpadctl feature get 1 --interface 2");
    EXPECT_EQ(outcome.err, "vxpadctl: there is no interface 2: pad 1 has 2, counted from 0\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Vxpadctl, WrongUsageHasAStatusOfItsOwn) {
    const auto outcome = run({one_pad}, "vxpadctl feature set 1 xy");
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("'xy' is not hexadecimal"), HasSubstr("vxpadctl --help")));
    EXPECT_EQ(outcome.status, 2);
}

TEST_F(Vxpadctl, ExplainsItself) {
    const auto outcome = run({}, "vxpadctl --help && vxpadctl --version");
    EXPECT_THAT(outcome.out, AllOf(StartsWith("Usage: vxpadctl COMMAND"), HasSubstr("\nvxpadctl 0.")));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, AHelpThatCannotBeWrittenIsAFailure) {
    for (const char* words : {"--help", "help", "record --help", "--version"}) {
        const auto outcome = run_alone("vxpadctl " + std::string(words) + " >/dev/full");
        EXPECT_EQ(outcome.err, "vxpadctl: cannot write the result: No space left on device\n") << words;
        EXPECT_EQ(outcome.status, 1) << words;
    }
}

TEST_F(Vxpadctl, ExplainsItsCommandsOneByOne) {
    const auto outcome = run_alone("vxpadctl record --help && vxpadctl help record && vxpadctl ssp --help");
    EXPECT_THAT(outcome.out, AllOf(StartsWith("Usage: vxpadctl record PAD -o FILE [OPTIONS]\n\nWrites what comes"),
                                   HasSubstr("\nUsage: vxpadctl record PAD"), HasSubstr("\n  ssp send PAD")));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, AResultThatCannotBeWrittenIsAFailure) {
    const auto outcome = run({one_pad}, "vxpadctl list >/dev/full");
    EXPECT_THAT(outcome.err, HasSubstr("cannot write the result"));
    EXPECT_EQ(outcome.status, 1);
}

// A pad that speaks SSP, on either transport.
class VxpadctlSsp : public Vxpadctl, public testing::WithParamInterface<const char*> {
  protected:
    std::string pad(const std::string& settings = "type=16") const { return GetParam() + ("=serial=S1," + settings); }
};

INSTANTIATE_TEST_SUITE_P(, VxpadctlSsp, testing::Values("--pad", "--vcom"),
                         [](const auto& tested) { return std::string(tested.param + 2); });

TEST_P(VxpadctlSsp, ShowsComponents) {
    const auto outcome =
        run({pad("components=5:11:0:3:1:0")}, "vxpadctl ssp components 1; vxpadctl ssp components 1 --json");
    EXPECT_EQ(outcome.out, "ID  TYPE  COMPONENT\n"
                           "0   5     -\n"
                           "1   11    signpad\n"
                           "2   0     -\n"
                           "3   3     configuration\n"
                           "4   1     communication\n"
                           "5   0     -\n"
                           "[{\"id\": 0, \"type\": 5, \"name\": \"\"},\n"
                           " {\"id\": 1, \"type\": 11, \"name\": \"signpad\"},\n"
                           " {\"id\": 2, \"type\": 0, \"name\": \"\"},\n"
                           " {\"id\": 3, \"type\": 3, \"name\": \"configuration\"},\n"
                           " {\"id\": 4, \"type\": 1, \"name\": \"communication\"},\n"
                           " {\"id\": 5, \"type\": 0, \"name\": \"\"}]\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST_P(VxpadctlSsp, ShowsModes) {
    const auto outcome = run({pad("modes=70000:13:5:0")}, "vxpadctl ssp modes 1; vxpadctl ssp modes 1 --json");
    EXPECT_EQ(outcome.out, "ID  TYPE   MODE\n"
                           "0   70000  -\n"
                           "1   13     user-input\n"
                           "2   5      doc-view\n"
                           "3   0      signature\n"
                           "[{\"id\": 0, \"type\": 70000, \"name\": \"\"},\n"
                           " {\"id\": 1, \"type\": 13, \"name\": \"user-input\"},\n"
                           " {\"id\": 2, \"type\": 5, \"name\": \"doc-view\"},\n"
                           " {\"id\": 3, \"type\": 0, \"name\": \"signature\"}]\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_P(VxpadctlSsp, ShowsTheDescription) {
    const auto outcome = run({pad("type=17,version=9.8.7.4294967295:ABCD,told-serial=T7")},
                             "vxpadctl ssp description 1; vxpadctl ssp description 1 --json");
    EXPECT_EQ(outcome.out, "Signpad id:     f1a0:1101\n"
                           "Firmware:       9.8.7.4294967295 ABCD\n"
                           "Signpad serial: T7\n"
                           "{\"vendor_id\": \"f1a0\", \"product_id\": \"1101\", "
                           "\"version\": \"9.8.7.4294967295 ABCD\", \"serial\": \"T7\"}\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_P(VxpadctlSsp, ReadsAndSetsTheConnectionType) {
    const auto outcome = run({pad("connection=2")}, "vxpadctl ssp connection 1; vxpadctl ssp connection 1 set 127; "
                                                    "vxpadctl ssp connection 1 get; vxpadctl ssp connection 1 --json");
    EXPECT_EQ(outcome.out, "Connection type: 2\n"
                           "pad 1 was told to use connection type 127 (it does not answer that)\n"
                           "Connection type: 127\n"
                           "{\"connection\": 127}\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_P(VxpadctlSsp, SendsAWholeMessageAndShowsTheAnswer) {
    const auto outcome = run({pad()}, "vxpadctl ssp send 1 00000010 --reply");
    EXPECT_EQ(outcome.out, "0000  00 06 00 10 01 04 05 0b  03 01                    |..........|\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_P(VxpadctlSsp, SendsToAComponentByNameAndById) {
    const auto outcome = run({pad()}, "vxpadctl ssp send 1 --component signpad --message 0x11 00 00 --reply; "
                                      "vxpadctl ssp send 1 --component 2 --message 16 --reply; "
                                      "vxpadctl ssp send 1 --component communication --message 0x11 0900\n"
                                      "vxpad-emulator-control ssp 1 | grep -o connection=9");
    EXPECT_EQ(outcome.out, "0000  01 01 00 11 01                                    |.....|\n"
                           "0000  02 02 00 10 01 00                                 |......|\n"
                           "6 bytes sent to interface 0 of pad 1\n"
                           "connection=9\n");
    EXPECT_EQ(outcome.status, 0);
}

// The answer that was not asked for must not meet the next run's first question.
TEST_P(VxpadctlSsp, SendingLeavesNoAnswerBehind) {
    const auto outcome = run({pad()}, "vxpadctl ssp send 1 00000010; vxpadctl ssp send 1 01020010 0000 && "
                                      "vxpadctl config state 1");
    EXPECT_EQ(outcome.out, "4 bytes sent to interface 0 of pad 1\n"
                           "6 bytes sent to interface 0 of pad 1\n"
                           "Configuration: idle (0)\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_P(VxpadctlSsp, SaysThatNoMessageCame) {
    const auto outcome = run({pad()}, "vxpadctl ssp receive 1 --timeout 50");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "vxpadctl: no SSP message came within 50 ms (vxpadctl info 1 tells whether the pad speaks "
                           "SSP)\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST_P(VxpadctlSsp, SetsAndPersistsVariables) {
    const std::string key(40, 'k');
    const auto outcome = run({pad("conf-busy=2")}, "vxpadctl config state 1; vxpadctl config set 1 " + key +
                                                       " 12345678901234567890; " + "vxpadctl config persist 1 " + key +
                                                       "; vxpadctl config state 1; vxpadctl config state 1 --json\n"
                                                       "vxpad-emulator-control ssp 1 | grep k");
    EXPECT_EQ(outcome.out, "Configuration: idle (0)\n"
                           "variable " +
                               key + " of pad 1 set to '12345678901234567890'\n" + "variable " + key +
                               " of pad 1 persisted\n" +
                               "Configuration: done (3)\n"
                               "{\"state\": 3, \"name\": \"done\"}\n"
                               "variable " +
                               key + " 12345678901234567890\n" + "persisted " + key + "\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_P(VxpadctlSsp, SaysThatAChangeFailed) {
    const auto outcome = run({pad("conf-fail=yes")}, "vxpadctl config persist 1 k; vxpadctl config state 1; "
                                                     "vxpadctl button set 1 signature ok 1 2");
    EXPECT_EQ(outcome.out, "Configuration: failed (4)\n");
    EXPECT_EQ(outcome.err, "vxpadctl: pad 1 has failed to apply the change\n"
                           "vxpadctl: pad 1 has failed to apply the change\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST_P(VxpadctlSsp, AsksForButtons) {
    const auto outcome = run({pad()}, "vxpad-emulator-control button 1 207 >/dev/null\n"
                                      "vxpadctl button input 1; vxpadctl button event 1 doc-sign; "
                                      "vxpadctl button input 1 --json; vxpadctl button event 1 0 --json\n"
                                      "vxpad-emulator-control ssp 1 | grep -o ' mode=[0-9]*'");
    EXPECT_EQ(outcome.out, "Button: 207\n"
                           "Button: 207\n"
                           "{\"button\": 207}\n"
                           "{\"button\": 207}\n"
                           " mode=0\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_P(VxpadctlSsp, RefreshesTheButtonsOfTheModeThatIsNamed) {
    const auto outcome = run({pad()}, "for mode in doc-view doc-sign 6 signature; do vxpadctl button refresh 1 $mode; "
                                      "done; vxpad-emulator-control ssp 1 | grep refreshed");
    EXPECT_EQ(outcome.out, "buttons of mode doc-view of pad 1 refreshed\n"
                           "buttons of mode doc-sign of pad 1 refreshed\n"
                           "buttons of mode doc-sign of pad 1 refreshed\n"
                           "buttons of mode signature of pad 1 refreshed\n"
                           "refreshed 0 1\nrefreshed 5 1\nrefreshed 6 2\n");
    EXPECT_EQ(outcome.status, 0);
}

// Only pads of type 17 turn by 180 degrees.
TEST_P(VxpadctlSsp, SetsTheStateOfAButton) {
    for (const auto& [type, key] : {std::pair("type=16", "rotate"), std::pair("type=17", "rotate.180")}) {
        const auto outcome =
            run({pad(type)}, "vxpadctl button set 1 doc-view rotate 1 0xff; vxpad-emulator-control ssp 1 | grep vx");
        EXPECT_EQ(outcome.out, "button rotate in mode doc-view of pad 1 set to 1 255\n"
                               "variable vx.pad.mode.5.button." +
                                   std::string(key) + ".config 01000000FF000000\n");
        EXPECT_EQ(outcome.status, 0);
    }
}

TEST_P(VxpadctlSsp, NamesWhatAPadDoesNotHave) {
    const auto outcome =
        run({pad("components=11,modes=5:6")},
            "vxpadctl config state 1; vxpadctl ssp connection 1 set 1; vxpadctl button event 1 0; "
            "vxpadctl button input 1; vxpadctl ssp send 1 --component 3 --message 16 --reply --timeout "
            "100; vxpadctl ssp send 1 --component configuration --message 16");
    EXPECT_EQ(outcome.err,
              "vxpadctl: pad 1 has no component configuration (vxpadctl ssp components 1 shows what it has)\n"
              "vxpadctl: pad 1 has no component communication (vxpadctl ssp components 1 shows what it has)\n"
              "vxpadctl: pad 1 has no mode signature (vxpadctl ssp modes 1 shows what it has)\n"
              "vxpadctl: pad 1 has no mode user-input (vxpadctl ssp modes 1 shows what it has)\n"
              "vxpadctl: pad 1 has no component configuration (vxpadctl ssp components 1 shows what it has)\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST_P(VxpadctlSsp, SaysWhyARequestFailed) {
    const auto failure_of = [&](const std::string& fault) {
        // The pad is found and its components are told before anything goes wrong.
        const std::string replies_before = std::string(GetParam()) == "--vcom" ? "6" : "1";
        const auto outcome = run({pad(), "--fault=1:" + fault + ",on=ssp,after=" + replies_before},
                                 "vxpadctl ssp connection 1; echo $?");
        EXPECT_EQ(outcome.out, "1\n") << fault;
        return outcome.err;
    };
    EXPECT_EQ(failure_of("drop"), "vxpadctl: pad 1 does not answer\n");
    EXPECT_EQ(failure_of("wrong-result"), "vxpadctl: pad 1 refuses the request with result 2\n");
    EXPECT_EQ(failure_of("wrong-component"), "vxpadctl: the answer of pad 1 makes no sense:\n"
                                             "0000  04 02 00 10 01 00                                 |......|\n");
    EXPECT_EQ(failure_of("replace=0302001001ff"), "vxpadctl: the answer of pad 1 makes no sense:\n"
                                                  "0000  03 02 00 10 01 ff                                 |......|\n");
}

TEST_P(VxpadctlSsp, TracesBesideTheResult) {
    const auto outcome = run({pad()}, "vxpadctl ssp modes 1 --json --trace");
    EXPECT_THAT(outcome.out, StartsWith("[{\"id\": 0, \"type\": 0, \"name\": \"signature\"}"));
    EXPECT_THAT(outcome.err, HasSubstr("ssp_common_ct_signpad_initialize_modes_id_table(): enter."));
}

// The first run tells which transfer carries the request that the second run is to lose the pad at.
TEST_P(VxpadctlSsp, SaysThatThePadIsGone) {
    const bool is_vcom = std::string(GetParam()) == "--vcom";
    const std::string transfers = is_vcom ? "bulk" : "feature";
    const std::string fault = is_vcom ? "bulk-out" : "set-feature";
    const auto outcome = run({pad()}, "vxpadctl ssp modes 1 >/dev/null\n"
                                      "before=$(vxpad-emulator-control log 1 | grep '^out " +
                                          transfers +
                                          "' | grep -n aa5502010200120000 | cut -d: -f1)\n"
                                          "vxpad-emulator-control fault 1 unplug,on=" +
                                          fault + ",after=$((before - 1))\nvxpadctl ssp modes 1");
    // libusb may have lines of its own to say in front.
    EXPECT_THAT(outcome.err, EndsWith("vxpadctl: pad 1 is gone: it was pulled out, or cannot be opened again\n"));
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Vxpadctl, ReceivesPenDataAndSwitchesItOffAgain) {
    const auto outcome = run({"--vcom=type=16,pen-rate=200,pen-size=8"},
                             "vxpadctl ssp receive 1 --pen-data --count 3 --timeout 20000 && "
                             "vxpad-emulator-control ssp 1 | grep -o 'biodata=.'; vxpadctl list");
    EXPECT_THAT(outcome.out, StartsWith("0000  00 00 2c 01 08 02 90 01                           |..,.....|\n\n"
                                        "0000  01 00 40 01 f6 01 95 01                           |..@.....|\n\n"
                                        "0000  02 00 59 01 e0 01 cf 01                           |..Y.....|\n"
                                        "biodata=0\n#"));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, WritesPenDataAndMessagesAsJson) {
    const auto outcome =
        run({"--vcom=type=16,pen-rate=200,pen-size=8"},
            "vxpadctl ssp receive 1 --pen-data --count 2 --timeout 20000 --json --layout x=2:u16le | sed 's/[^,]*,//'\n"
            "while vxpad-emulator-control send 1 aa55020b0100abcd; do sleep 0.02; "
            "done >/dev/null 2>&1 & feeder=$!\n"
            "vxpadctl ssp receive 1 --timeout 20000 --json\n"
            "kill $feeder; wait $feeder");
    EXPECT_EQ(outcome.out, " \"x\": 300}\n \"x\": 320}\n{\"time\": 0.000000, \"bytes\": \"0b0100abcd\"}\n");
}

// Also while there is always a record to take.
TEST_F(Vxpadctl, SwitchesPenDataOffWhenInterrupted) {
    const std::string records = quoted(directory_ / "records");
    const auto outcome =
        run({"--vcom=type=16,pen-rate=2000"},
            "mkfifo " + records + "\nvxpadctl ssp receive 1 --pen-data --timeout 20000 --count 1000000 >" + records +
                " & reader=$!\n{ read line && kill -TERM $reader; cat >/dev/null; } <" + records +
                "\nwait $reader; echo $?; vxpad-emulator-control ssp 1 | grep -o 'biodata=.'");
    EXPECT_EQ(outcome.out, "130\nbiodata=0\n");
    EXPECT_EQ(outcome.err, "vxpadctl: interrupted\n");
}

TEST_F(Vxpadctl, PenDataOfHidPadsIsInputReports) {
    const auto outcome =
        run({one_pad}, while_report_comes("1", std::string(128, '5'),
                                          "vxpadctl ssp receive 1 --pen-data --interface 1 --timeout 20000"));
    EXPECT_THAT(outcome.out, StartsWith("0000  55 55 55 55"));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, SaysThatNoPenDataCame) {
    const auto outcome = run({"--vcom=pen-rate=0"}, "vxpadctl ssp receive 1 --pen-data --timeout 30; echo $?; "
                                                    "vxpad-emulator-control ssp 1 | grep -o 'biodata=.'");
    EXPECT_EQ(outcome.out, "1\nbiodata=0\n");
    EXPECT_EQ(outcome.err, "vxpadctl: no pen data came within 30 ms\n");
}

TEST_F(Vxpadctl, ReceivesMessagesThatThePadSends) {
    const auto outcome = run({"--pad=type=16"}, "while vxpad-emulator-control send 1 aa55020b0100abcd; do sleep 0.02; "
                                                "done >/dev/null 2>&1 & feeder=$!\n"
                                                "vxpadctl ssp receive 1 --timeout 20000 --count 2\n"
                                                "status=$?; kill $feeder; wait $feeder; exit $status");
    const std::string line = "0000  0b 01 00 ab cd                                    |.....|\n";
    EXPECT_EQ(outcome.out, line + "\n" + line);
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, SspCommandsTellPadsThatDoNotSpeakIt) {
    for (const char* command :
         {"ssp components 1", "ssp modes 1", "ssp description 1", "ssp connection 1", "ssp connection 1 set 1",
          "config set 1 k v", "config persist 1 k", "config state 1", "ssp send 1 --component signpad --message 16"}) {
        const auto outcome = run({"--pad=type=13"}, "vxpadctl " + std::string(command));
        EXPECT_EQ(outcome.out, "") << command;
        EXPECT_EQ(outcome.err, "vxpadctl: pad 1 does not answer\n"
                               "It does not speak SSP, or it is stuck. To see the library's own account, add "
                               "--trace.\n")
            << command;
        EXPECT_EQ(outcome.status, 1) << command;
    }
}

TEST_F(Vxpadctl, ButtonsAreForSomePadsOnly) {
    for (const char* command : {"button input 1", "button event 1 0", "button set 1 0 ok 1 2", "button refresh 1 0"}) {
        const auto outcome = run({"--pad=type=13,ssp=yes"}, "vxpadctl " + std::string(command));
        EXPECT_EQ(outcome.err, "vxpadctl: pad 1 is of type 13; only pads of the types 15 to 17 can be asked for "
                               "buttons\n")
            << command;
        EXPECT_EQ(outcome.status, 1) << command;
    }
    const auto outcome = run({"--pad=type=16"}, "vxpadctl button set 1 signature zoom-in 1 2");
    EXPECT_EQ(outcome.err, "vxpadctl: mode signature has no button zoom-in\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Vxpadctl, SspCommandsAreForTheirPadAlone) {
    const auto outcome =
        run({"--pad=type=16,serial=A", "--pad=type=17,serial=B", "--vcom=type=15,serial=C"},
            "vxpadctl ssp connection 2 set 4; for pad in 1 2 3; do vxpadctl ssp connection $pad --json; "
            "vxpadctl ssp description $pad; done | grep -v Firmware");
    EXPECT_EQ(outcome.out, "pad 2 was told to use connection type 4 (it does not answer that)\n"
                           "{\"connection\": 0}\nSignpad id:     f1a0:1001\nSignpad serial: A\n"
                           "{\"connection\": 4}\nSignpad id:     f1a0:1101\nSignpad serial: B\n"
                           "{\"connection\": 0}\nSignpad id:     f1a0:0f01\nSignpad serial: C\n");
}

TEST_F(Vxpadctl, SspCommandsWithoutPadsSaySo) {
    for (const char* command :
         {"ssp components 1", "ssp receive 1", "ssp send 1 00", "config state 1", "button input 1"}) {
        const auto outcome = run({}, "vxpad-emulator-control unplug 1; vxpadctl " + std::string(command));
        EXPECT_THAT(outcome.err, AllOf(StartsWith("vxpadctl: there is no pad 1\nno pad found"), HasSubstr("7c01")))
            << command;
        EXPECT_EQ(outcome.status, 1) << command;
    }
}

TEST_F(Vxpadctl, SspCommandsRefuseInterfacesThatAreNotThere) {
    const auto outcome = run({"--vcom=type=16"}, "vxpadctl ssp send 1 --interface 1 00000010");
    EXPECT_EQ(outcome.err, "vxpadctl: there is no interface 1: pad 1 has 1, counted from 0\n");
    EXPECT_EQ(outcome.status, 1);
}
