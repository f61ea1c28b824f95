// What a pad once sent, with the time of each packet, as a text file tells it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace emulator {

struct RecordedPacket {
    std::chrono::microseconds at; // since the start
    std::vector<std::uint8_t> bytes;
};

struct Recording {
    std::size_t longest_packet = 0;
    std::vector<RecordedPacket> packets;
};

// What the header lines tell of the pad, as they stand there.
struct RecordedPad {
    std::string maker;
    std::string product;
    std::string serial;
    std::optional<unsigned int> interface;
};

// All of them throw std::invalid_argument, also where there is no packet at all.
Recording read_recording(const std::filesystem::path& file);

// Hands out one packet after the other, and keeps none.
using TakePacket = std::function<void(const RecordedPad& pad, const RecordedPacket& packet)>;
void read_recording(const std::filesystem::path& file, const TakePacket& take);
void read_recording(int fd, const std::string& name, const TakePacket& take);

} // namespace emulator
