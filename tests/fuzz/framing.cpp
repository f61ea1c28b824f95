// Several messages framed, with noise in front, and parsed again.
//
// Byte 0: how much noise there is in front. Then what is framed, each counted; it need not be a message. The library
// frames like a loop over single bytes, and its parser gives back exactly what was framed. A legacy message that the
// library makes has the header that it reads.
#include "fuzz.hpp"
#include "input.hpp"
#include "messages.hpp"
#include "vxpadcom/internals.h"
#include "wire/token_model.hpp"

#include <cstdlib>
#include <memory>

namespace {

using fuzz::Bytes;

struct QueueDeleter {
    void operator()(uni_queue* queue) const { destroy_uni_queue(queue); }
};
struct Free {
    void operator()(void* memory) const { std::free(memory); }
};
using Memory = std::unique_ptr<unsigned char, Free>;

Bytes take_frame(uni_queue* queue) {
    unsigned int length = 0;
    const Memory frame{static_cast<unsigned char*>(get_uni_frame(queue, &length))};
    return {frame.get(), frame.get() + length};
}

Bytes framed_by_library(const Bytes& message) {
    unsigned char* framed = nullptr;
    const int size =
        ssp_base_message_to_transport_token_data(message.data(), static_cast<unsigned int>(message.size()), &framed);
    const Memory owner{framed};
    fuzz::require(size > 0, "framing");
    return {framed, framed + size};
}

void check_legacy(const Bytes& payload) {
    unsigned char* made = nullptr;
    const int size =
        ssp_base_message_old_message_create(payload.data(), static_cast<unsigned int>(payload.size()), &made);
    const Memory owner{made};
    const bool fits = payload.size() <= 64;
    fuzz::require(size == (fits ? static_cast<int>(payload.size()) + 1 : -1), "size of a legacy message");
    if (fits) {
        fuzz::require(Bytes(made, made + size) == cut_stream::legacy(0x80, payload), "legacy message");
        fuzz::require(ssp_base_message_is_it_old_message(made) == 1, "kind");
        fuzz::require(ssp_base_message_is_it_biodata(made) == 0, "no pen data");
        fuzz::require(ssp_base_message_old_message_get_data_length(made) == size - 1, "length");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input{data, size};
    Bytes stream(input.below(8), 0x55);
    std::vector<Bytes> messages;
    while (!input.has_ended()) {
        Bytes message = input.counted();
        if (message.empty()) {
            message.push_back(0xAA);
        }
        const Bytes framed = framed_by_library(message);
        fuzz::require(framed == fuzz::framed(message), "framing against single bytes");
        fuzz::append(stream, framed);
        check_legacy(message);
        messages.push_back(std::move(message));
    }
    if (messages.empty()) {
        return 0;
    }
    const std::unique_ptr<uni_queue, QueueDeleter> queue{init_uni_queue()};
    const TokenModel model{stream};
    fuzz::require(model.frames == messages, "messages, parsed byte by byte");
    const int count = ssp_transport_token_to_base_message_data(stream.data(), stream.size(), queue.get());
    fuzz::require(count == static_cast<int>(messages.size()), "number of messages");
    for (const Bytes& message : messages) {
        fuzz::require(take_frame(queue.get()) == message, "message");
    }
    return 0;
}
