// A stream in any pieces, without a pad.
//
// Byte 0: bit 0 what follows are messages and not the stream itself, bit 1 the room is small. Bytes 1 to 4: the sizes
// of the pieces, in turn. A message is a byte with its kind (bit 7 a report or, with bit 6, pen data; else a
// component), the payload's size and as many bytes. Of messages the same come out, whatever the pieces.
#include "fuzz.hpp"
#include "wire/cut_stream.hpp"

#include <span>

namespace {

using cut_stream::Bytes;

constexpr std::size_t head_size = 5;

std::vector<Bytes> messages_of(std::span<const uint8_t> given) {
    std::vector<Bytes> messages;
    while (given.size() > 2) {
        const unsigned char kind = given[0];
        const bool is_legacy = (kind & 0x80) != 0;
        const std::size_t size = std::min<std::size_t>(1 + given[1] % (is_legacy ? 64 : 256), given.size() - 2);
        const Bytes payload(given.begin() + 2, given.begin() + 2 + static_cast<std::ptrdiff_t>(size));
        messages.push_back(is_legacy ? cut_stream::legacy(kind & 0xC0, payload) : cut_stream::base(kind, payload));
        given = given.subspan(2 + size);
    }
    return messages;
}

bool is_whole(const Bytes& message) {
    const ssp_base_message::Measure measure = ssp_base_message::measure(message);
    return measure.header_is_whole && measure.message() == message.size();
}

// It comes in front of the next read: a token, or what may be one.
bool is_beginning(const Bytes& kept) {
    const auto& token = ssp_transport_token::start_of_frame;
    const std::size_t size = std::min(kept.size(), token.size());
    return std::equal(token.begin(), token.begin() + static_cast<std::ptrdiff_t>(size), kept.begin());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size <= head_size) {
        return 0;
    }
    const bool are_messages = (data[0] & 1) != 0;
    const std::size_t room_size = (data[0] & 2) != 0 ? 40 : 4096;
    std::size_t piece = 0;
    const auto next_size = [&] { return std::size_t{1} + data[1 + piece++ % 4]; };
    const std::span<const uint8_t> rest{data + head_size, size - head_size};

    const std::vector<Bytes> messages = are_messages ? messages_of(rest) : std::vector<Bytes>{};
    const Bytes stream = are_messages ? cut_stream::framed(messages) : Bytes(rest.begin(), rest.end());
    const cut_stream::Received received = cut_stream::receive(stream, room_size, next_size);
    fuzz::require(std::all_of(received.messages.begin(), received.messages.end(), is_whole), "size of a message");
    fuzz::require(received.beginning.size() < room_size, "room for the next read");
    fuzz::require(is_beginning(received.beginning), "kept beginning");
    if (are_messages && room_size == 4096) {
        fuzz::require(received.messages == messages, "messages");
        fuzz::require(received.beginning.empty(), "nothing begins behind the last message");
    }
    return 0;
}
