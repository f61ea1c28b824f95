// Any bytes as a received stream, and as a message to be framed.
#include "fuzz.hpp"
#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"
#include "wire/token_model.hpp"

#include <cstdlib>
#include <memory>

namespace {

using Bytes = std::vector<unsigned char>;

struct QueueDeleter {
    void operator()(uni_queue* queue) const { destroy_uni_queue(queue); }
};

std::vector<Bytes> take_frames(uni_queue* queue) {
    std::vector<Bytes> frames;
    while (get_uni_queue_size(queue) > 0) {
        unsigned int length = 0;
        auto* bytes = static_cast<unsigned char*>(get_uni_frame(queue, &length));
        frames.emplace_back(bytes, bytes + length);
        std::free(bytes);
    }
    return frames;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const Bytes given(data, data + size);
    const std::unique_ptr<uni_queue, QueueDeleter> queue(init_uni_queue());

    const TokenModel model{given};
    Bytes stream = given;
    const int parsed = ssp_transport_token_to_base_message_data(stream.data(), stream.size(), queue.get());
    fuzz::require(parsed == (model.started ? static_cast<int>(model.frames.size()) : -1), "number of frames");
    fuzz::require(take_frames(queue.get()) == model.frames, "frames");
    fuzz::require(stream == model.data, "buffer after parsing");

    unsigned char* framed = nullptr;
    const int framed_size =
        ssp_base_message_to_transport_token_data(given.data(), static_cast<unsigned int>(size), &framed);
    fuzz::require(framed_size >= static_cast<int>(size) + 3, "framed size");
    Bytes again(framed, framed + framed_size);
    std::free(framed);
    fuzz::require(ssp_transport_token_to_base_message_data(again.data(), again.size(), queue.get()) == 1, "round trip");
    fuzz::require(take_frames(queue.get()) == std::vector<Bytes>{given}, "message after the round trip");
    return 0;
}
