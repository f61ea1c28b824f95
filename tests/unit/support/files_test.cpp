#include "support/lines.hpp"

#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

using standins::EnvironmentGuard;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

// What the library reads from the file under test; every other read is none of this test's business.
struct ReadWatch {
    std::atomic<bool> on = false;
    std::vector<ssize_t> results;
    std::atomic<int> fail_from = -1; // number of the first read that fails
};
ReadWatch watch;
std::atomic<bool> closes_behind = false; // whoever reads to the end or writes finds the descriptor closed

} // namespace

extern "C" ssize_t read(int descriptor, void* buffer, size_t count) {
    if (!watch.on) {
        return syscall(SYS_read, descriptor, buffer, count);
    }
    if (watch.fail_from >= 0 && watch.results.size() >= static_cast<std::size_t>(watch.fail_from)) {
        errno = EIO;
        watch.results.push_back(-1);
        return -1;
    }
    const ssize_t got = syscall(SYS_read, descriptor, buffer, count);
    watch.results.push_back(got);
    if (got == 0 && closes_behind) {
        close(descriptor);
    }
    return got;
}

extern "C" ssize_t write(int descriptor, const void* buffer, size_t count) {
    const ssize_t written = syscall(SYS_write, descriptor, buffer, count);
    if (closes_behind) {
        close(descriptor);
    }
    return written;
}

namespace {

using Image = std::unique_ptr<unsigned char, decltype(&std::free)>;

class Files : public testing::Test {
  protected:
    void SetUp() override {
        std::string name = testing::TempDir() + "vxpad-files-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        directory_ = name;
    }
    void TearDown() override {
        watch.on = false;
        watch.fail_from = -1;
        watch.results.clear();
        std::filesystem::remove_all(directory_);
    }

    std::string path(const std::string& name) const { return (directory_ / name).string(); }

    std::string file_with(const std::vector<unsigned char>& content, const std::string& name = "file") const {
        std::ofstream(path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
        return path(name);
    }

    static std::vector<unsigned char> content_of(const std::string& name) {
        std::ifstream file(name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    template <class Call> static std::string errors_of(Call call) { return lines::written(STDERR_FILENO, call); }

    template <class Call> static std::string information_of(Call call) {
        const EnvironmentGuard on(lines::debug_switch, "1");
        return lines::written(STDOUT_FILENO, call);
    }

    lines::AllSwitchesOff off_;
    std::filesystem::path directory_;
};

std::vector<unsigned char> counting(std::size_t size) {
    std::vector<unsigned char> bytes(size);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(1));
    return bytes;
}

// An error line that ends in the text of the error number.
auto ErrorLine(const std::string& text, int number) {
    return AllOf(HasSubstr(text), MatchesRegex("[^\n]*: " + std::string(strerror(number)) + "\n"));
}

TEST_F(Files, OpenGivesADescriptorWithTheFlagsAndModeAskedFor) {
    const mode_t former = umask(0);
    const int descriptor = Open(path("new").c_str(), O_RDWR | O_CREAT, 0620);
    umask(former);
    ASSERT_GE(descriptor, 0);
    struct stat facts {};
    ASSERT_EQ(fstat(descriptor, &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777U, 0620U);
    EXPECT_EQ(Write(descriptor, "text", 4), 4);
    EXPECT_EQ(lseek(descriptor, 0, SEEK_SET), 0);
    char text[10];
    EXPECT_EQ(Read(descriptor, text, sizeof text), 4);
    EXPECT_EQ(std::string(text, 4), "text");
    EXPECT_EQ(Close(descriptor), 0);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

TEST_F(Files, SuccessIsSilent) {
    const std::string errors = errors_of([&] {
        const int descriptor = Open(file_with({1, 2}).c_str(), O_RDWR, 0);
        char byte = 0;
        Read(descriptor, &byte, 1);
        Write(descriptor, &byte, 1);
        Close(descriptor);
    });
    EXPECT_EQ(errors, "");
}

TEST_F(Files, AFailedOpenNamesPathAndReason) {
    EXPECT_THAT(errors_of([&] { EXPECT_EQ(Open(path("none").c_str(), O_RDONLY, 0), -1); }),
                ErrorLine("open() for " + path("none"), ENOENT));
    EXPECT_THAT(errors_of([&] { EXPECT_EQ(Open("/dev/null/%s%n", O_RDONLY, 0), -1); }),
                ErrorLine("open() for /dev/null/%s%n", ENOTDIR));
}

TEST_F(Files, AFailedReadIsLogged) {
    char byte = 0;
    EXPECT_THAT(errors_of([&] { EXPECT_EQ(Read(-1, &byte, 1), -1); }), ErrorLine("read()", EBADF));
}

TEST_F(Files, AShortReadIsNoFailure) {
    const int descriptor = Open(file_with({1, 2}).c_str(), O_RDONLY, 0);
    char bytes[10];
    EXPECT_EQ(errors_of([&] {
                  EXPECT_EQ(Read(descriptor, bytes, 10), 2);
                  EXPECT_EQ(Read(descriptor, bytes, 10), 0);
              }),
              "");
    Close(descriptor);
}

TEST_F(Files, AFailedWriteIsLogged) {
    EXPECT_THAT(errors_of([] { EXPECT_EQ(Write(-1, "x", 1), -1); }), ErrorLine("write()", EBADF));
}

TEST_F(Files, AShortWriteIsLoggedAndItsCountReturned) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    const std::vector<unsigned char> too_much(10U << 20U);
    ssize_t written = 0;
    EXPECT_THAT(errors_of([&] { written = Write(ends[1], too_much.data(), too_much.size()); }), HasSubstr("write()"));
    EXPECT_GT(written, 0);
    EXPECT_LT(written, static_cast<ssize_t>(too_much.size()));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(Files, AFailedCloseIsInformationOnly) {
    EXPECT_EQ(errors_of([] { EXPECT_EQ(Close(-1), -1); }), "");
    const auto printed = lines::parse_output(information_of([] { EXPECT_EQ(Close(-1), -1); }));
    EXPECT_THAT(lines::texts(printed, lines::green), ElementsAre("error: Close(): close(): Bad file descriptor"));
    EXPECT_EQ(lines::written(STDOUT_FILENO, [] { Close(-1); }), "") << "with the switch off";
}

TEST_F(Files, LoadReadsAWholeFileInPieces) {
    const auto content = counting(10000);
    const std::string name = file_with(content);
    unsigned int size = 0;
    watch.on = true;
    const Image image(load_file(name.c_str(), &size), &std::free);
    watch.on = false;
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(size, 10000U);
    EXPECT_EQ(std::vector(image.get(), image.get() + 10000), content);
    EXPECT_THAT(watch.results, ElementsAre(4096, 4096, 1808, 0));
}

TEST_F(Files, LoadEndsAtPiecesOfEverySize) {
    for (const std::size_t length : {1U, 4095U, 4096U, 4097U, 8192U}) {
        const auto content = counting(length);
        unsigned int size = 0;
        const Image image(load_file(file_with(content).c_str(), &size), &std::free);
        ASSERT_NE(image, nullptr);
        EXPECT_EQ(size, length);
        EXPECT_EQ(std::vector(image.get(), image.get() + length), content);
    }
}

TEST_F(Files, LoadOfAnEmptyFileGivesNothingAndLeavesTheSizeAlone) {
    unsigned int size = 4711;
    EXPECT_EQ(load_file(file_with({}).c_str(), &size), nullptr);
    EXPECT_EQ(size, 4711U);
}

TEST_F(Files, LoadOfAMissingFileIsInformationOnly) {
    unsigned int size = 4711;
    const std::string name = path("none");
    EXPECT_EQ(errors_of([&] { EXPECT_EQ(load_file(name.c_str(), &size), nullptr); }), "");
    EXPECT_EQ(size, 4711U);
    EXPECT_THAT(information_of([&] { load_file(name.c_str(), &size); }), HasSubstr("Cannot open file: " + name));
}

TEST_F(Files, LoadSaysWhatItOpened) {
    const std::string name = file_with({1});
    unsigned int size = 0;
    EXPECT_THAT(information_of([&] { Image(load_file(name.c_str(), &size), &std::free); }),
                HasSubstr(name + " was opened\n"));
}

TEST_F(Files, LoadKeepsWhatItReadBeforeAFailure) {
    const auto content = counting(10000);
    const std::string name = file_with(content);
    unsigned int size = 0;
    std::string errors;
    watch.fail_from = 2;
    Image image(nullptr, &std::free);
    errors = errors_of([&] {
        watch.on = true;
        image.reset(load_file(name.c_str(), &size));
        watch.on = false;
    });
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(size, 8192U);
    EXPECT_EQ(std::vector(image.get(), image.get() + 8192), std::vector(content.begin(), content.begin() + 8192));
    EXPECT_THAT(errors, ErrorLine("read()", EIO));
}

TEST_F(Files, LoadClosesItsFile) {
    const std::string name = file_with({1, 2, 3});
    const int before = dup(STDOUT_FILENO);
    close(before);
    unsigned int size = 0;
    for (int i = 0; i < 3; ++i) {
        Image(load_file(name.c_str(), &size), &std::free);
    }
    const int after = dup(STDOUT_FILENO);
    close(after);
    EXPECT_EQ(after, before);
}

TEST_F(Files, LoadGivesWhatItReadThoughTheFileCannotBeClosed) {
    const std::string name = file_with({1, 2, 3});
    unsigned int size = 0;
    Image image(nullptr, &std::free);
    EXPECT_THAT(errors_of([&] {
                    watch.on = closes_behind = true;
                    image.reset(load_file(name.c_str(), &size));
                    watch.on = closes_behind = false;
                }),
                HasSubstr("Cannot close file: " + name));
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(std::vector(image.get(), image.get() + 3), (std::vector<unsigned char>{1, 2, 3}));
}

TEST_F(Files, LoadRefusesNullArguments) {
    unsigned int size = 4711;
    const std::string errors = errors_of([&] {
        EXPECT_EQ(load_file(nullptr, &size), nullptr);
        EXPECT_EQ(load_file("x", nullptr), nullptr);
    });
    EXPECT_EQ(size, 4711U);
    EXPECT_THAT(errors, HasSubstr("Wrong parameters: const char *name is (nil), unsigned int *image_size is 0x"));
    EXPECT_THAT(errors, MatchesRegex("(.|\n)*const char \\*name is 0x[0-9a-f]+, unsigned int \\*image_size is "
                                     "\\(nil\\)(.|\n)*"));
}

TEST_F(Files, SaveWritesEverythingAndReturnsTheCount) {
    const auto content = counting(10000);
    const std::string name = path("new");
    std::string information;
    EXPECT_EQ(errors_of([&] {
                  information =
                      information_of([&] { EXPECT_EQ(save_file(name.c_str(), content.data(), 10000), 10000); });
              }),
              "");
    EXPECT_EQ(content_of(name), content);
    EXPECT_THAT(information, AllOf(HasSubstr(name + " was opened for write\n"),
                                   HasSubstr("file: " + name + " was written successful\n")));
}

TEST_F(Files, SaveTruncatesAnExistingFile) {
    const std::string name = file_with(counting(500));
    EXPECT_EQ(save_file(name.c_str(), "ab", 2), 2);
    EXPECT_THAT(content_of(name), ElementsAre('a', 'b'));
    EXPECT_EQ(save_file(name.c_str(), "ab", 0), 0);
    EXPECT_THAT(content_of(name), IsEmpty());
}

TEST_F(Files, SaveCreatesWithMode0644BeforeTheUmask) {
    struct stat facts {};
    for (const mode_t mask : {0U, 077U}) {
        const std::string name = path(std::to_string(mask));
        const mode_t former = umask(mask);
        EXPECT_EQ(save_file(name.c_str(), "x", 1), 1);
        umask(former);
        ASSERT_EQ(stat(name.c_str(), &facts), 0);
        EXPECT_EQ(facts.st_mode & 07777U, 0644U & ~mask);
    }
}

TEST_F(Files, SaveReportsWhatItCannotClose) {
    const std::string name = path("new");
    EXPECT_THAT(errors_of([&] {
                    closes_behind = true;
                    EXPECT_EQ(save_file(name.c_str(), "ab", 2), 2);
                    closes_behind = false;
                }),
                HasSubstr("Cannot close file: " + name));
    EXPECT_THAT(content_of(name), ElementsAre('a', 'b'));
}

TEST_F(Files, SaveReportsWhatItCannotOpenOrWrite) {
    EXPECT_THAT(errors_of([] { EXPECT_EQ(save_file("/dev/null/x", "x", 1), -1); }),
                ErrorLine("Cannot open file /dev/null/x for writing", ENOTDIR));
    EXPECT_THAT(
        errors_of([] { EXPECT_EQ(save_file("/dev/full", "x", 1), -1); }),
        AllOf(HasSubstr("write()"), HasSubstr(strerror(ENOSPC)), HasSubstr("Cannot write buffer to file /dev/full")));
}

TEST_F(Files, SaveRefusesNullArguments) {
    const std::string name = path("none");
    const std::string errors = errors_of([&] {
        EXPECT_EQ(save_file(nullptr, "x", 1), -1);
        EXPECT_EQ(save_file(name.c_str(), nullptr, 1), -1);
    });
    EXPECT_FALSE(std::filesystem::exists(name));
    EXPECT_THAT(errors, HasSubstr("Wrong parameters: const char *name is (nil), char *buffer is 0x"));
    EXPECT_THAT(errors, MatchesRegex("(.|\n)*const char \\*name is 0x[0-9a-f]+, char \\*buffer is \\(nil\\)(.|\n)*"));
}

// The report of a failure, down to an application's logging callback, leaves errno as the call left it.
TEST_F(Files, FailuresKeepErrnoForTheirCaller) {
    RegisterLoggingCallBackProcedure(reinterpret_cast<void*>(+[](void*, const char16_t*) { errno = EDOM; }), nullptr);
    const std::string missing = path("missing/file");
    char text[4];
    errors_of([&] {
        EXPECT_EQ(Open(missing.c_str(), O_RDONLY, 0), -1);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(Read(-1, text, sizeof text), -1);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(Write(-1, text, sizeof text), -1);
        EXPECT_EQ(errno, EBADF);
    });
    RegisterLoggingCallBackProcedure(nullptr, nullptr);
}

} // namespace
