// What a pad once sent, with the time of each packet, as a text file tells it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
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

// Throws std::invalid_argument.
Recording read_recording(const std::filesystem::path& file);

} // namespace emulator
