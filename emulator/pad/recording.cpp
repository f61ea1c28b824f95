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
constexpr std::array<std::string_view, 5> keys{"maker", "product", "serial", "interface", "packet-size"};
constexpr std::size_t largest_packet = 4096;
constexpr std::size_t most_packets = 1000000;
constexpr unsigned long longest_time = 7UL * 24 * 3600 * 1000000;

// What is told of the pad is for people; a player needs the packets alone.
class Reader {
  public:
    void take(const Words& words) {
        if (!begun_) {
            begun_ = std::ranges::equal(words, first_line);
            if (!begun_) {
                throw std::invalid_argument("a recording begins with the line 'vxpadcom-recording 1'");
            }
        } else if (!words.empty() && words[0][0] >= '0' && words[0][0] <= '9') {
            take_packet(words);
        } else if (!words.empty() && !words[0].starts_with('#')) {
            take_header(words);
        }
    }

    Recording finish() && { return std::move(recording_); }

  private:
    void take_header(const Words& words) {
        const auto key = words[0];
        if (std::ranges::find(keys, key) == keys.end()) {
            throw std::invalid_argument("neither a packet nor one of the header lines");
        }
        if (!recording_.packets.empty()) {
            throw std::invalid_argument("header lines belong before the first packet");
        }
        const auto value = words.size() == 2 ? words[1] : std::string_view();
        if (key == "interface") {
            parse_number(value, 10, 0, 254);
        } else if (key == "packet-size") {
            packet_size_ = parse_number(value, 10, 1, largest_packet);
        }
    }

    void take_packet(const Words& words) {
        const std::chrono::microseconds at{parse_number(words[0], 10, 0, longest_time)};
        auto& packets = recording_.packets;
        if (!packets.empty() && at < packets.back().at) {
            throw std::invalid_argument("older than the packet before it");
        }
        if (packets.size() == most_packets) {
            throw std::invalid_argument("more than " + std::to_string(most_packets) + " packets");
        }
        std::string digits;
        for (const auto word : std::span{words}.subspan(1)) {
            digits += word;
        }
        if (digits.empty() || digits.size() > 2 * packet_size_) {
            throw std::invalid_argument("a packet has 1 to " + std::to_string(packet_size_) + " bytes");
        }
        packets.push_back({at, parse_hex(digits)});
        recording_.longest_packet = std::max(recording_.longest_packet, packets.back().bytes.size());
    }

    bool begun_ = false;
    std::size_t packet_size_ = largest_packet;
    Recording recording_;
};

} // namespace

Recording read_recording(const std::filesystem::path& file) {
    Reader reader;
    read_lines(file, [&](const Words& words) { reader.take(words); });
    auto recording = std::move(reader).finish();
    if (recording.packets.empty()) {
        throw std::invalid_argument(file.string() + ": no packet at all");
    }
    return recording;
}

} // namespace emulator
