// What to tell people who miss a pad.
#pragma once

#include "library.hpp"
#include "usb_bus.hpp"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace vxpadctl {

// Explains why the search found fewer pads than the bus has, or none at all. Empty where there is nothing to explain.
// The reasons are sentences about single pads, where they are known. No newline at the end.
std::string explain_missing_pads(std::size_t pads, std::span<const BusDevice> on_bus,
                                 std::span<const SearchedId> searched, std::span<const LikelyPad> likely = {},
                                 std::span<const std::string> reasons = {});

// A sentence for each pad that was plugged in before the search and is not among those that it has found.
std::vector<std::string> reasons_for_missing(std::span<const BusDevice> before, std::span<const BusDevice> now,
                                             std::span<const Pad> found);

} // namespace vxpadctl
