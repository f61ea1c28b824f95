// What a record keeps of received messages: whole ones in two queues, and the beginning of one that a call had no time
// to complete. A stream that never pauses loses nothing where one call ends and the next begins.
#pragma once

#include "support/owners.hpp"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/uni_queue.h"

#include <span>

namespace message_queues {

// The room of one read, and more than any kept beginning.
constexpr std::size_t room_size = 4096;

enum class Kind { pen_data, commands }; // commands: everything else

// A record that has none yet gets its queues; false where one cannot be made.
bool make(vx_device& device);
uni_queue* queue_of(vx_device& device, Kind kind);
void add(vx_device& device, Kind kind, Owned<unsigned char>& message, std::size_t size);

bool has_beginning(vx_device& device);
void keep_beginning(vx_device& device, std::span<const unsigned char> beginning);
// Puts it at the start of the room and returns its size, mostly 0.
std::size_t take_beginning(vx_device& device, std::span<unsigned char> room);

} // namespace message_queues
