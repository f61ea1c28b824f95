// Pads as people and programs read them.
#pragma once

#include "library.hpp"

#include <span>
#include <string>

namespace vxpadctl {

std::string pad_table(std::span<const Pad> pads);
std::string pad_details(const Pad& pad);
std::string pad_json(const Pad& pad);
std::string pad_list_json(std::span<const Pad> pads);

} // namespace vxpadctl
