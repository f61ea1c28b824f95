#include "kernel_log.hpp"

#include "text.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace vxpadctl {

namespace {

constexpr std::size_t longest_log = 16U << 20;
constexpr std::size_t most_messages = 20;

// Whether the port stands there as a word: "usb 1-4: ", "usbhid 1-4:1.0: ", but not in 1-42 or 1-4.1.
bool names_port(std::string_view line, std::string_view port) {
    for (std::size_t at = line.find(port); at != std::string_view::npos; at = line.find(port, at + 1)) {
        const std::size_t behind = at + port.size();
        const bool begins = at > 0 && line[at - 1] == ' ';
        const bool ends = behind < line.size() && (line[behind] == ':' || line[behind] == ' ');
        if (begins && ends) {
            return true;
        }
    }
    return false;
}

} // namespace

KernelLog read_kernel_log(const std::filesystem::path& root) {
    const std::filesystem::path file = root / "dev/kmsg";
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    std::string records;
    int error = fd < 0 ? errno : 0;
    while (error == 0 && records.size() < longest_log) {
        char record[8192];
        const ssize_t size = ::read(fd, record, sizeof record);
        if (size > 0) {
            records.append(record, static_cast<std::size_t>(size));
        } else if (size == 0 || errno == EAGAIN) {
            break;
        } else if (errno != EPIPE && errno != EINTR) { // EPIPE: older records were overwritten meanwhile
            error = errno;
        }
    }
    if (fd >= 0) {
        ::close(fd);
    }
    if (error != 0) {
        return {{}, file.string() + ": " + std::strerror(error)};
    }
    return {parse_kernel_log(records)};
}

std::vector<std::string> parse_kernel_log(std::string_view records) {
    std::vector<std::string> lines;
    while (!records.empty()) {
        const std::size_t end = std::min(records.find('\n'), records.size());
        const std::string_view record = records.substr(0, end);
        records.remove_prefix(std::min(end + 1, records.size()));
        const std::size_t message = record.find(';');
        if (record.starts_with(' ') || message == std::string_view::npos) {
            continue; // what stands behind a record: the names of its device
        }
        const std::size_t level = record.find(',');
        const std::size_t time = level < message ? record.find(',', level + 1) : message;
        unsigned long long microseconds = 0;
        if (time < message) {
            std::from_chars(record.data() + time + 1, record.data() + message, microseconds);
        }
        constexpr double in_a_second = 1e6;
        lines.push_back("[" + decimal(static_cast<double>(microseconds) / in_a_second, 3) + "] " +
                        std::string(record.substr(message + 1)));
    }
    return lines;
}

std::vector<std::string> messages_about(std::string_view port, const std::vector<std::string>& lines) {
    std::vector<std::string> found;
    if (port.empty()) {
        return found;
    }
    std::ranges::copy_if(lines, std::back_inserter(found),
                         [&](const std::string& line) { return names_port(line, port); });
    if (found.size() > most_messages) {
        found.erase(found.begin(), found.end() - most_messages);
    }
    return found;
}

} // namespace vxpadctl
