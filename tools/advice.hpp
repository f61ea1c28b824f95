// What to tell people who miss a pad.
#pragma once

#include "library.hpp"
#include "usb_bus.hpp"

#include <cstddef>
#include <span>
#include <string>

namespace vxpadctl {

// Explains why the search found fewer pads than the bus has, or none at all. Empty where there is nothing to explain.
// No newline at the end.
std::string explain_missing_pads(std::size_t pads, std::span<const BusDevice> on_bus,
                                 std::span<const SearchedId> searched);

} // namespace vxpadctl
