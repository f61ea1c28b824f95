#include "pad/ssp_stream.hpp"

#include <algorithm>
#include <array>
#include <optional>

namespace emulator {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::array<std::uint8_t, 2> marker{0xaa, 0x55};
constexpr std::uint8_t token_escaped_marker = 0;
constexpr std::uint8_t token_start_of_frame = 2;

// The whole message's size, as soon as enough of it has come.
std::optional<std::size_t> size_of(std::span<const std::uint8_t> message) {
    if (message.empty()) {
        return std::nullopt;
    }
    if ((message[0] & legacy_message) != 0) {
        return 2 + (message[0] & 0x3fU);
    }
    if (message.size() < base_header_size) {
        return std::nullopt;
    }
    return base_header_size + 1 + (message[1] | std::size_t{message[2]} << 8);
}

} // namespace

Bytes base_message(std::uint8_t component, std::span<const std::uint8_t> payload) {
    const auto length = payload.size() - 1;
    Bytes message(base_header_size + payload.size());
    message[0] = component;
    message[1] = static_cast<std::uint8_t>(length & 0xff);
    message[2] = static_cast<std::uint8_t>(length >> 8 & 0xff);
    std::ranges::copy(payload, message.begin() + base_header_size);
    return message;
}

Bytes short_message(std::uint8_t kind, std::span<const std::uint8_t> payload) {
    Bytes message(1 + payload.size());
    message[0] = static_cast<std::uint8_t>(kind | (payload.size() - 1));
    std::ranges::copy(payload, message.begin() + 1);
    return message;
}

Bytes framed(std::span<const std::uint8_t> message) {
    Bytes bytes{marker[0], marker[1], token_start_of_frame};
    for (std::size_t i = 0; i < message.size(); ++i) {
        bytes.push_back(message[i]);
        if (i > 0 && message[i - 1] == marker[0] && message[i] == marker[1]) {
            bytes.push_back(token_escaped_marker);
        }
    }
    return bytes;
}

void MessageReader::start() {
    started_ = true;
    complete_ = false;
    message_.clear();
}

void MessageReader::put(std::uint8_t byte, const Receiver& receiver) {
    if (!started_ || complete_) {
        return;
    }
    message_.push_back(byte);
    complete_ = size_of(message_) == message_.size();
    if (complete_) {
        receiver(message_);
    }
}

bool MessageReader::lacks_one_byte() const {
    return started_ && !complete_ && size_of(message_) == message_.size() + 1;
}

void MessageReader::feed(std::span<const std::uint8_t> bytes, const Receiver& receiver) {
    const auto give_up_marker = [&] {
        for (std::size_t i = marker_delivered_ ? 1 : 0; i < marker_bytes_; ++i) {
            put(marker[i], receiver);
        }
        marker_bytes_ = 0;
        marker_delivered_ = false;
    };
    for (const auto byte : bytes) {
        if (marker_bytes_ == marker.size() && byte == token_start_of_frame) {
            marker_bytes_ = 0;
            marker_delivered_ = false;
            start();
            continue;
        }
        if (marker_bytes_ == marker.size() && byte == token_escaped_marker) {
            give_up_marker();
            continue;
        }
        if (marker_bytes_ == marker.size() || (marker_bytes_ == 1 && byte != marker[1])) {
            give_up_marker();
        }
        if (marker_bytes_ == 1 || byte == marker[0]) {
            ++marker_bytes_;
            // The last byte of a message is not followed by anything that would tell it from a token.
            if (marker_bytes_ == 1 && lacks_one_byte()) {
                put(byte, receiver);
                marker_delivered_ = true;
            }
            continue;
        }
        put(byte, receiver);
    }
}

} // namespace emulator
