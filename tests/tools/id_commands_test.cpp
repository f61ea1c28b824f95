// Ids that files add, as people use them: vxpadctl over virtual pads of an unknown vendor.
#include "vxpadctl_test.hpp"

#include <filesystem>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace vxpadctl_test;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class Ids : public Vxpadctl {
  protected:
    // For the emulator and the command alike.
    std::string in_folder(const std::string& script) const {
        return "export VXPADCOM_IDS=" + quoted(directory_) + "\n" + script;
    }

    const std::string hid_ = "--pad=vendor=1234,id=5678,serial=S,maker=Acme,product=Desk";
    const std::string vcom_ = "--vcom=vendor=1234,id=9abc,serial=V,maker=Acme,product=Counter";
};

TEST_F(Ids, APadOfUnknownIdsIsNotFoundAndTheWayToItIsTold) {
    const auto outcome = run({hid_}, "vxpadctl list");
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("no pad found"), HasSubstr("1234:5678"),
                                   HasSubstr("sudo vxpadctl ids add 1234 5678 --transport hid --type 16"),
                                   HasSubstr("\n    1234 5678 hid 16 ")));
    EXPECT_THAT(run({vcom_}, "vxpadctl list").err, HasSubstr("vxpadctl ids add 1234 9abc --transport vcom --type 16"));
}

TEST_F(Ids, AFileOfTheEmulatorsHasThePadsOfBothTransportsFound) {
    const std::string file = write("my.ids", "# ours\n1234 5678 hid 11 Desk pad\n1234 9abc vcom 17 Counter pad\n");
    const auto outcome =
        run({hid_, vcom_, "--ids=" + file}, "vxpadctl list && vxpadctl info 1 && vxpadctl ssp modes 2");
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("1  HID        Acme   Desk     S       1234:5678"),
                                   HasSubstr("2  VCOM       Acme   Counter  V       1234:9abc"), HasSubstr("doc-sign"),
                                   HasSubstr("SSP:            no\n"))) // as pads of type 11
        << outcome.out;
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Ids, TheEnvironmentNamesAFileForBothPrograms) {
    const std::string file = write("my.ids", "1234 9abc vcom 17\n");
    ASSERT_EQ(::setenv("VXPADCOM_IDS", file.c_str(), 1), 0);
    const auto outcome = run({vcom_}, "vxpadctl list; vxpadctl button input 1");
    ::setenv("VXPADCOM_IDS", "", 1);
    EXPECT_THAT(outcome.out, HasSubstr("1  VCOM       Acme   Counter  V       1234:9abc"));
    EXPECT_EQ(outcome.err, "") << "type 17 has buttons";
}

// It tells ids of its own, which the table knows.
TEST_F(Ids, AVcomPadThatTellsOtherIdsIsFoundByThoseOnTheBus) {
    write("a.ids", "1234 9abc vcom 17\n");
    const auto outcome =
        run({vcom_ + ",told-vendor=4242,told-id=1"}, in_folder("vxpadctl list; vxpadctl button input 1"));
    EXPECT_THAT(outcome.out, HasSubstr("1  VCOM       Acme   Counter  V       4242:0001"));
    EXPECT_EQ(outcome.err, "");
}

TEST_F(Ids, ABadLineIsTold) {
    write("a.ids", "1234 5678 usb 16\n");
    const auto pads = run({hid_}, in_folder("vxpadctl list"));
    EXPECT_THAT(pads.err,
                AllOf(HasSubstr("no pad found"), HasSubstr("left out: " + directory_.string() +
                                                           "/a.ids:1: the transport is neither hid nor vcom")));
    const auto listed = run_alone(in_folder("vxpadctl ids"));
    EXPECT_THAT(listed.err, HasSubstr("/a.ids:1: the transport is neither hid nor vcom"));
    EXPECT_EQ(listed.status, 1);
    const auto traced = run({hid_}, in_folder("vxpadctl list --trace"));
    EXPECT_THAT(traced.err, HasSubstr("error: core_initialize(): " + directory_.string() + "/a.ids:1: the transport"));
    const auto emulator = run({hid_, "--ids=" + directory_.string() + "/a.ids"}, "true");
    EXPECT_THAT(emulator.err, HasSubstr("/a.ids:1: the transport is neither hid nor vcom"));
    EXPECT_EQ(emulator.status, 2);
}

TEST_F(Ids, AreListedWithTheirPlaces) {
    write("a.ids", "\n1234 5678 hid 16 Desk pad\nf1a0 0901 vcom 13 \"Mine\"\n");
    const std::string folder = directory_.string();
    const auto table = run_alone(in_folder("vxpadctl ids"));
    EXPECT_THAT(table.out,
                AllOf(StartsWith("ID         TRANSPORT  TYPE  NAME                FROM\n"
                                 "1234:5678  hid        16    Desk pad            " +
                                 folder + "/a.ids:2\n" + "f1a0:0901  vcom       13    \"Mine\"              " + folder +
                                 "/a.ids:3\n"
                                 "f1a0:0902  hid        9     -                   built in\n"),
                      HasSubstr("f1a0:7c01  vcom       -     -                   built in\n"),
                      HasSubstr("f1a5:7c03  vcom       -     if made by Quillon  built in\n"),
                      Not(HasSubstr("f1a0:0901  hid"))));
    EXPECT_EQ(table.err, "");
    EXPECT_EQ(table.status, 0);
    const auto json = run_alone(in_folder("vxpadctl ids --json"));
    EXPECT_THAT(json.out,
                AllOf(StartsWith("[{\"vendor_id\": \"1234\", \"product_id\": \"5678\", \"transport\": \"hid\", "
                                 "\"type\": 16, \"name\": \"Desk pad\", \"maker\": null, \"file\": \"" +
                                 folder + "/a.ids\", \"line\": 2},\n"),
                      HasSubstr("\"name\": \"\\\"Mine\\\"\""),
                      HasSubstr("\"type\": null, \"name\": \"\", \"maker\": \"Quillon\", \"file\": null, "
                                "\"line\": null}")));
    // It is JSON.
    EXPECT_EQ(run_alone(in_folder("vxpadctl ids --json | python3 -c 'import json, sys; json.load(sys.stdin)'")).status,
              0);
}

TEST_F(Ids, WithoutAFileAreThoseThatAreBuiltIn) {
    const auto outcome = run_alone("export VXPADCOM_IDS=\nvxpadctl ids | grep -c 'built in$'; vxpadctl ids | wc -l");
    EXPECT_EQ(outcome.out, "65\n66\n"); // 54 HID pairs, 8 VCOM pairs and 3 makers of one more
}

TEST_F(Ids, AreAddedAndThenTheirPadIsFound) {
    const auto outcome =
        run({hid_}, in_folder("vxpadctl ids add 1234 0x5678 --transport hid --type 16 --name 'Desk pad'\n"
                              "cat $VXPADCOM_IDS/*.ids; vxpadctl list"));
    EXPECT_THAT(
        outcome.out,
        AllOf(StartsWith(directory_.string() + "/1234-5678.ids: 1234 5678 hid 16 Desk pad\n"),
              HasSubstr("/etc/udev/rules.d/70-vxpadcom-1234-5678.rules\n"),
              HasSubstr("\n    ACTION!=\"remove\", SUBSYSTEM==\"usb\", ENV{DEVTYPE}==\"usb_device\", "
                        "ATTR{idVendor}==\"1234\", ATTR{idProduct}==\"5678\", MODE=\"0660\", TAG+=\"uaccess\"\n"),
              HasSubstr("# vendor product transport type name\n1234 5678 hid 16 Desk pad\n"),
              HasSubstr("1  HID        Acme   Desk     S       1234:5678")));
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Ids, AreNotAddedTwice) {
    write("a.ids", "\n1234 5678 hid 16\n");
    const auto known = run_alone(in_folder("vxpadctl ids add 1234 5678 --transport vcom --type 17"));
    EXPECT_THAT(known.err, HasSubstr("1234:5678 stands in " + directory_.string() + "/a.ids:2 already"));
    EXPECT_EQ(known.status, 1);
    write("1235-0001.ids", "# kept\n");
    const auto there = run_alone(in_folder("vxpadctl ids add 1235 1 --transport hid --type 17"));
    EXPECT_THAT(there.err, HasSubstr("File exists"));
    EXPECT_EQ(there.status, 1);
    EXPECT_EQ(contents(directory_ / "1235-0001.ids"), "# kept\n");
}

TEST_F(Ids, WhatIsNoIdIsNotAdded) {
    for (const char* words : {"1234 5678 --transport usb --type 16", "1234 5678 --transport hid --type 14",
                              "1234 5678 --transport hid", "1234 5678 --type 16", "1234 0 --transport hid --type 16",
                              "1234 --transport hid --type 16", "1234 5678 x --transport hid --type 16",
                              "1234 5678 --transport hid --type 16 --name 'a\nffff ffff hid 16'"}) {
        const auto outcome = run_alone(
            in_folder(std::string("vxpadctl ids add ") + words + "\nstatus=$?; ls $VXPADCOM_IDS; exit $status"));
        EXPECT_EQ(outcome.status, 2) << words;
        EXPECT_EQ(outcome.out.find(".ids"), std::string::npos) << words;
    }
}

TEST_F(Ids, AreAddedToTheUsersFolder) {
    // Root's go to the system's, which is no test's business.
    std::filesystem::permissions(directory_, std::filesystem::perms::all);
    const auto outcome =
        run_alone("unset VXPADCOM_IDS; export XDG_CONFIG_HOME=" + quoted(directory_ / "config") + "\n" + as_somebody() +
                  "$(command -v vxpadctl) ids add 1234 5678 --transport hid --type 8");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(contents(directory_ / "config/vxpadcom/ids.d/1234-5678.ids"),
              "# vendor product transport type name\n1234 5678 hid 8\n");
}

TEST_F(Ids, ThatHaveNoPlaceAreTold) {
    std::filesystem::permissions(directory_, std::filesystem::perms::all);
    write("file", "");
    const std::string add = as_somebody() + "$(command -v vxpadctl) ids add 1234 5678 --transport hid --type 8\n";
    const auto outcome = run_alone("unset VXPADCOM_IDS HOME XDG_CONFIG_HOME\n" + add +
                                   "export XDG_CONFIG_HOME=" + quoted(directory_ / "file") + "\n" + add);
    EXPECT_EQ(outcome.err, "vxpadctl: you have no home directory. The line for a file of your own:\n1234 5678 hid 8\n"
                           "vxpadctl: cannot make " +
                               directory_.string() + "/file/vxpadcom/ids.d: Not a directory\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(Ids, WhatCannotBeReadIsToldAsAWhole) {
    const auto outcome = run_alone("VXPADCOM_IDS=$(printf '/\\033[1mnowhere') vxpadctl ids");
    EXPECT_EQ(outcome.err, "vxpadctl: left out: /\\x1b[1mnowhere: cannot be read: No such file or directory\n");
    EXPECT_EQ(outcome.status, 1);
}

// Only root can make a program that runs with other rights than its user's.
TEST_F(Ids, OfTheEnvironmentAreNotReadWithOtherRights) {
    struct statvfs facts {};
    if (::geteuid() != 0 || ::statvfs(directory_.c_str(), &facts) != 0 || (facts.f_flag & ST_NOSUID) != 0) {
        GTEST_SKIP() << "there can be no setuid program here";
    }
    namespace fs = std::filesystem;
    fs::permissions(directory_, fs::perms::all);
    const fs::path program = directory_ / "named-ids";
    fs::copy_file(PROGRAM_DIRECTORY "/vxpad-test-named-ids", program);
    const std::string of_somebody = as_somebody() + quoted(program);
    EXPECT_EQ(run_alone(in_folder(of_somebody)).out, "named\n");
    fs::permissions(program, static_cast<fs::perms>(04755));
    EXPECT_EQ(run_alone(in_folder(of_somebody)).out, "not named\n");
}

TEST_F(Ids, AreNotAddedWhereAFileIsNamed) {
    const std::string file = write("only", "");
    const auto outcome =
        run_alone("export VXPADCOM_IDS=" + quoted(file) + "\nvxpadctl ids add 1234 5678 --transport hid --type 16");
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("VXPADCOM_IDS is "), HasSubstr("\n1234 5678 hid 16\n")));
    EXPECT_EQ(outcome.status, 1);
}

} // namespace
