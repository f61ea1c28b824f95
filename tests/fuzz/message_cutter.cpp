// A stream in any pieces, without a pad.
//
// Byte 0: bit 0 what follows are messages and not the stream itself, bit 1 the room is small, bit 2 each message comes
// damaged or with noise behind it. Bytes 1 to 4: the sizes of the pieces, in turn. Messages are as messages.hpp tells
// them; with bit 2 one byte more stands behind each: up to 127 the size of the noise, else 128 more than the bytes that
// are left of the message. Of messages the same come out, whatever the pieces.
#include "fuzz.hpp"
#include "messages.hpp"

#include <algorithm>
#include <utility>

namespace {

using fuzz::Bytes;

struct Given {
    std::vector<Bytes> messages; // that are whole
    Bytes stream;
};

// Noise has no marker and so cannot be the beginning of anything.
Bytes noise(std::size_t size) {
    return Bytes(size, 0x55);
}

Given messages_of(fuzz::Input& input, bool are_damaged) {
    Given given;
    if (are_damaged) {
        given.stream = noise(input.below(8));
    }
    while (!input.has_ended()) {
        Bytes message = fuzz::take_message(input);
        const unsigned char damage = are_damaged ? input.byte() : std::uint8_t{0};
        // What lacks two bytes or less would be made whole by a token that is cut.
        const bool is_whole = damage < 128 || message.size() < 4;
        const std::size_t left = is_whole ? message.size() : std::min<std::size_t>(damage - 127U, message.size() - 3);
        message.resize(left);
        fuzz::append(given.stream, fuzz::framed(message));
        if (is_whole) {
            // Behind AA it would go on as a marker.
            fuzz::append(given.stream, noise(damage < 128 && message.back() != 0xAA ? damage : 0U));
            given.messages.push_back(std::move(message));
        }
    }
    return given;
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
    fuzz::Input input{data, size};
    const unsigned char settings = input.byte();
    const bool are_messages = (settings & 1) != 0;
    const bool are_damaged = (settings & 4) != 0;
    const std::size_t room_size = (settings & 2) != 0 ? 40 : 4096;
    Bytes sizes = input.bytes(4);
    if (input.has_ended()) {
        return 0;
    }
    std::size_t piece = 0;
    const auto next_size = [&] { return std::size_t{1} + sizes[piece++ % sizes.size()]; };

    const Given given = are_messages ? messages_of(input, are_damaged) : Given{{}, input.rest()};
    const cut_stream::Received received = cut_stream::receive(given.stream, room_size, next_size);
    fuzz::require(std::all_of(received.messages.begin(), received.messages.end(), is_whole), "size of a message");
    fuzz::require(received.beginning.size() < room_size, "room for the next read");
    fuzz::require(is_beginning(received.beginning), "kept beginning");
    if (are_messages && room_size == 4096) {
        fuzz::require(received.messages == given.messages, "messages");
        fuzz::require(are_damaged || received.beginning.empty(), "nothing begins behind the last message");
    }
    return 0;
}
