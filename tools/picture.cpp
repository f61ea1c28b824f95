#include "picture.hpp"

#include "printing.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vxpadctl {

namespace {

constexpr const char* converter = "rsvg-convert";

// Of the size that the SVG file asks for: what is made of pixels is to be looked at closely, too.
constexpr const char* zoom_of_pixels = "--zoom=2";
constexpr const char* zoom_of_paper = "--zoom=1";

[[noreturn]] void fail(const std::string& why) {
    throw std::runtime_error("cannot draw the picture: " + why);
}

// A file without a name, read from its beginning.
OwnedFile file_with(const std::string& text) {
    const int fd = ::memfd_create("signature.svg", MFD_CLOEXEC);
    OwnedFile file{fd < 0 ? nullptr : ::fdopen(fd, "w+")};
    if (!file) {
        fail(std::strerror(errno));
    }
    print(file.get(), text);
    flush(file.get());
    ::rewind(file.get());
    return file;
}

struct Pipe {
    OwnedFile read;
    OwnedFile write;
};

Pipe make_pipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        fail(std::strerror(errno));
    }
    return {OwnedFile{::fdopen(ends[0], "r")}, OwnedFile{::fdopen(ends[1], "w")}};
}

// Its standard error is ours.
pid_t start_converter(PictureFormat format, std::FILE* in, std::FILE* out) {
    posix_spawn_file_actions_t files;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawn_file_actions_adddup2(&files, ::fileno(in), STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&files, ::fileno(out), STDOUT_FILENO);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t defaults;
    ::sigemptyset(&defaults);
    ::sigaddset(&defaults, SIGPIPE);
    ::posix_spawnattr_setsigdefault(&attributes, &defaults);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

    std::string program = converter;
    std::string format_option = "--format=" + std::string(name_of(picture_formats, format));
    std::string zoom_option = format == png_format ? zoom_of_pixels : zoom_of_paper;
    std::array<char*, 4> words{program.data(), format_option.data(), zoom_option.data(), nullptr};
    pid_t child = 0;
    const int error = ::posix_spawnp(&child, converter, &files, &attributes, words.data(), environ);
    ::posix_spawn_file_actions_destroy(&files);
    ::posix_spawnattr_destroy(&attributes);
    if (error == ENOENT) {
        fail("PNG and PDF need the program rsvg-convert (Debian's package librsvg2-bin); SVG needs nothing");
    }
    if (error != 0) {
        fail(std::string(converter) + ": " + std::strerror(error));
    }
    return child;
}

bool ended_well(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return false;
        }
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace

std::string picture_of(const std::string& svg_file, PictureFormat format) {
    if (format == svg_format) {
        return svg_file;
    }
    const OwnedFile in = file_with(svg_file);
    Pipe out = make_pipe();
    const pid_t child = start_converter(format, in.get(), out.write.get());
    out.write.reset();
    std::string picture;
    std::array<char, 65536> buffer;
    while (const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), out.read.get())) {
        picture.append(buffer.data(), size);
    }
    if (!ended_well(child)) {
        fail(std::string(converter) + " failed");
    }
    return picture;
}

} // namespace vxpadctl
