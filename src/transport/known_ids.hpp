// The USB ids that count: those of files that an administrator has written, then those of the id header.
#pragma once

#include "support/id_lines.hpp"
#include "support/trace.hpp"

#include <cstdint>
#include <span>

namespace known_ids {

// Takes the place of what was read before. Not beside a search.
void read_files(const trace::Location& where);

// Of the files, in the order in which they count. They take the place of pairs in the tables.
std::span<const id_lines::Id> added();
const id_lines::Id* find_added(std::uint32_t vendor_id, std::uint32_t product_id); // null: none

// The one model that cannot be asked for its firmware version.
bool has_fixed_version(std::uint32_t vendor_id, std::uint32_t product_id);

} // namespace known_ids
