// The modes of a pad's signpad, and sub-commands to them.
#pragma once

#include "commands/component_link.hpp"
#include "vxpadcom/internals/record.h"

namespace signpad_modes {

// Only some pads have them, and buttons.
bool has_any(const vx_device& device);

// Looks the mode up, sends the sub-command and checks that the reply is the mode's. The sub-command's own reply begins
// at payload byte 3.
component_link::Answer perform(const trace::Location& where, vx_device* device, int mode_type,
                               unsigned char sub_command);

constexpr std::size_t sub_reply = 3;

} // namespace signpad_modes
