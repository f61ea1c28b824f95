#include "bus_watch.hpp"

#include <array>
#include <cstddef>
#include <fstream>
#include <libusb.h>
#include <stdexcept>
#include <sys/time.h>

namespace vxpadctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds look_pause{500};

void expect_success(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + libusb_error_name(result));
    }
}

struct LeaveContext {
    void operator()(libusb_context* context) const { libusb_exit(context); }
};
using OwnedContext = std::unique_ptr<libusb_context, LeaveContext>;

OwnedContext make_context() {
    libusb_context* context = nullptr;
    expect_success(libusb_init(&context), "USB is not to be had here");
    return OwnedContext{context};
}

struct ReleaseDevice {
    void operator()(libusb_device* device) const { libusb_unref_device(device); }
};
using OwnedDevice = std::unique_ptr<libusb_device, ReleaseDevice>;

BusPlace place_of(libusb_device* device) {
    return {libusb_get_bus_number(device), libusb_get_device_address(device)};
}

// As the kernel calls it; a bus itself has no ports.
std::string path_of(libusb_device* device) {
    std::array<std::uint8_t, 7> ports{}; // no more are allowed
    const int count = libusb_get_port_numbers(device, ports.data(), static_cast<int>(ports.size()));
    std::string path = std::to_string(libusb_get_bus_number(device));
    for (std::size_t i = 0; i < static_cast<std::size_t>(count > 0 ? count : 0); ++i) {
        path += (i == 0 ? "-" : ".") + std::to_string(ports[i]);
    }
    return path;
}

WatchedDevice describe(libusb_device* device) {
    libusb_device_descriptor descriptor{};
    libusb_get_device_descriptor(device, &descriptor);
    WatchedDevice described{{descriptor.idVendor, descriptor.idProduct}, path_of(device), {}, {}};
    const std::string directory = "/sys/bus/usb/devices/" + described.path;
    std::getline(std::ifstream(directory + "/manufacturer"), described.maker);
    std::getline(std::ifstream(directory + "/serial"), described.serial);
    return described;
}

// A context of its own: without udev, an older one never sees a change.
BusContents look_at_bus() {
    const OwnedContext context = make_context();
    libusb_device** list = nullptr;
    const auto count = libusb_get_device_list(context.get(), &list);
    expect_success(static_cast<int>(count), "the USB devices cannot be listed");
    BusContents contents;
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        contents.emplace(place_of(list[i]), describe(list[i]));
    }
    libusb_free_device_list(list, 1);
    return contents;
}

} // namespace

std::optional<BusChange> Presence::hear_arrived(BusPlace place, const WatchedDevice& device) {
    doubtful_.erase(place);
    if (!present_.emplace(place, device).second) {
        return std::nullopt;
    }
    return BusChange{BusChange::Kind::arrived, device};
}

std::optional<BusChange> Presence::hear_left(BusPlace place) {
    doubtful_.erase(place);
    const auto found = present_.find(place);
    if (found == present_.end()) {
        return std::nullopt;
    }
    BusChange change{BusChange::Kind::left, std::move(found->second)};
    present_.erase(found);
    return change;
}

std::vector<BusChange> Presence::look(const BusContents& seen) {
    std::set<BusPlace> different;
    for (const auto& [place, device] : present_) {
        if (!seen.contains(place)) {
            different.insert(place);
        }
    }
    for (const auto& [place, device] : seen) {
        if (!present_.contains(place)) {
            different.insert(place);
        }
    }
    std::vector<BusChange> changes;
    // A device that has left first: another one may be in its port by now.
    for (const bool is_there : {false, true}) {
        for (const BusPlace& place : std::set(different)) { // a copy: what is told leaves the set
            if (doubtful_.contains(place) && seen.contains(place) == is_there) {
                different.erase(place);
                changes.push_back(is_there ? *hear_arrived(place, seen.at(place)) : *hear_left(place));
            }
        }
    }
    doubtful_ = std::move(different);
    return changes;
}

struct BusWatch::News {
    struct Item {
        OwnedDevice device;
        bool has_left;
    };

    News() : context{make_context()} {
        constexpr int any = LIBUSB_HOTPLUG_MATCH_ANY;
        const int events = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT;
        // Without it, looking is all there is.
        comes = libusb_hotplug_register_callback(context.get(), events, LIBUSB_HOTPLUG_ENUMERATE, any, any, any, take,
                                                 this, nullptr) == LIBUSB_SUCCESS;
    }

    static int take(libusb_context*, libusb_device* device, libusb_hotplug_event event, void* news) {
        static_cast<News*>(news)->items.push_back(
            {OwnedDevice{libusb_ref_device(device)}, event == LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT});
        return 0;
    }

    void wait(std::chrono::milliseconds patience) const {
        timeval time{};
        time.tv_sec = patience.count() / 1000;
        time.tv_usec = patience.count() % 1000 * 1000;
        const int result = libusb_handle_events_timeout_completed(context.get(), &time, nullptr);
        if (result != LIBUSB_ERROR_INTERRUPTED) { // by a signal
            expect_success(result, "the USB devices cannot be watched");
        }
    }

    // What is there to begin with comes as news, too.
    BusContents take_first() {
        if (!comes) {
            return look_at_bus();
        }
        BusContents contents;
        for (const Item& item : std::exchange(items, {})) {
            contents.emplace(place_of(item.device.get()), describe(item.device.get()));
        }
        return contents;
    }

    OwnedContext context;
    bool comes = false;
    std::vector<Item> items; // given back before the context is left
};

BusWatch::BusWatch()
    : news_{std::make_unique<News>()}, presence_{news_->take_first()}, next_look_{Clock::now() + look_pause} {}

BusWatch::~BusWatch() = default;

std::vector<BusChange> BusWatch::wait(std::chrono::milliseconds patience) {
    news_->wait(patience);
    std::vector<BusChange> changes;
    for (const News::Item& item : std::exchange(news_->items, {})) {
        libusb_device* device = item.device.get();
        auto change = item.has_left ? presence_.hear_left(place_of(device))
                                    : presence_.hear_arrived(place_of(device), describe(device));
        if (change) {
            changes.push_back(std::move(*change));
        }
    }
    if (Clock::now() >= next_look_) {
        for (BusChange& change : presence_.look(look_at_bus())) {
            changes.push_back(std::move(change));
        }
        next_look_ = Clock::now() + look_pause;
    }
    return changes;
}

} // namespace vxpadctl
