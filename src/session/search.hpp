// The search that fills the application's list of pads.
#pragma once

namespace search {

// Fills the list anew and selects its first pad, with dev_list_short_lock held: pads indexed, or -1.
int looking_for_device();

} // namespace search
