// Where files of ids are looked for, which of them count, and what stands in their way without doing harm.
#include "support/id_files.hpp"

#include "captures.hpp"
#include "setuid_process.hpp"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace fs = std::filesystem;

namespace {

constexpr uid_t nobody = 65534;

struct Found {
    std::vector<std::string> ids;        // "name of the file:line name"
    std::vector<std::string> complaints; // "name of the file:line: what"
};

std::string name_of(const id_files::Place& place) {
    return fs::path(place.file).filename().string() + ":" + std::to_string(place.line);
}

Found read(const id_files::Places& places) {
    Found found;
    const auto take = [](void* context, const id_lines::Id& id, const id_files::Place& place) {
        static_cast<Found*>(context)->ids.push_back(name_of(place) + " " + id.name);
    };
    const auto complain = [](void* context, const id_files::Place& place, const char* what) {
        static_cast<Found*>(context)->complaints.push_back(name_of(place) + ": " + what);
    };
    id_files::read(places, {&found, take, complain});
    return found;
}

class IdFiles : public testing::Test {
  protected:
    IdFiles() {
        std::string name = testing::TempDir() + "vxpad-ids-XXXXXX";
        root_ = ::mkdtemp(name.data());
        fs::permissions(root_, static_cast<fs::perms>(0755));
        fs::create_directories(user());
        fs::create_directories(system());
        system_ = system();
        config_.emplace("XDG_CONFIG_HOME", (root_ / "config").c_str());
    }
    ~IdFiles() override {
        is_setuid = false;
        fs::remove_all(root_);
    }

    fs::path user() const { return root_ / "config/vxpadcom/ids.d"; }
    fs::path system() const { return root_ / "etc"; }

    static std::string write(const fs::path& path, const std::string& text) {
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

    // As the environment says, with a system's folder of the test's own.
    id_files::Places places() const {
        id_files::Places found = id_files::find_places();
        EXPECT_STREQ(found.system, "/etc/vxpadcom/ids.d");
        found.system = system_.c_str();
        return found;
    }
    Found read_all() const { return read(places()); }

    Found read_named(const fs::path& path) const {
        const standins::EnvironmentGuard named("VXPADCOM_IDS", path.c_str());
        return read_all();
    }

    fs::path root_;
    std::string system_;
    standins::EnvironmentGuard no_name_{"VXPADCOM_IDS", nullptr};
    std::optional<standins::EnvironmentGuard> config_;
};

TEST_F(IdFiles, WithoutAnyNothingIsReadAndNothingIsSaid) {
    fs::remove_all(user());
    fs::remove_all(system());
    EXPECT_THAT(read_all().ids, IsEmpty());
    EXPECT_THAT(read_all().complaints, IsEmpty());
    fs::remove_all(root_ / "config");
    write(root_ / "config", "a file where a folder might be");
    EXPECT_THAT(read_all().complaints, IsEmpty());
}

TEST_F(IdFiles, OfTheUserComeBeforeThoseOfTheSystemAndByName) {
    write(system() / "a.ids", "1 1 hid 16 system");
    write(user() / "10.ids", "1 2 hid 16 ten\n\n1 3 vcom 17 more");
    write(user() / "9.ids", "1 4 hid 16 nine");
    write(user() / "1.ids", "1 5 hid 16 one");
    EXPECT_THAT(read_all().ids,
                ElementsAre("1.ids:1 one", "10.ids:1 ten", "10.ids:3 more", "9.ids:1 nine", "a.ids:1 system"));
    EXPECT_THAT(read_all().complaints, IsEmpty());
}

TEST_F(IdFiles, OnlyThoseThatAreCalledSo) {
    for (const char* name : {"a.ids~", "b.id", ".c.ids", ".ids", "ids", "d.ids.bak", "README"}) {
        write(user() / name, "rubbish");
    }
    EXPECT_THAT(read_all().ids, IsEmpty());
    EXPECT_THAT(read_all().complaints, IsEmpty());
}

TEST_F(IdFiles, TheFirstLineOfAPairCounts) {
    write(user() / "a.ids", "1 1 hid 16 mine\n1 1 vcom 16 again\n1 2 hid 16 other");
    write(user() / "b.ids", "1 1 hid 17 later");
    write(system() / "a.ids", "1 1 hid 17 system");
    const Found found = read_all();
    EXPECT_THAT(found.ids, ElementsAre("a.ids:1 mine", "a.ids:3 other"));
    EXPECT_THAT(found.complaints, ElementsAre("a.ids:2: the same vendor and product stand above"));
}

TEST_F(IdFiles, BadLinesAreLeftOutAndTold) {
    write(user() / "a.ids", "1 1 hid 16 good\nnonsense\n# comment\n1 2 hid 14 bad type\n1 3 hid 16 good too");
    const Found found = read_all();
    EXPECT_THAT(found.ids, ElementsAre("a.ids:1 good", "a.ids:5 good too"));
    EXPECT_THAT(found.complaints, ElementsAre("a.ids:2: the vendor id is not 1 to 4 hexadecimal digits above 0",
                                              "a.ids:4: the pad type is none of 1, 8 to 13 and 15 to 17"));
}

TEST_F(IdFiles, ANamedFileOrFolderTakesThePlaceOfAll) {
    write(user() / "a.ids", "1 1 hid 16 user");
    write(system() / "a.ids", "1 2 hid 16 system");
    fs::create_directory(root_ / "folder");
    write(root_ / "folder/b.ids", "1 3 hid 16 in a folder");
    EXPECT_THAT(read_named(write(root_ / "any.name", "1 4 hid 16 named")).ids, ElementsAre("any.name:1 named"));
    EXPECT_THAT(read_named(root_ / "folder").ids, ElementsAre("b.ids:1 in a folder"));
    EXPECT_THAT(read_named("").ids, IsEmpty());
    EXPECT_THAT(read_named("").complaints, IsEmpty());
    EXPECT_THAT(read_named(root_ / "nowhere").complaints,
                ElementsAre("nowhere:0: cannot be read: No such file or directory"));
    EXPECT_THAT(read_named(root_ / "nowhere").ids, IsEmpty());
}

TEST_F(IdFiles, AHomeIsWhereTheUsersFolderIsUnlessAnotherIsNamed) {
    const standins::EnvironmentGuard home("HOME", "/home/someone");
    EXPECT_EQ(places().user, user());
    {
        const standins::EnvironmentGuard none("XDG_CONFIG_HOME", nullptr);
        EXPECT_STREQ(places().user, "/home/someone/.config/vxpadcom/ids.d");
        const standins::EnvironmentGuard homeless("HOME", nullptr);
        EXPECT_STREQ(places().user, "");
    }
    {
        const standins::EnvironmentGuard none("XDG_CONFIG_HOME", nullptr);
        const standins::EnvironmentGuard no_path("HOME", "home/someone");
        EXPECT_STREQ(places().user, "");
    }
    for (const char* no_path : {"", "relative/path"}) {
        const standins::EnvironmentGuard ignored("XDG_CONFIG_HOME", no_path);
        EXPECT_STREQ(places().user, "/home/someone/.config/vxpadcom/ids.d") << no_path;
    }
    const std::string endless = "/" + std::string(5000, 'x');
    const standins::EnvironmentGuard too_long("XDG_CONFIG_HOME", endless.c_str());
    EXPECT_STREQ(places().user, "");
}

TEST_F(IdFiles, ASetuidProgramReadsTheSystemsOnly) {
    write(user() / "a.ids", "1 1 hid 16 user");
    write(system() / "a.ids", "1 2 hid 16 system");
    const std::string named = write(root_ / "named", "1 3 hid 16 named");
    const standins::EnvironmentGuard name("VXPADCOM_IDS", named.c_str());
    const standins::EnvironmentGuard home("HOME", (root_ / "home").c_str());
    fs::create_directories(root_ / "home/.config/vxpadcom/ids.d");
    write(root_ / "home/.config/vxpadcom/ids.d/a.ids", "1 4 hid 16 home");
    EXPECT_THAT(read_all().ids, ElementsAre("named:1 named"));
    is_setuid = true;
    EXPECT_THAT(read_all().ids, ElementsAre("a.ids:1 system"));
}

// What is no file: none of it may be waited for.
TEST_F(IdFiles, WhatIsNoFileIsLeftOut) {
    write(user() / "a.ids", "1 1 hid 16 good");
    fs::create_directory(user() / "b.ids");
    ASSERT_EQ(::mkfifo((user() / "c.ids").c_str(), 0600), 0);
    fs::create_symlink("/dev/zero", user() / "d.ids");
    fs::create_symlink("nowhere", user() / "e.ids");
    fs::create_symlink("f.ids", user() / "f.ids");
    write(user() / "g.ids", "1 2 hid 16 good too");
    const Found found = read_all();
    EXPECT_THAT(found.ids, ElementsAre("a.ids:1 good", "g.ids:1 good too"));
    EXPECT_THAT(found.complaints, ElementsAre("b.ids:0: is no file", "c.ids:0: is no file", "d.ids:0: is no file",
                                              HasSubstr("e.ids:0: cannot be read: No such"),
                                              HasSubstr("f.ids:0: cannot be read: Too many")));
    EXPECT_THAT(read_named(user() / "c.ids").complaints, ElementsAre("c.ids:0: is no file"));
    EXPECT_THAT(read_named("/dev/zero").complaints, ElementsAre("zero:0: is no file"));
}

// Opening a device may do something, and whoever writes to a pipe would see a reader.
TEST_F(IdFiles, WhatIsNoFileIsNotEvenOpened) {
    const fs::path pipe = user() / "a.ids";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    write(root_ / "file", "");
    const int watch = ::inotify_init1(IN_NONBLOCK);
    ASSERT_GE(watch, 0);
    char events[4096];
    ASSERT_GE(::inotify_add_watch(watch, (root_ / "file").c_str(), IN_OPEN), 0);
    read_named(root_ / "file");
    EXPECT_GT(::read(watch, events, sizeof events), 0);
    ASSERT_GE(::inotify_add_watch(watch, pipe.c_str(), IN_OPEN), 0);
    EXPECT_THAT(read_all().complaints, ElementsAre("a.ids:0: is no file"));
    EXPECT_EQ(::read(watch, events, sizeof events), -1);
    ::close(watch);
}

// Nothing is denied to root.
int as_nobody(const std::function<bool()>& check) {
    const pid_t child = ::fork();
    if (child == 0) {
        if (::geteuid() == 0 && ::setresuid(nobody, nobody, nobody) != 0) {
            ::_exit(2);
        }
        ::_exit(check() ? 0 : 1);
    }
    int status = -1;
    return ::waitpid(child, &status, 0) == child ? status : -1;
}

TEST_F(IdFiles, WhatMayNotBeReadIsLeftOut) {
    write(user() / "a.ids", "1 1 hid 16 secret");
    fs::permissions(user() / "a.ids", fs::perms::none);
    write(user() / "b.ids", "1 2 hid 16 good");
    fs::permissions(system(), fs::perms::none);
    EXPECT_EQ(as_nobody([&] {
                  const Found found = read_all();
                  return found.ids == std::vector<std::string>{"b.ids:1 good"} && found.complaints.size() == 2 &&
                         found.complaints[0] == "a.ids:0: cannot be read: Permission denied" &&
                         found.complaints[1] == "etc:0: cannot be read: Permission denied";
              }),
              0);
    fs::permissions(system(), fs::perms::owner_all);
}

TEST_F(IdFiles, AFolderThatCannotBeReadIsTold) {
    fs::remove_all(user());
    fs::create_symlink("ids.d", user());
    write(system() / "a.ids", "1 1 hid 16 system");
    const Found found = read_all();
    EXPECT_THAT(found.ids, ElementsAre("a.ids:1 system"));
    EXPECT_THAT(found.complaints, ElementsAre("ids.d:0: cannot be read: Too many levels of symbolic links"));
}

// It can be opened, but has nothing at its start.
TEST_F(IdFiles, AFileWhoseBytesCannotBeReadIsLeftOut) {
    fs::create_symlink("/proc/self/mem", user() / "a.ids");
    write(user() / "b.ids", "1 2 hid 16 good");
    const Found found = read_all();
    EXPECT_THAT(found.ids, ElementsAre("b.ids:1 good"));
    EXPECT_THAT(found.complaints, ElementsAre("a.ids:0: cannot be read: Input/output error"));
}

TEST_F(IdFiles, AHugeFileIsReadUpToALimit) {
    write(user() / "a.ids", "1 1 hid 16 good\n");
    fs::resize_file(user() / "a.ids", 1ULL << 40); // without a block behind the first one
    write(user() / "b.ids", "1 2 hid 16 good too");
    const Found found = read_all();
    EXPECT_THAT(found.ids, ElementsAre("a.ids:1 good", "b.ids:1 good too"));
    EXPECT_THAT(found.complaints, ElementsAre("a.ids:2: the file is longer than 1 MiB, from here on it is left out"));
}

TEST_F(IdFiles, AFileMayBeAsLongAsTheLimit) {
    std::string text = std::string(id_files::longest_file - 17, '\n') + "1 1 hid 16 at end";
    write(user() / "a.ids", text);
    EXPECT_THAT(read_all().complaints, IsEmpty());
    EXPECT_THAT(read_all().ids, SizeIs(1));
    write(user() / "a.ids", text + "s");
    EXPECT_THAT(read_all().complaints, ElementsAre(HasSubstr("longer than 1 MiB")));
    EXPECT_THAT(read_all().ids, IsEmpty());
}

TEST_F(IdFiles, AMillionBadLinesAreToldInTen) {
    std::string lines;
    for (int i = 0; i < 1'000'000; ++i) {
        lines += "x\n";
    }
    write(user() / "a.ids", lines);
    write(user() / "b.ids", "y\n1 2 hid 16 good");
    const Found found = read_all();
    EXPECT_THAT(found.ids, ElementsAre("b.ids:2 good"));
    ASSERT_THAT(found.complaints, SizeIs(12));
    EXPECT_EQ(found.complaints[9], "a.ids:10: this line and perhaps more below are left out");
    EXPECT_THAT(found.complaints[10], HasSubstr("longer than 1 MiB"));
    EXPECT_THAT(found.complaints[11], HasSubstr("b.ids:1: the vendor id")) << "counted for each file";
}

TEST_F(IdFiles, OnlySoManyIdsAreTaken) {
    std::string lines;
    char line[64];
    for (unsigned int i = 1; i <= id_files::most_ids + 3; ++i) {
        std::snprintf(line, sizeof line, "1 %x hid 16 number %u\n", i, i);
        lines += line;
    }
    write(user() / "a.ids", lines + "what is left out is not judged either\n");
    write(user() / "b.ids", "2 1 hid 16 later");
    fs::create_directory(user() / "c.ids");
    const Found found = read_all();
    ASSERT_THAT(found.ids, SizeIs(id_files::most_ids));
    EXPECT_EQ(found.ids.back(), "a.ids:256 number 256");
    EXPECT_THAT(found.complaints, ElementsAre("a.ids:257: there are more than 256 ids, the rest is left out"));
}

TEST_F(IdFiles, OnlyTheFirstFilesByNameAreRead) {
    for (int i = 70; i > 0; --i) { // whatever order the folder has them in
        const std::string number = std::to_string(100 + i);
        write(user() / (number + ".ids"), "1 " + number + " hid 16 " + number);
    }
    const Found found = read_all();
    ASSERT_THAT(found.ids, SizeIs(id_files::most_files));
    for (std::size_t i = 0; i < found.ids.size(); ++i) {
        const std::string number = std::to_string(101 + i);
        EXPECT_EQ(found.ids[i], number + ".ids:1 " + number);
    }
    EXPECT_THAT(found.complaints,
                ElementsAre("ids.d:0: there are more than 64 files, the last ones by name are left out"));
}

TEST_F(IdFiles, AFolderFullOfOtherThingsHasAnEnd) {
    for (std::size_t i = 2; i < id_files::most_entries; ++i) { // beside . and ..
        write(user() / std::to_string(i), "");
    }
    EXPECT_THAT(read_all().complaints, IsEmpty());
    write(user() / "one more", "");
    EXPECT_THAT(read_all().complaints, ElementsAre("ids.d:0: there are more than 4096 entries, the rest is left out"));
}

TEST_F(IdFiles, LongNamesAreNoneTheWorse) {
    const std::string longest = std::string(251, 'n') + ".ids";
    write(user() / longest, "1 1 hid 16 good");
    EXPECT_THAT(read_all().ids, ElementsAre(longest + ":1 good"));
    std::string long_way = user();
    while (long_way.size() < id_files::longest_path - 6) {
        long_way += "/.";
    }
    EXPECT_THAT(read_named(long_way).complaints, ElementsAre(HasSubstr("a path in this folder is too long")));
    const std::string endless = "/" + std::string(100'000, 'x');
    EXPECT_THAT(read_named(endless).complaints, ElementsAre(HasSubstr("cannot be read: File name too long")));
}

// A folder that can still be named, and files in it that cannot.
TEST_F(IdFiles, PathsThatAreTooLongAreLeftOut) {
    fs::path folder = root_;
    while (folder.native().size() < 3800) {
        folder /= std::string(100, 'd');
    }
    fs::create_directories(folder);
    write(folder / "b.ids", "1 1 hid 16 good");
    const std::string last(std::size_t{4094} - folder.native().size(), 'l');
    fs::path longest = folder / last;
    ASSERT_LT(last.size(), 256U);
    ASSERT_EQ(longest.native().size(), id_files::longest_path);
    fs::create_directory(longest);
    const int directory = ::open(longest.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(directory, 0);
    const int file = ::openat(directory, "a.ids", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    EXPECT_GE(file, 0);
    ::close(file);
    const Found found = read_named(longest);
    EXPECT_THAT(found.ids, IsEmpty());
    EXPECT_THAT(found.complaints, ElementsAre(last + ":0: a path in this folder is too long"));
    EXPECT_THAT(read_named(folder).ids, ElementsAre("b.ids:1 good"));
    EXPECT_EQ(::unlinkat(directory, "a.ids", 0), 0);
    ::close(directory);
}

} // namespace
