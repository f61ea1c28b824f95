#include "support/id_files.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace id_files {
namespace {

constexpr std::string_view ending = ".ids";

struct DirectoryDeleter {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryDeleter>;

class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_{fd} {}
    ~Descriptor() {
        if (fd_ != -1) {
            close(fd_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }

  private:
    int fd_;
};

// The first names of a folder, in order.
class Names {
  public:
    void put(const char* name) {
        std::size_t at = count_;
        while (at > 0 && std::strcmp(name, texts_[at - 1]) < 0) {
            --at;
        }
        has_more_ = has_more_ || count_ == most_files;
        if (at == most_files) {
            return;
        }
        count_ = std::min(count_ + 1, most_files);
        if (at + 1 < count_) {
            std::memmove(texts_[at + 1], texts_[at], (count_ - 1 - at) * sizeof texts_[0]);
        }
        std::snprintf(texts_[at], sizeof texts_[at], "%s", name);
    }

    std::size_t count() const { return count_; }
    const char* operator[](std::size_t index) const { return texts_[index]; }
    bool has_more() const { return has_more_; }

  private:
    char texts_[most_files][NAME_MAX + 1];
    std::size_t count_ = 0;
    bool has_more_ = false;
};

// What absence means: the usual folders need not be there.
enum class Absence { usual, told };

class Reading {
  public:
    explicit Reading(const Listener& listener) : listener_{listener} {}

    void read_path(const char* path) {
        struct stat facts {};
        if (stat(path, &facts) != 0) {
            complain_of_failure(path);
        } else if (S_ISDIR(facts.st_mode)) {
            read_folder(path, Absence::told);
        } else {
            read_file(path);
        }
    }

    void read_folder(const char* path, Absence absence) {
        Names names;
        if (!list(path, absence, names)) {
            return;
        }
        for (std::size_t i = 0; i < names.count() && !is_full_; ++i) {
            char file[longest_path + 1];
            const int length = std::snprintf(file, sizeof file, "%s/%s", path, names[i]);
            if (length < 0 || static_cast<std::size_t>(length) >= sizeof file) {
                complain({path, 0}, "a path in this folder is too long");
                continue;
            }
            read_file(file);
        }
    }

  private:
    struct Seen {
        std::uint16_t vendor_id;
        std::uint16_t product_id;
        unsigned int file;
    };

    void complain(const Place& place, const char* what) { listener_.complain(listener_.context, place, what); }

    void complain_of_failure(const char* path) {
        const int number = errno;
        char reason[256];
        char text[300];
        std::snprintf(text, sizeof text, "cannot be read: %s", strerror_r(number, reason, sizeof reason));
        complain({path, 0}, text);
    }

    bool list(const char* path, Absence absence, Names& names) {
        const Directory directory{opendir(path)};
        if (!directory) {
            if (absence == Absence::told || (errno != ENOENT && errno != ENOTDIR)) {
                complain_of_failure(path);
            }
            return false;
        }
        std::size_t entries = 0;
        while (const dirent* entry = readdir(directory.get())) {
            if (++entries > most_entries) {
                complain({path, 0}, "there are more than 4096 entries, the rest is left out");
                break;
            }
            const std::string_view name = entry->d_name;
            if (!name.starts_with('.') && name.ends_with(ending)) {
                names.put(entry->d_name);
            }
        }
        if (names.has_more()) {
            complain({path, 0}, "there are more than 64 files, the last ones by name are left out");
        }
        return true;
    }

    // Only what is a file: opening a device may do something, and reading a pipe may wait.
    static bool is_file(const struct stat& facts) { return S_ISREG(facts.st_mode); }

    void read_file(const char* path) {
        ++file_;
        complaints_ = 0;
        struct stat facts {};
        if (stat(path, &facts) == 0 && !is_file(facts)) {
            complain({path, 0}, "is no file");
            return;
        }
        const Descriptor file{open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0)};
        if (file.get() == -1 || fstat(file.get(), &facts) != 0) {
            complain_of_failure(path);
            return;
        }
        if (!is_file(facts)) { // put in its place meanwhile
            complain({path, 0}, "is no file");
            return;
        }
        read_lines(path, file.get());
    }

    void read_lines(const char* path, int fd) {
        const auto take = [&](std::string_view text, unsigned int number) { take_line(text, {path, number}); };
        id_lines::Cutter cutter;
        std::size_t total = 0;
        while (!is_full_) {
            char chunk[4096];
            const ssize_t count = ::read(fd, chunk, sizeof chunk);
            if (count < 0) {
                complain_of_failure(path);
                return;
            }
            if (count == 0) {
                cutter.end(take);
                return;
            }
            const auto size = static_cast<std::size_t>(count);
            if (total + size > longest_file) {
                complain({path, cutter.number()}, "the file is longer than 1 MiB, from here on it is left out");
                return;
            }
            total += size;
            cutter.put({chunk, size}, take);
        }
    }

    void take_line(std::string_view text, const Place& place) {
        if (is_full_) {
            return;
        }
        const id_lines::Line line = id_lines::parse(text);
        if (line.complaint != nullptr) {
            complain_of_line(place, line.complaint);
        } else if (line.is_id) {
            take_id(line.id, place);
        }
    }

    void complain_of_line(const Place& place, const char* what) {
        ++complaints_;
        if (complaints_ < most_complaints) {
            complain(place, what);
        } else if (complaints_ == most_complaints) {
            complain(place, "this line and perhaps more below are left out");
        }
    }

    void take_id(const id_lines::Id& id, const Place& place) {
        const auto end = seen_.begin() + static_cast<std::ptrdiff_t>(count_);
        const auto found = std::find_if(seen_.begin(), end, [&](const Seen& one) {
            return one.vendor_id == id.vendor_id && one.product_id == id.product_id;
        });
        if (found != end) {
            if (found->file == file_) {
                complain_of_line(place, "the same vendor and product stand above");
            }
            return;
        }
        if (count_ == most_ids) {
            complain(place, "there are more than 256 ids, the rest is left out");
            is_full_ = true;
            return;
        }
        seen_[count_++] = {id.vendor_id, id.product_id, file_};
        listener_.take(listener_.context, id, place);
    }

    const Listener& listener_;
    std::array<Seen, most_ids> seen_;
    std::size_t count_ = 0;
    bool is_full_ = false;
    unsigned int file_ = 0;
    unsigned int complaints_ = 0;
};

// A path that does not fit is none.
void join(char (&target)[longest_path + 1], const char* base, const char* rest) {
    const int length = std::snprintf(target, sizeof target, "%s%s", base, rest);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof target) {
        target[0] = '\0';
    }
}

} // namespace

Places find_places() {
    Places places;
    places.named = secure_getenv(variable);
    const char* config = secure_getenv("XDG_CONFIG_HOME");
    const char* home = secure_getenv("HOME");
    if (config != nullptr && config[0] == '/') { // another one is to be ignored, as its own rules say
        join(places.user, config, "/vxpadcom/ids.d");
    } else if (home != nullptr && home[0] == '/') {
        join(places.user, home, "/.config/vxpadcom/ids.d");
    }
    return places;
}

void read(const Places& places, const Listener& listener) {
    Reading reading{listener};
    if (places.named != nullptr) {
        if (places.named[0] != '\0') {
            reading.read_path(places.named);
        }
        return;
    }
    if (places.user[0] != '\0') {
        reading.read_folder(places.user, Absence::usual);
    }
    reading.read_folder(places.system, Absence::usual);
}

} // namespace id_files
