// Uploads of files, as people make them.
#include "vxpadctl_test.hpp"

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;
using namespace vxpadctl_test;

namespace {

// Frames of 64 bytes whose order virtual pads check.
std::string frames(unsigned int count) {
    std::string text;
    for (unsigned int number = 0; number < count; ++number) {
        std::string frame = "upld";
        for (int shift = 0; shift < 32; shift += 8) {
            frame += static_cast<char>(number >> shift);
        }
        frame.resize(64, 'f');
        text += frame;
    }
    return text;
}

// Waits until a pad has got so many reports of an upload.
const std::string await_uploads = "await_uploads() { until [ \"$(vxpad-emulator-control uploads 1 | sed -n "
                                  "'s/received=\\([0-9]*\\) bytes.*/\\1/p')\" -ge $1 ]; do sleep 0.01; done; }\n";

} // namespace

TEST_F(Vxpadctl, UploadsAFileOverAllInterfaces) {
    const std::string file = quoted(write("image", frames(300) + "the end"));
    const auto outcome = run({"--pad=type=16,interfaces=3,unknown=loop-back"},
                             "vxpadctl upload 1 " + file + " && vxpad-emulator-control uploads 1 && " +
                                 "vxpad-emulator-control log 1 | grep -c " + "'74686520656e64'0*$");
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr(" bytes=19264 "), HasSubstr(" numbered=300 gaps=0 duplicates=0 "),
                      HasSubstr("\ninterface 0 "), HasSubstr("\ninterface 1 "), HasSubstr("\ninterface 2 "),
                      MatchesRegex("19207 bytes sent in [0-9.]+ s, [0-9.]+ KB/s\n"
                                   "received=301 bytes=19264 sizes=64:301 (.|\n)*\n1\n")));
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, UploadsToAVcomPad) {
    const std::string file = quoted(write("image", frames(100)));
    const auto outcome = run({"--vcom=type=16"}, "vxpadctl upload 1 " + file + " && vxpad-emulator-control uploads 1");
    EXPECT_THAT(outcome.out, AllOf(StartsWith("6400 bytes sent in "), HasSubstr("received=100 "),
                                   HasSubstr(" numbered=100 gaps=0 duplicates=0 out-of-order=0 ")));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, UploadsOverTheInterfacesOfTheMaskAlone) {
    const std::string file = quoted(write("image", frames(50)));
    const auto outcome =
        run({"--pad=type=16,interfaces=3"}, "vxpadctl upload 1 " + file +
                                                " --interfaces 0x12 && vxpad-emulator-control uploads 1\n"
                                                "vxpadctl upload 1 " +
                                                file + " --interfaces 8");
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("\ninterface 1 received=50 "), Not(HasSubstr("interface 0")),
                                   Not(HasSubstr("interface 2"))));
    EXPECT_EQ(outcome.err,
              "vxpadctl: none of these interfaces is there: pad 1 has 3, bit 0 of the mask is the first\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Vxpadctl, UploadOfAnUnpluggedPadTellsHowFarItCame) {
    const std::string file = quoted(write("image", frames(2000)));
    const auto outcome =
        run({"--vcom=type=16", "--fault=1:delay=5,on=bulk-out,after=10"}, await_uploads + "vxpadctl upload 1 " + file +
                                                                              " & uploader=$!\n"
                                                                              "await_uploads 20\n"
                                                                              "vxpad-emulator-control unplug 1\n"
                                                                              "wait $uploader");
    EXPECT_THAT(outcome.err, HasSubstr("vxpadctl: only "));
    EXPECT_THAT(outcome.err, HasSubstr(" of 128000 bytes were sent: pad 1 was pulled out\n"));
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.status, 1);
}

// The pad is selected, the file is still being read.
TEST_F(Vxpadctl, UploadOfAPadThatGoesBeforeTheFirstPieceTellsThatNothingWasSent) {
    const std::string file = quoted(write("image", frames(100)));
    for (const char* pad : {"--pad=type=16,interfaces=2", "--vcom=type=16"}) {
        const auto outcome = run({pad}, "cd " + quoted(directory_) +
                                            "; rm -f pipe; mkfifo pipe\n"
                                            "vxpadctl upload 1 pipe & uploader=$!\n"
                                            "exec 3>pipe\n" // waits for the reader
                                            "vxpad-emulator-control unplug 1\n"
                                            "cat " +
                                            file +
                                            " >&3; exec 3>&-\n"
                                            "wait $uploader");
        EXPECT_EQ(outcome.err, "vxpadctl: only 0 of 6400 bytes were sent: pad 1 was pulled out\n") << pad;
        EXPECT_EQ(outcome.out, "") << pad;
        EXPECT_EQ(outcome.status, 1) << pad;
    }
}

TEST_F(Vxpadctl, UploadThatAnInterfaceFailsIsAFailure) {
    const std::string file = quoted(write("image", frames(200)));
    const auto outcome = run({"--pad=type=11,interfaces=1", "--fault=1:stall,on=set-feature,after=60,count=14"},
                             "vxpadctl upload 1 " + file);
    EXPECT_THAT(outcome.err, MatchesRegex("vxpadctl: only [0-9]+ of 12800 bytes were sent: an interface failed .*\n"));
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Vxpadctl, UploadsCanBeInterrupted) {
    const std::string file = quoted(write("image", frames(20000)));
    const auto outcome = run({"--pad=type=11,interfaces=1", "--fault=1:delay=2,on=set-feature,after=20"},
                             await_uploads + "vxpadctl upload 1 " + file +
                                 " & uploader=$!\n"
                                 "await_uploads 20\n"
                                 "kill -INT $uploader; wait $uploader; echo status $?\n"
                                 "vxpad-emulator-control uploads 1 | grep -o bytes=[0-9]*");
    EXPECT_THAT(outcome.out, StartsWith("status 130\nbytes="));
    const std::string bytes = outcome.out.substr(outcome.out.find("bytes=") + 6);
    EXPECT_EQ(outcome.err,
              "vxpadctl: only " + bytes.substr(0, bytes.find('\n')) + " of 1280000 bytes were sent: interrupted\n");
}

TEST_F(Vxpadctl, UploadShowsItsProgressOnATerminal) {
    const std::string file = write("image", frames(200));
    const auto outcome =
        run({"--pad=type=11,interfaces=2"},
            "TERM=xterm script -qefc " + quoted("vxpadctl upload 1 " + quoted(file)) + " /dev/null </dev/null");
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("[###-"), HasSubstr("\033[1A"), HasSubstr("] 100 %"),
                                   HasSubstr("12800 bytes sent in ")));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Vxpadctl, FilesThatCannotBeUploadedAreNamed) {
    const auto outcome = run({"--pad=type=11"}, "vxpadctl upload 1 " + quoted(directory_) +
                                                    "; vxpadctl upload 1 /dev/null; vxpadctl upload 1 /dev/zero; "
                                                    "vxpadctl upload 1 missing");
    EXPECT_THAT(outcome.err,
                AllOf(HasSubstr(": Is a directory\n"), HasSubstr("vxpadctl: /dev/null: there is nothing in it\n"),
                      HasSubstr("vxpadctl: /dev/zero: longer than 64 MiB\n"),
                      HasSubstr("vxpadctl: missing: No such file or directory\n")));
    EXPECT_EQ(outcome.status, 1);
}
