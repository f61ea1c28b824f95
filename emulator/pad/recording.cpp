#include "pad/recording.hpp"

#include "base/text.hpp"
#include "base/text_file.hpp"

#include <algorithm>
#include <array>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace emulator {

namespace {

constexpr std::array<std::string_view, 2> first_line{"vxpadcom-recording", "1"};
constexpr std::size_t largest_packet = 4096;
constexpr std::size_t most_packets = 1000000;
constexpr unsigned long longest_time = 7UL * 24 * 3600 * 1000000;

class Reader {
  public:
    explicit Reader(const TakePacket& take_packet) : take_packet_{take_packet} {}

    void take(const Words& words) {
        if (!begun_) {
            begun_ = std::ranges::equal(words, first_line);
            if (!begun_) {
                throw std::invalid_argument("a recording begins with the line 'vxpadcom-recording 1'");
            }
        } else if (!words.empty() && words[0][0] >= '0' && words[0][0] <= '9') {
            read_packet(words);
        } else if (!words.empty() && !words[0].starts_with('#')) {
            read_header(words);
        }
    }

    void finish(const std::string& name) const {
        if (packets_ == 0) {
            throw std::invalid_argument(name + ": no packet at all");
        }
    }

  private:
    void read_header(const Words& words) {
        const auto key = words[0];
        const std::string_view value =
            words.size() == 1 ? std::string_view() : std::string_view(words[1].begin(), words.back().end());
        std::string* text = key == "maker"     ? &pad_.maker
                            : key == "product" ? &pad_.product
                            : key == "serial"  ? &pad_.serial
                                               : nullptr;
        if (text == nullptr && key != "interface" && key != "packet-size") {
            throw std::invalid_argument("neither a packet nor one of the header lines");
        }
        if (packets_ > 0) {
            throw std::invalid_argument("header lines belong before the first packet");
        }
        if (text != nullptr) {
            *text = value;
        } else if (key == "interface") {
            pad_.interface = parse_count(value, 0, 254);
        } else {
            packet_size_ = parse_number(value, 10, 1, largest_packet);
        }
    }

    void read_packet(const Words& words) {
        const std::chrono::microseconds at{parse_number(words[0], 10, 0, longest_time)};
        if (at < last_) {
            throw std::invalid_argument("older than the packet before it");
        }
        if (packets_ == most_packets) {
            throw std::invalid_argument("more than " + std::to_string(most_packets) + " packets");
        }
        std::string digits;
        for (const auto word : std::span{words}.subspan(1)) {
            digits += word;
        }
        if (digits.empty() || digits.size() > 2 * packet_size_) {
            throw std::invalid_argument("a packet has 1 to " + std::to_string(packet_size_) + " bytes");
        }
        take_packet_(pad_, {at, parse_hex(digits)});
        last_ = at;
        ++packets_;
    }

    const TakePacket& take_packet_;
    bool begun_ = false;
    RecordedPad pad_;
    std::size_t packet_size_ = largest_packet;
    std::size_t packets_ = 0;
    std::chrono::microseconds last_{0};
};

} // namespace

Recording read_recording(const std::filesystem::path& file) {
    Recording recording;
    read_recording(file, [&](const RecordedPad&, const RecordedPacket& packet) {
        recording.longest_packet = std::max(recording.longest_packet, packet.bytes.size());
        recording.packets.push_back(packet);
    });
    return recording;
}

void read_recording(const std::filesystem::path& file, const TakePacket& take) {
    Reader reader{take};
    read_lines(file, [&](const Words& words) { reader.take(words); });
    reader.finish(file.string());
}

void read_recording(int fd, const std::string& name, const TakePacket& take) {
    Reader reader{take};
    read_lines(fd, name, [&](const Words& words) { reader.take(words); });
    reader.finish(name);
}

} // namespace emulator
