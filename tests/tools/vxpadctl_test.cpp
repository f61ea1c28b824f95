// vxpadctl as people run it, over virtual pads.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

namespace fs = std::filesystem;

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

std::string contents(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

std::string quoted(const std::string& word) {
    std::string text = "'";
    for (const char c : word)
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'";
}

class Vxpadctl : public testing::Test {
  protected:
    Vxpadctl() {
        std::string name = testing::TempDir() + "vxpad-XXXXXX";
        directory_ = ::mkdtemp(name.data());
    }
    ~Vxpadctl() override { fs::remove_all(directory_); }

    // Runs a shell command among virtual pads.
    Outcome run(const std::vector<std::string>& emulator_options, const std::string& script) const {
        std::ostringstream command;
        command << "timeout -k 5 50 " << quoted(PROGRAM_DIRECTORY "/vxpad-emulator") << " run";
        for (const std::string& option : emulator_options)
            command << ' ' << quoted(option);
        command << " -- sh -c " << quoted("PATH=" PROGRAM_DIRECTORY ":$PATH\n" + script) << " >"
                << quoted(directory_ / "out") << " 2>" << quoted(directory_ / "err");
        const int status = std::system(command.str().c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(directory_ / "out"),
                contents(directory_ / "err")};
    }

    fs::path directory_;
};

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
                           "Feature report: 64 bytes\n");
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
    EXPECT_EQ(outcome.status, 1);
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

TEST_F(Vxpadctl, AResultThatCannotBeWrittenIsAFailure) {
    const auto outcome = run({one_pad}, "vxpadctl list >/dev/full");
    EXPECT_THAT(outcome.err, HasSubstr("cannot write the result"));
    EXPECT_EQ(outcome.status, 1);
}
