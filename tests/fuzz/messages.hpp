// Messages as an input tells them: a byte with the kind (bit 7 a report or, with bit 6, pen data; else a component),
// the payload's size and as many bytes.
#pragma once

#include "input.hpp"
#include "wire/cut_stream.hpp"

#include <algorithm>
#include <vector>

namespace fuzz {

inline Bytes take_message(Input& input) {
    const unsigned char kind = input.byte();
    const bool is_legacy = (kind & 0x80) != 0;
    Bytes payload = input.bytes(std::size_t{1} + input.byte() % (is_legacy ? 64U : 256U));
    if (payload.empty()) {
        payload.push_back(kind);
    }
    return is_legacy ? cut_stream::legacy(kind & 0xC0, payload) : cut_stream::base(kind, payload);
}

inline bool is_pen_data(const Bytes& message) {
    return (message[0] & 0xC0) == 0xC0;
}

inline std::vector<Bytes> take_messages(Input& input) {
    std::vector<Bytes> messages;
    while (!input.has_ended()) {
        messages.push_back(take_message(input));
    }
    return messages;
}

// One message in a stream, written byte by byte.
inline Bytes framed(const Bytes& message) {
    return cut_stream::framed({message});
}

inline void append(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

} // namespace fuzz
