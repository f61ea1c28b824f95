// The reports that crossed the bus of one pad, for tests that compare them.
#pragma once

#include "base/text.hpp"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <iostream>
#include <span>
#include <string>
#include <vector>

namespace emulator {

class TransferLog {
  public:
    TransferLog(unsigned int pad, bool verbose) : pad_{pad}, verbose_{verbose} {}

    // A report; `note` tells what was special ("stall"), else it is empty.
    void report(bool in, const char* type, unsigned int interface, std::span<const std::uint8_t> bytes,
                const char* note) {
        size_ += bytes.size();
        while (lines_.size() == longest || (size_ > most_bytes && !lines_.empty())) {
            size_ -= lines_.front().bytes.size();
            lines_.pop_front();
            ++lost_;
        }
        lines_.push_back({in, type, interface, {bytes.begin(), bytes.end()}, note});
        if (verbose_) {
            trace(text(lines_.back()));
        }
    }

    // Everything else goes to the trace alone.
    void trace(const std::string& what) const {
        if (verbose_) {
            std::cerr << "vxpad-emulator: pad " + std::to_string(pad_) + ": " + what + "\n";
        }
    }
    bool verbose() const { return verbose_; }

    // "out feature 0 0103..." a line; afterwards the log is empty.
    std::string take() {
        std::string result = lost_ > 0 ? std::to_string(lost_) + " older lines lost\n" : "";
        for (const auto& line : lines_) {
            result += text(line) + "\n";
        }
        lines_.clear();
        size_ = 0;
        lost_ = 0;
        return result;
    }

  private:
    struct Line {
        bool in;
        const char* type;
        unsigned int interface;
        std::vector<std::uint8_t> bytes;
        const char* note;
    };

    static std::string text(const Line& line) {
        return std::string{line.in ? "in " : "out "} + line.type + " " + std::to_string(line.interface) + " " +
               (line.bytes.empty() ? "-" : hex(line.bytes)) + (*line.note == 0 ? "" : " ") + line.note;
    }

    static constexpr std::size_t longest = 16384;
    static constexpr std::size_t most_bytes = 16 << 20; // of all lines

    unsigned int pad_;
    bool verbose_;
    std::deque<Line> lines_;
    std::size_t size_ = 0; // bytes in all lines
    std::size_t lost_ = 0;
};

} // namespace emulator
