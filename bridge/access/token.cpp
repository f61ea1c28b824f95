#include "access/token.hpp"

#include "base/fd.hpp"
#include "base/text.hpp"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <sys/random.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace bridge {

namespace {

constexpr std::size_t random_bytes = 32;
constexpr std::size_t shortest = 32;
constexpr std::size_t longest = 256;

[[noreturn]] void refuse(const std::filesystem::path& file, const char* why) {
    throw std::runtime_error(file.string() + ": " + why);
}

std::string first_line(const std::filesystem::path& file) {
    std::string line;
    std::getline(std::ifstream(file), line);
    return line;
}

} // namespace

std::string make_token() {
    std::array<std::uint8_t, random_bytes> bytes{};
    if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw std::system_error(errno, std::generic_category(), "no random numbers");
    }
    return emulator::hex(bytes);
}

std::string read_token(const std::filesystem::path& file) {
    const emulator::Fd fd{emulator::check(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK), file.c_str())};
    struct stat status {};
    emulator::check(::fstat(fd.get(), &status), file.c_str());
    if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid() || (status.st_mode & 077) != 0) {
        refuse(file, "a token's file belongs to the user, with mode 600");
    }
    std::array<char, longest + 2> text{};
    const ssize_t size = ::read(fd.get(), text.data(), text.size());
    std::string token(text.data(), static_cast<std::size_t>(emulator::check(static_cast<int>(size), file.c_str())));
    if (token.ends_with('\n')) {
        token.pop_back();
    }
    constexpr const char* allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    if (token.size() < shortest || token.size() > longest || token.find_first_not_of(allowed) != std::string::npos) {
        refuse(file, "a token is a line of 32 to 256 letters, digits, - and _");
    }
    return token;
}

bool is_token(std::string_view given, std::string_view token) {
    volatile unsigned char differences = given.size() == token.size() ? 0 : 1;
    for (std::size_t i = 0; i < token.size(); ++i) {
        const char c = i < given.size() ? given[i] : '\0';
        differences = static_cast<unsigned char>(differences | (c ^ token[i]));
    }
    return differences == 0;
}

std::filesystem::path default_address_file() {
    const char* directory = std::getenv("XDG_RUNTIME_DIR");
    if (directory == nullptr || directory[0] != '/') {
        throw std::runtime_error("XDG_RUNTIME_DIR names no directory for the file with the address; --address-file "
                                 "names another place");
    }
    return std::filesystem::path{directory} / "vxpad-bridge" / "address";
}

PrivateFile::PrivateFile(std::filesystem::path file, const std::string& line) : file_{std::move(file)}, line_{line} {
    if (file_.has_parent_path() && ::mkdir(file_.parent_path().c_str(), 0700) != 0 && errno != EEXIST) {
        throw std::system_error(errno, std::generic_category(), file_.parent_path().string());
    }
    // Readers find the old file or the whole new one, never one that others could open.
    const std::string unfinished = file_.string() + "." + std::to_string(::getpid());
    ::unlink(unfinished.c_str());
    const emulator::Fd fd{emulator::check(
        ::open(unfinished.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600), unfinished.c_str())};
    const std::string text = line_ + "\n";
    if (::write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        ::rename(unfinished.c_str(), file_.c_str()) != 0) {
        const std::error_code error{errno, std::generic_category()};
        ::unlink(unfinished.c_str());
        throw std::system_error(error, file_.string());
    }
}

// Another bridge may have put its own line there meanwhile.
PrivateFile::~PrivateFile() {
    if (first_line(file_) == line_) {
        ::unlink(file_.c_str());
    }
}

} // namespace bridge
