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

std::invalid_argument trouble_with(const std::string& name) {
    return std::invalid_argument(name + ": " + std::generic_category().message(errno));
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

void read_lines(const std::filesystem::path& file, const TakeWords& take) {
    const Fd fd{::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
    struct stat status {};
    if (!fd || ::fstat(fd.get(), &status) < 0) {
        throw trouble_with(file.string());
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::invalid_argument(file.string() + ": not a regular file");
    }
    read_lines(fd.get(), file.string(), take);
}

void read_lines(int fd, const std::string& name, const TakeWords& take) {
    std::size_t number = 0;
    const auto take_line = [&](std::string_view line) {
        ++number;
        try {
            take(words_of(line));
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(name + ":" + std::to_string(number) + ": " + error.what());
        }
    };
    std::string text; // of which no line end has come yet
    std::array<char, 65536> buffer;
    std::size_t total = 0;
    ssize_t size = 0;
    while ((size = ::read(fd, buffer.data(), buffer.size())) > 0) {
        total += static_cast<std::size_t>(size);
        if (total > longest_file) {
            throw std::invalid_argument(name + ": longer than " + std::to_string(longest_file >> 20) + " MiB");
        }
        text.append(buffer.data(), static_cast<std::size_t>(size));
        std::string_view left = text;
        for (auto end = left.find('\n'); end != std::string_view::npos; end = left.find('\n')) {
            take_line(left.substr(0, end));
            left.remove_prefix(end + 1);
        }
        if (left.size() > longest_line) {
            take_line(left); // which is refused
        }
        text.erase(0, text.size() - left.size());
    }
    if (size < 0) {
        throw trouble_with(name);
    }
    if (!text.empty()) {
        take_line(text);
    }
}

} // namespace emulator
