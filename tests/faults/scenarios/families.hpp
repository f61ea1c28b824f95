// The scenarios, a file for each family.
#pragma once

#include "scenario.hpp"

#include <span>

namespace faults {

std::span<const Scenario> starts();
std::span<const Scenario> transfers();
std::span<const Scenario> messages();
std::span<const Scenario> receiving();
std::span<const Scenario> removals();
std::span<const Scenario> diagnosis();

} // namespace faults
