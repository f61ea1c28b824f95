// Cutting a byte stream into messages, wherever its reads end: bytes in, messages and a kept beginning out.
#pragma once

#include "support/owners.hpp"
#include "support/trace.hpp"
#include "vxpadcom/internals/uni_queue.h"
#include "wire/ssp_base_message.hpp"
#include "wire/ssp_transport_token.hpp"

#include <array>
#include <memory>
#include <optional>
#include <span>

namespace message_cutter {

// What lay between two start-of-frame tokens: a message, whole or cut short, and whatever came behind it.
struct Frame {
    Frame(unsigned char* taken, std::size_t size, bool first);

    bool has_whole_message() const { return measure.header_is_whole && measure.message() <= length; }

    Owned<unsigned char> bytes;
    std::size_t length;
    ssp_base_message::Measure measure;
    bool is_first; // of what was received
};

// A copy of what may be a cut token at the end of what was received.
class Tail {
  public:
    explicit Tail(std::span<const unsigned char> received);
    std::span<const unsigned char> bytes() const { return std::span{bytes_}.first(size_); }
    // A whole token is not part of the last frame.
    std::size_t size_in_frame() const { return size_ == ssp_transport_token::token_size ? 0 : size_; }

  private:
    std::size_t size_;
    std::array<unsigned char, ssp_transport_token::token_size> bytes_{};
};

// Once through what was received: first every message, then the beginning of one that is still to come.
class Cutter {
  public:
    // At least one byte was received, at the start of the room.
    Cutter(const trace::Location& where, std::span<unsigned char> room, std::size_t received);

    // Else nothing of what was received can be told.
    bool is_able() const { return frames_ != nullptr; }

    // The next frame with a whole message; nothing behind the last.
    std::optional<Frame> next();

    // Where the stream goes on, puts its beginning, as it would have come, at the start of the room and returns the
    // beginning's size: the next read belongs behind it.
    std::optional<std::size_t> keep_beginning();

    // Neither a frame nor what may be the beginning of one was received.
    bool found_nothing() const { return count_ < 1 && tail_.bytes().empty(); }
    // The first of what was received is the message that is still to come.
    bool first_goes_on() const { return unfinished_ && unfinished_->is_first; }

  private:
    struct QueueDestroyer {
        void operator()(uni_queue* queue) const { destroy_uni_queue(queue); }
    };

    Frame take();
    std::optional<std::size_t> go_on_behind_message();
    std::optional<std::size_t> go_on_with(const Frame& message);
    std::optional<std::size_t> carry(std::span<const unsigned char> beginning, std::size_t missing);

    const trace::Location& where_;
    std::span<unsigned char> room_;
    Tail tail_; // before the parser moves what was received
    std::unique_ptr<uni_queue, QueueDestroyer> frames_;
    int count_;
    int left_;
    std::optional<std::size_t> behind_message_; // bytes, where the last frame has a whole message
    std::optional<Frame> unfinished_;           // the last frame, where it has none
};

} // namespace message_cutter
