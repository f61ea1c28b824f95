// Only the last frame of what was received can go on in the next read. It is framed again and put in front of that read
// as it would have come.
#include "wire/message_cutter.hpp"

#include "vxpadcom/internals/ssp_transport_token.h"

#include <algorithm>
#include <utility>

namespace message_cutter {
namespace {

constexpr int rest_of_token = 254; // missing bytes where a token was cut

} // namespace

Frame::Frame(unsigned char* taken, std::size_t size, bool first)
    : bytes{taken}, length{size}, measure{ssp_base_message::measure({taken, size})}, is_first{first} {}

Tail::Tail(std::span<const unsigned char> received) : size_{ssp_transport_token::cut_token_size(received)} {
    std::copy(received.end() - static_cast<std::ptrdiff_t>(size_), received.end(), bytes_.begin());
}

Cutter::Cutter(const trace::Location& where, std::span<unsigned char> room, std::size_t received)
    : where_{where}, room_{room}, tail_{room.first(received)}, frames_{init_uni_queue()},
      count_{frames_ ? ssp_transport_token_to_base_message_data(room.data(), received, frames_.get()) : -1},
      left_{count_} {
    if (count_ < 1) {
        VX_INFO_AT(where_, "Error, ssp_transport_token_to_base_message_data() return: count_of_ssp %d", count_);
    }
}

std::optional<Frame> Cutter::next() {
    while (left_ > 0) {
        const int left = left_;
        Frame frame = take();
        const bool is_last = left_ == 0;
        if (frame.has_whole_message()) {
            if (is_last) {
                behind_message_ = frame.length - frame.measure.message();
            } else {
                VX_INFO_AT(where_, "Going to proceccing %d SSP messages", left);
            }
            return frame;
        }
        if (is_last) {
            unfinished_ = std::move(frame);
        } else {
            VX_INFO_AT(where_, "error: It is not ended SSP message... so, it sad.. go to processing next one");
        }
    }
    return std::nullopt;
}

std::optional<std::size_t> Cutter::keep_beginning() {
    if (unfinished_) {
        return go_on_with(*unfinished_);
    }
    if (behind_message_) {
        return go_on_behind_message();
    }
    return tail_.bytes().empty() ? std::nullopt : carry({}, rest_of_token);
}

Frame Cutter::take() {
    VX_INFO_AT(where_, "Count of available SSP messages: %d", left_);
    unsigned int length = 0;
    auto* bytes = static_cast<unsigned char*>(get_uni_frame(frames_.get(), &length));
    VX_INFO_AT(where_, "The length of ssp data after remove ssp transport tokens is: %u", length);
    return Frame{bytes, length, left_-- == count_};
}

// Behind a whole message only what may be a cut token goes on.
std::optional<std::size_t> Cutter::go_on_behind_message() {
    if (*behind_message_ > 0) {
        VX_INFO_AT(where_, "Count of bytes that was found after SSP message: %zu", *behind_message_);
    }
    if (tail_.bytes().empty() || tail_.size_in_frame() > *behind_message_) {
        return std::nullopt;
    }
    VX_INFO_STYLED_AT(where_, trace::Style::kind_after,
                      tail_.size_in_frame() == 1 ? "Going to read new data, detected [%02X] after SSP message"
                                                 : "Going to read new data, detected [%02X %02X] after SSP message",
                      ssp_transport_token::marker[0], ssp_transport_token::marker[1]);
    return carry({}, rest_of_token);
}

// The message is framed again, without what may be a cut token; that follows as it came.
std::optional<std::size_t> Cutter::go_on_with(const Frame& message) {
    const std::size_t missing =
        message.measure.header_is_whole ? message.measure.message() - message.length : std::size_t{rest_of_token};
    const auto length = static_cast<unsigned int>(message.length - tail_.size_in_frame());
    if (length == 0) {
        return carry(ssp_transport_token::start_of_frame, missing);
    }
    unsigned char* framed = nullptr;
    const int size = ssp_base_message_to_transport_token_data(message.bytes.get(), length, &framed);
    const Owned<unsigned char> owner{framed};
    return carry({framed, static_cast<std::size_t>(size)}, missing);
}

std::optional<std::size_t> Cutter::carry(std::span<const unsigned char> beginning, std::size_t missing) {
    VX_INFO_AT(where_, "Also need to add %zu bytes for complete last ssp message", missing);
    const std::span<const unsigned char> tail = tail_.bytes();
    const std::size_t size = beginning.size() + tail.size();
    if (size >= room_.size()) {
        trace::error(where_, "Error, ssp_base_message_to_transport_token_data() return: %zu", beginning.size());
        // This message is lost; the one that may begin behind it is not.
        return tail.empty() || beginning.empty() ? std::nullopt : carry({}, rest_of_token);
    }
    std::fill(room_.begin(), room_.end(), static_cast<unsigned char>(0));
    const auto behind = std::copy(beginning.begin(), beginning.end(), room_.begin());
    std::copy(tail.begin(), tail.end(), behind);
    return size;
}

} // namespace message_cutter
