// Messages, the stream that carries them, and what comes out of it where it is received in pieces.
#pragma once

#include "support/trace.hpp"
#include "wire/message_cutter.hpp"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <vector>

namespace cut_stream {

using Bytes = std::vector<unsigned char>;

// Of 1 to 65536 bytes.
inline Bytes base(unsigned char component, const Bytes& payload) {
    const std::size_t length = payload.size() - 1;
    Bytes message{component, static_cast<unsigned char>(length), static_cast<unsigned char>(length >> 8)};
    message.insert(message.end(), payload.begin(), payload.end());
    return message;
}
// Of 1 to 64 bytes; flags: 0x80 for a report, 0xC0 for pen data.
inline Bytes legacy(unsigned char flags, const Bytes& payload) {
    Bytes message{static_cast<unsigned char>(flags | (payload.size() - 1))};
    message.insert(message.end(), payload.begin(), payload.end());
    return message;
}

inline Bytes framed(const std::vector<Bytes>& messages) {
    Bytes stream;
    for (const Bytes& message : messages) {
        stream.insert(stream.end(), {0xAA, 0x55, 2});
        for (std::size_t i = 0; i < message.size(); ++i) {
            stream.push_back(message[i]);
            if (i > 0 && message[i - 1] == 0xAA && message[i] == 0x55) {
                stream.push_back(0);
            }
        }
    }
    return stream;
}

struct Received {
    std::vector<Bytes> messages;
    Bytes beginning; // that is kept behind the last piece

    bool operator==(const Received&) const = default;
};

// next_size() gives the size of the next piece, at least 1; a piece ends where the room does.
inline Received receive(const Bytes& stream, std::size_t room_size, const std::function<std::size_t()>& next_size) {
    Received received;
    std::size_t kept = 0;
    Bytes room(room_size);
    for (std::size_t at = 0; at < stream.size();) {
        const std::size_t size = std::min({next_size(), room.size() - kept, stream.size() - at});
        std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(at), size,
                    room.begin() + static_cast<std::ptrdiff_t>(kept));
        at += size;
        message_cutter::Cutter cutter{VX_HERE, room, kept + size};
        while (const auto frame = cutter.next()) {
            const unsigned char* bytes = frame->bytes.get();
            received.messages.emplace_back(bytes, bytes + frame->measure.message());
        }
        kept = cutter.keep_beginning().value_or(0);
    }
    received.beginning.assign(room.begin(), room.begin() + static_cast<std::ptrdiff_t>(kept));
    return received;
}

} // namespace cut_stream
