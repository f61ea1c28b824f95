#include "recording_file.hpp"

#include "text.hpp"

#include "../emulator/base/text.hpp"

#include <cstddef>
#include <ctime>
#include <stdexcept>
#include <unistd.h>

namespace vxpadctl {

namespace {

constexpr std::size_t longest_packet_line = 160; // 64 bytes

std::string now_in_utc() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    char text[32] = {};
    if (::gmtime_r(&now, &parts) != nullptr) {
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    }
    return text;
}

std::string header_line(const char* key, const std::string& value) {
    return value.empty() ? "" : std::string(key) + " " + for_terminal(value) + "\n";
}

} // namespace

Recording load_recording(const std::filesystem::path& file) {
    try {
        return emulator::read_recording(file);
    } catch (const std::invalid_argument& error) {
        throw std::runtime_error(for_terminal(error.what()));
    }
}

void read_packets(const std::string& file, const emulator::TakePacket& take) {
    try {
        if (file == "-") {
            emulator::read_recording(STDIN_FILENO, "the standard input", take);
        } else {
            emulator::read_recording(file, take);
        }
    } catch (const std::invalid_argument& error) {
        throw std::runtime_error(for_terminal(error.what()));
    }
}

Recorder::Recorder(const std::string& file, std::FILE* results, RecordingLimits limits)
    : limits_{limits}, name_{file == "-" ? "the standard output" : file},
      owned_{file == "-" ? nullptr : create_file(file)}, file_{owned_ ? owned_.get() : results} {
    std::setvbuf(file_, nullptr, _IONBF, 0); // lines reach the file whole
}

void Recorder::begin(const Pad& pad, unsigned int interface, unsigned int packet_size) {
    const std::string header = "vxpadcom-recording 1\n# recorded " + now_in_utc() + " by vxpadctl\n" +
                               header_line("maker", pad.maker) + header_line("product", pad.product) +
                               header_line("serial", pad.serial) + header_line("interface", std::to_string(interface)) +
                               header_line("packet-size", std::to_string(packet_size));
    size_ += header.size();
    write(header);
}

bool Recorder::is_full() const {
    return count_ == limits_.most_packets || size_ + longest_packet_line > limits_.longest_file;
}

void Recorder::put(std::span<const Packet> packets) {
    std::string lines;
    for (const Packet& packet : packets) {
        if (is_full()) {
            break;
        }
        if (count_ == 0) {
            start_ = packet.at;
        }
        last_ = std::chrono::duration_cast<std::chrono::microseconds>(packet.at - start_);
        const std::string line = std::to_string(last_.count()) + " " + emulator::hex(packet.bytes) + "\n";
        ++count_;
        size_ += line.size();
        lines += line;
    }
    write(lines);
}

void Recorder::write(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), file_);
    flush(file_, name_);
}

} // namespace vxpadctl
