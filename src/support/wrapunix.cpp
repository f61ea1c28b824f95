// Checked memory and file calls.
#include "vxpadcom/internals/wrapunix.h"
#include "support/owners.hpp"
#include "support/switches.hpp"
#include "support/trace.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::size_t file_chunk = 4096;

// Tries twice more and then ends the process: nothing that the library does can go on without memory.
template <typename Allocate>
[[gnu::noinline]] void* allocate_after_failure(const trace::Location& where, const char* name, Allocate attempt) {
    constexpr useconds_t last_delay = 1100;
    for (useconds_t delay = 100;; delay += 500) {
        const int last_error = errno;
        trace::plain_error(where, "allocate memory by %s -> FAILURE, going to try again after usleep(%d)", name, delay);
        usleep(delay);
        if (delay == last_delay) {
            trace::fatal_error(where, last_error, name);
        }
        if (void* block = attempt()) {
            return block;
        }
    }
}

template <typename Allocate> void* allocate(const trace::Location& where, const char* name, Allocate attempt) {
    void* block = attempt();
    return block != nullptr ? block : allocate_after_failure(where, name, attempt);
}

// malloc(0) may give null, which is no failure.
std::size_t at_least_one(std::size_t size) {
    return size == 0 ? 1 : size;
}

// A failure is reported between the call and the caller, who wants to know the call's errno.
class KeptErrno {
  public:
    KeptErrno() = default;
    ~KeptErrno() { errno = number; }
    KeptErrno(const KeptErrno&) = delete;
    KeptErrno& operator=(const KeptErrno&) = delete;

    const int number = errno;
};

} // namespace

void* Malloc(size_t size) {
    return allocate(VX_HERE, "malloc()", [=] { return std::malloc(at_least_one(size)); });
}

void* Calloc(size_t count, size_t size) {
    return allocate(VX_HERE, "calloc()", [=] { return std::calloc(at_least_one(count), at_least_one(size)); });
}

void* Realloc(void* block, size_t size) {
    return allocate(VX_HERE, "realloc()", [=] { return std::realloc(block, at_least_one(size)); });
}

int Open(const char* path, int flags, mode_t mode) {
    const int fd = open(path, flags, mode);
    if (fd == -1) {
        const KeptErrno kept;
        trace::system_error(VX_HERE, kept.number, "open() for %s", path);
    }
    return fd;
}

ssize_t Read(int fd, void* buffer, size_t count) {
    const ssize_t result = read(fd, buffer, count);
    if (result == -1) {
        const KeptErrno kept;
        trace::system_error(VX_HERE, kept.number, "read()");
    }
    return result;
}

ssize_t Write(int fd, const void* buffer, size_t count) {
    const ssize_t result = write(fd, buffer, count);
    if (result < 0 || static_cast<std::size_t>(result) != count) {
        const KeptErrno kept;
        trace::system_error(VX_HERE, kept.number, "write()");
    }
    return result;
}

int Close(int fd) {
    const int result = close(fd);
    if (result == -1 && switches::is_on(switches::Switch::information)) {
        const KeptErrno kept;
        char reason[256];
        trace::print_line("\033[32m", VX_HERE, "error: %s(): close(): %s", __func__,
                          strerror_r(kept.number, reason, sizeof reason));
    }
    return result;
}

unsigned char* load_file(const char* name, unsigned int* image_size) {
    trace::Scope scope{VX_HERE};
    if (name == nullptr || image_size == nullptr) {
        trace::system_error(VX_HERE, errno, "Wrong parameters: const char *name is %p, unsigned int *image_size is %p",
                            static_cast<const void*>(name), static_cast<void*>(image_size));
        return scope.exit(static_cast<unsigned char*>(nullptr));
    }
    // The plain call: a missing file is no error here.
    const int fd = open(name, O_RDONLY);
    if (fd == -1) {
        VX_NOTE("Cannot open file: %s", name);
        return scope.exit(static_cast<unsigned char*>(nullptr));
    }
    VX_INFO("%s was opened", name);

    Owned<unsigned char> image;
    std::size_t total = 0;
    unsigned char chunk[file_chunk];
    for (ssize_t count = Read(fd, chunk, sizeof chunk); count > 0; count = Read(fd, chunk, sizeof chunk)) {
        const auto added = static_cast<std::size_t>(count);
        image.reset(static_cast<unsigned char*>(Realloc(image.release(), total + added)));
        std::memcpy(image.get() + total, chunk, added);
        total += added;
        *image_size = static_cast<unsigned int>(total);
    }
    if (Close(fd) == -1) {
        VX_ERROR("Cannot close file: %s", name);
    }
    return scope.exit(image.release());
}

long save_file(const char* name, const void* buffer, unsigned int size) {
    trace::Scope scope{VX_HERE};
    if (name == nullptr || buffer == nullptr) {
        trace::system_error(VX_HERE, errno, "Wrong parameters: const char *name is %p, char *buffer is %p",
                            static_cast<const void*>(name), buffer);
        return scope.exit(-1L);
    }
    const int fd = open(name, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd == -1) {
        trace::system_error(VX_HERE, errno, "Cannot open file %s for writing", name);
        return scope.exit(-1L);
    }
    VX_INFO("%s was opened for write", name);
    const ssize_t written = Write(fd, buffer, size);
    if (written == -1) {
        VX_ERROR("Cannot write buffer to file %s", name);
    } else {
        VX_INFO("file: %s was written successful", name);
    }
    if (Close(fd) == -1) {
        VX_ERROR("Cannot close file: %s", name);
    }
    return scope.exit(long{written});
}
