// Where programs under the emulator find its control socket.
#pragma once

namespace emulator {

inline constexpr const char* control_variable = "VXPAD_EMULATOR_CONTROL";

} // namespace emulator
