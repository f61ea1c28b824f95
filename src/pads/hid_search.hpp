// Finding HID pads.
#pragma once

namespace hid_search {

// A search that a failed version read ends leaves that interface open; this closes it, before hidapi is shut down.
void close_left_open();

} // namespace hid_search
