// Recordings, as docs/recordings.md describes them.
#pragma once

#include "library.hpp"
#include "printing.hpp"
#include "reception.hpp"

#include "../emulator/pad/recording.hpp"

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <span>
#include <string>

namespace vxpadctl {

using emulator::RecordedPacket;
using emulator::RecordedPad;
using emulator::Recording;

// Both throw std::runtime_error, with the number of the line that is wrong.
Recording load_recording(const std::filesystem::path& file);

// One packet after the other; "-" is the standard input.
void read_packets(const std::string& file, const emulator::TakePacket& take);

// What the format allows.
struct RecordingLimits {
    std::size_t most_packets = 1'000'000;
    std::size_t longest_file = 64U << 20;
};

// Writes a recording; whatever happens, the file is a whole one up to the packet last put. Throws as flush() does.
class Recorder {
  public:
    // "-" is the standard output, which is results.
    Recorder(const std::string& file, std::FILE* results, RecordingLimits limits = {});

    void begin(const Pad& pad, unsigned int interface, unsigned int packet_size);

    // As many of these packets as it has room for.
    void put(std::span<const Packet> packets);

    bool is_full() const;
    std::size_t count() const { return count_; }
    std::chrono::microseconds duration() const { return last_; } // from the first packet to the last
    const std::string& name() const { return name_; }

  private:
    void write(const std::string& text);

    RecordingLimits limits_;
    std::string name_;
    OwnedFile owned_; // unless it is the standard output
    std::FILE* file_;
    std::chrono::steady_clock::time_point start_; // of the first packet
    std::chrono::microseconds last_{0};
    std::size_t count_ = 0;
    std::size_t size_ = 0; // characters
};

} // namespace vxpadctl
