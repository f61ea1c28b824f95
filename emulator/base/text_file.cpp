#include "base/text_file.hpp"

#include "base/fd.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace emulator {

namespace {

// While a file is read the pads stand still.
constexpr std::size_t longest_file = 64U << 20;
constexpr std::size_t longest_line = 65536;

std::invalid_argument trouble_with(const std::filesystem::path& file) {
    return std::invalid_argument(file.string() + ": " + std::generic_category().message(errno));
}

std::string contents(const std::filesystem::path& file) {
    const Fd fd{::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
    struct stat status {};
    if (!fd || ::fstat(fd.get(), &status) < 0) {
        throw trouble_with(file);
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::invalid_argument(file.string() + ": not a regular file");
    }
    std::string text;
    std::array<char, 65536> buffer;
    ssize_t size = 0;
    while ((size = ::read(fd.get(), buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(size));
        if (text.size() > longest_file) {
            throw std::invalid_argument(file.string() + ": longer than " + std::to_string(longest_file >> 20) + " MiB");
        }
    }
    if (size < 0) {
        throw trouble_with(file);
    }
    return text;
}

Words words_of(std::string_view line) {
    constexpr std::string_view blanks = " \t\r";
    if (line.size() > longest_line) {
        throw std::invalid_argument("longer than " + std::to_string(longest_line) + " characters");
    }
    Words words;
    for (auto start = line.find_first_not_of(blanks); start != std::string_view::npos;
         start = line.find_first_not_of(blanks)) {
        line.remove_prefix(start);
        const auto end = std::min(line.find_first_of(blanks), line.size());
        words.push_back(line.substr(0, end));
        line.remove_prefix(end);
    }
    return words;
}

} // namespace

void read_lines(const std::filesystem::path& file, const std::function<void(const Words& words)>& take) {
    const auto text = contents(file);
    std::string_view rest = text;
    for (std::size_t number = 1; !rest.empty(); ++number) {
        const auto end = std::min(rest.find('\n'), rest.size());
        try {
            take(words_of(rest.substr(0, end)));
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(file.string() + ":" + std::to_string(number) + ": " + error.what());
        }
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
}

} // namespace emulator
