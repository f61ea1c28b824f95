// An input taken apart: whatever is asked for behind its end is zero or empty.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace fuzz {

using Bytes = std::vector<unsigned char>;

class Input {
  public:
    Input(const uint8_t* data, std::size_t size) : left_{data, size} {}

    bool has_ended() const { return left_.empty(); }

    unsigned char byte() {
        const auto one = bytes(1);
        return one.empty() ? std::uint8_t{0} : one[0];
    }
    unsigned int below(unsigned int limit) { return byte() % limit; }
    bool flag() { return (byte() & 1) != 0; }
    std::uint32_t word() {
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value = value << 8 | byte();
        }
        return value;
    }
    // At most as many as there are.
    Bytes bytes(std::size_t count) {
        const auto taken = left_.first(std::min(count, left_.size()));
        left_ = left_.subspan(taken.size());
        return {taken.begin(), taken.end()};
    }
    // A byte that tells how many, and so many.
    Bytes counted() { return bytes(byte()); }
    std::string counted_text() {
        const Bytes taken = counted();
        return {taken.begin(), taken.end()};
    }
    Bytes rest() { return bytes(left_.size()); }
    std::string rest_as_text() {
        const Bytes taken = rest();
        return {taken.begin(), taken.end()};
    }

  private:
    std::span<const uint8_t> left_;
};

} // namespace fuzz
