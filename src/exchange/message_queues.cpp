// The queues are made when they are first needed; clearing the record destroys them.
#include "exchange/message_queues.hpp"

#include "vxpadcom/internals/wrapunix.h"

#include <algorithm>

namespace message_queues {
namespace {

// Whoever is added to a queue belongs to it.
void hand_over(uni_queue* queue, Owned<unsigned char>& bytes, std::size_t size) {
    if (add_uni_frame(queue, bytes.get(), static_cast<unsigned int>(size)) == 1) {
        static_cast<void>(bytes.release());
    }
}

} // namespace

bool make(vx_device& device) {
    for (uni_queue** queue : {&device.ssp_input_read, &device.ssp_command_messages}) {
        if (*queue == nullptr) {
            *queue = init_uni_queue();
        }
    }
    return device.ssp_input_read != nullptr && device.ssp_command_messages != nullptr;
}

uni_queue* queue_of(vx_device& device, Kind kind) {
    return kind == Kind::pen_data ? device.ssp_input_read : device.ssp_command_messages;
}

void add(vx_device& device, Kind kind, Owned<unsigned char>& message, std::size_t size) {
    hand_over(queue_of(device, kind), message, size);
}

bool has_beginning(vx_device& device) {
    return device.ssp_unfinished != nullptr && get_uni_queue_size(device.ssp_unfinished) > 0;
}

void keep_beginning(vx_device& device, std::span<const unsigned char> beginning) {
    if (device.ssp_unfinished == nullptr) {
        device.ssp_unfinished = init_uni_queue();
    }
    Owned<unsigned char> copy{static_cast<unsigned char*>(Malloc(beginning.size()))};
    std::copy(beginning.begin(), beginning.end(), copy.get());
    hand_over(device.ssp_unfinished, copy, beginning.size());
}

std::size_t take_beginning(vx_device& device, std::span<unsigned char> room) {
    if (!has_beginning(device)) {
        return 0;
    }
    unsigned int size = 0;
    const Owned<void> kept{get_uni_frame(device.ssp_unfinished, &size)};
    std::memcpy(room.data(), kept.get(), size);
    return size;
}

} // namespace message_queues
