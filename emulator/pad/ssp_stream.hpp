// The byte stream in which SSP messages travel: a start-of-frame token before each message, markers inside it escaped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace emulator {

inline constexpr std::uint8_t legacy_message = 0x80; // carries a report
inline constexpr std::uint8_t pen_message = 0xc0;    // carries pen data
inline constexpr std::size_t base_header_size = 3;
inline constexpr std::size_t longest_legacy_payload = 64;

std::vector<std::uint8_t> base_message(std::uint8_t component, std::span<const std::uint8_t> payload);
std::vector<std::uint8_t> short_message(std::uint8_t kind, std::span<const std::uint8_t> payload); // legacy or pen

std::vector<std::uint8_t> framed(std::span<const std::uint8_t> message);

// Finds the messages in a stream that arrives in pieces, however it is cut.
class MessageReader {
  public:
    using Receiver = std::function<void(std::span<const std::uint8_t> message)>;

    void feed(std::span<const std::uint8_t> bytes, const Receiver& receiver);

  private:
    void start();
    void put(std::uint8_t byte, const Receiver& receiver);
    bool lacks_one_byte() const;

    bool started_ = false;
    bool complete_ = false;         // the message has been handed out; what follows is no part of it
    std::size_t marker_bytes_ = 0;  // bytes of a possible token that have come
    bool marker_delivered_ = false; // the first of them has been taken as the message's last byte
    std::vector<std::uint8_t> message_;
};

} // namespace emulator
