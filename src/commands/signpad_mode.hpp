// Sub-commands to a mode of the signpad.
#pragma once

#include "commands/component_request.hpp"

namespace signpad_mode {

// Looks the mode up, sends the sub-command and checks that the reply is the mode's. The sub-command's own reply begins
// at payload byte 3.
component_request::Answer send(trace::Location where, vx_device* device, int mode_type, unsigned char sub_command);

constexpr std::size_t sub_reply = 3;

} // namespace signpad_mode
