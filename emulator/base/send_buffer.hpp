// What a socket does not take at once waits here, in order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace emulator {

class SendBuffer {
  public:
    void append(std::span<const std::uint8_t> bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }

    // Hands the socket what it takes now, without waiting for more; false when there is nobody left to read it.
    bool send(int socket);

    std::span<const std::uint8_t> bytes() const { return std::span{bytes_}.subspan(sent_); }
    bool empty() const { return size() == 0; }
    std::size_t size() const { return bytes_.size() - sent_; }
    void clear();

  private:
    std::vector<std::uint8_t> bytes_;
    std::size_t sent_ = 0; // of them, at the front
};

} // namespace emulator
