// How an interface that a search has found becomes part of the registry.
#pragma once

#include "pads/registry.hpp"
#include "support/id_lines.hpp"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/registry.h"

namespace registration {

// Fills pad_type and the model parameters from the record's ids; an unknown id is reported and gives false. A device
// that was found by an id of a file has at least that one's type: a VCOM pad may tell other ids than it shows.
bool derive_pad_type(const trace::Location& where, vx_device& device, const id_lines::Id* found_by);

enum class Transport : int { hid = 0, vcom = 1 };
enum class SearchResult { unchanged, is_count_of_devices };

// Takes a found and described interface over: a further one of a known pad, or a pad of its own. Where there is no room
// the record is cleared. Tells what becomes of the search's result.
SearchResult take_over(const trace::Location& where, vx_registry& pads, vx_device& found, Transport transport);

} // namespace registration
