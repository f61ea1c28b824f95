// Linked into a test, notes what hidapi hands to the library.
#include "receive_pad_test.hpp"

#include <algorithm>
#include <dlfcn.h>
#include <map>
#include <set>
#include <utility>

struct hid_device_;

namespace {

using Clock = std::chrono::steady_clock;

struct Notes {
    std::mutex mutex;
    std::map<int, pads::HandedOut> of_pads;
    std::set<hid_device_*> being_read;
    int closed = 0;
};
Notes notes;

// Of the reading thread; a receive thread reads from one pad all its life.
thread_local Clock::time_point last_reading;
thread_local Clock::duration longest_pause{0};
thread_local unsigned long readings = 0; // since the last packet

void note(hid_device_* hid, const pads::PenPacket& packet) {
    const std::lock_guard lock{notes.mutex};
    notes.being_read.insert(hid);
    auto& handed_out = notes.of_pads[packet.pad];
    handed_out.numbers.push_back(packet.number);
    handed_out.readings += std::exchange(readings, 0);
    handed_out.longest_pause =
        std::max(handed_out.longest_pause, std::chrono::duration_cast<std::chrono::microseconds>(longest_pause));
}

} // namespace

pads::HandedOut pads::handed_out(int pad) {
    const std::lock_guard lock{notes.mutex};
    return notes.of_pads[pad];
}

int pads::closed_while_read() {
    const std::lock_guard lock{notes.mutex};
    return notes.closed;
}

void pads::forget_handed_out() {
    const std::lock_guard lock{notes.mutex};
    notes.of_pads.clear();
    notes.closed = 0;
}

extern "C" int hid_read(hid_device_* hid, unsigned char* data, std::size_t length) {
    static const auto next = reinterpret_cast<decltype(&hid_read)>(dlsym(RTLD_NEXT, "hid_read"));
    const auto now = Clock::now();
    if (last_reading != Clock::time_point{}) {
        longest_pause = std::max(longest_pause, now - last_reading);
    }
    last_reading = now;
    ++readings;
    const int result = next(hid, data, length);
    if (result == 64) {
        note(hid, pads::pen_packet(data));
    }
    return result;
}

extern "C" void hid_close(hid_device_* hid) {
    static const auto next = reinterpret_cast<decltype(&hid_close)>(dlsym(RTLD_NEXT, "hid_close"));
    {
        const std::lock_guard lock{notes.mutex};
        notes.closed += notes.being_read.erase(hid) > 0 ? 1 : 0;
    }
    next(hid);
}
