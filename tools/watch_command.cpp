#include "watch_command.hpp"

#include "bus_watch.hpp"
#include "hex.hpp"
#include "interruption.hpp"
#include "library.hpp"
#include "printing.hpp"
#include "text.hpp"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iostream>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vxpadctl {

namespace {

using Clock = std::chrono::steady_clock;

bool is_pad(const WatchedDevice& device, std::span<const SearchedId> ids) {
    return std::ranges::any_of(ids, [&](const SearchedId& searched) {
        return searched.id == device.id && device.maker.starts_with(searched.maker);
    });
}

// UTC, with milliseconds.
std::string time_of_day() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto fraction = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm parts{};
    char text[32] = {};
    if (::gmtime_r(&seconds, &parts) != nullptr) {
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S.", &parts);
    }
    return text + std::to_string(fraction + 1000).substr(1) + "Z";
}

std::string line_of(const BusChange& change, unsigned int type, bool in_json) {
    const WatchedDevice& device = change.device;
    const char* event = change.kind == BusChange::Kind::arrived ? "arrived" : "left";
    if (in_json) {
        return "{\"event\": " + json_string(event) + ", \"at\": " + json_string(time_of_day()) +
               ", \"path\": " + json_string(device.path) + ", \"vendor_id\": " + json_string(hex_id(device.id.vendor)) +
               ", \"product_id\": " + json_string(hex_id(device.id.product)) +
               ", \"type\": " + (type == 0 ? "null" : std::to_string(type)) +
               ", \"serial\": " + json_string(device.serial) + "}\n";
    }
    std::string word = event;
    word.resize(std::string_view("arrived").size(), ' ');
    return time_of_day() + "  " + word + "  " + device.path + "  " + to_text(device.id) + "  type " +
           (type == 0 ? "?" : std::to_string(type)) + "  " +
           (device.serial.empty() ? "-" : for_terminal(device.serial)) + "\n";
}

} // namespace

bool watch(const Arguments& arguments, std::FILE* results) {
    note_interruptions();
    BusWatch bus;
    std::cerr << "vxpadctl: watching, Ctrl-C ends it\n" << std::flush;
    const std::vector<AddedId> added = read_added_ids().ids;
    const std::vector<SearchedId> ids = searched_ids(added);
    std::optional<Clock::time_point> end;
    if (arguments.seconds < most_seconds) {
        end = Clock::now() +
              std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(arguments.seconds));
    }
    while (!end || Clock::now() < *end) {
        stop_if_interrupted();
        for (const BusChange& change : bus.wait(notice_time)) {
            if (is_pad(change.device, ids)) {
                const unsigned int type = pad_type(change.device.id, added); // a VCOM pad has to be asked
                print(results, line_of(change, type, arguments.json));
                flush(results);
            }
        }
    }
    return true;
}

} // namespace vxpadctl
