// Start and stop with many pads through the library and by hand with hidapi and libusb, in one run.
//
// Needs HID pads that the library knows and asks for their version. The hand-written code looks for the same ids, opens
// what it finds, each interface of it, reads the three strings and asks for the version. A second one does all that the
// library promises to do with the two libraries: the search for VCOM pads too, each pad opened once more as it is
// entered into the list, and the pauses.
#include "by_hand.hpp"
#include "paired.hpp"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <libusb-1.0/libusb.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>
#include <vxpadcom/internals.h>
#include <vxpadcom/vxpadcom.h>

namespace {

constexpr std::size_t report_length = 65; // report id and 64 bytes
// Commands, behind the report id.
constexpr unsigned char read_version = 0x11;
constexpr unsigned char set_signature_rectangle = 0x65;
constexpr std::size_t fewest_pads = 2;

bool exchange(hid_device* hid, unsigned char command) {
    std::array<unsigned char, report_length> report{};
    report[1] = command;
    if (hid_send_feature_report(hid, report.data(), report.size()) != static_cast<int>(report.size())) {
        return false;
    }
    report[0] = 0;
    return hid_get_feature_report(hid, report.data(), report.size()) > 0 && report[1] == command;
}

bool ask(hid_device* hid) {
    std::array<wchar_t, 256> text;
    for (auto* query : {hid_get_manufacturer_string, hid_get_product_string, hid_get_serial_number_string}) {
        if (hid == nullptr || query(hid, text.data(), text.size()) != 0) {
            return false;
        }
    }
    return exchange(hid, read_version);
}

// Asks each interface; the paths of the pads' first ones, or nothing where one does not answer.
template <typename Close> std::vector<std::string> find_by_hand(Close close) {
    std::vector<std::string> pads;
    for (const vx_usb_id* id = hid_device_list; id->vendor_id != 0; ++id) {
        const std::unique_ptr<hid_device_info, decltype(&hid_free_enumeration)> list{
            hid_enumerate(static_cast<unsigned short>(id->vendor_id), static_cast<unsigned short>(id->product_id)),
            hid_free_enumeration};
        for (const hid_device_info* one = list.get(); one != nullptr; one = one->next) {
            by_hand::Handle hid{hid_open_path(one->path)};
            if (!ask(hid.get())) {
                return {};
            }
            close(std::move(hid));
            if (one->interface_number == 0) {
                pads.emplace_back(one->path);
            }
        }
    }
    return pads;
}

std::size_t open_and_ask() {
    const auto pads = find_by_hand([](by_hand::Handle) {});
    hid_exit();
    return pads.size();
}

void close_after_pause(by_hand::Handle hid) {
    usleep(50);
    hid.reset();
}

void look_for_vcom_pads() {
    for (const vx_usb_id* id = vcom_device_list; id->vendor_id != 0; ++id) {
        libusb_device** list = nullptr;
        const ssize_t count = libusb_get_device_list(nullptr, &list);
        for (ssize_t i = 0; i < count; ++i) {
            libusb_device_descriptor descriptor{};
            benchmark::DoNotOptimize(libusb_get_device_descriptor(list[i], &descriptor));
        }
        libusb_free_device_list(list, 1);
    }
}

// Entering the pads into the list opens one after the other, and then the first one again; all stay open until the end.
// A pad's signature rectangle is cleared when it is opened and before it is closed at the end.
bool enter_by_hand(const std::vector<std::string>& paths) {
    std::vector<by_hand::Handle> pads;
    const auto enter = [&pads](const std::string& path) {
        by_hand::Handle hid{hid_open_path(path.c_str())};
        if (!hid) {
            return false;
        }
        hid_set_nonblocking(hid.get(), 0);
        pads.push_back(std::move(hid));
        return exchange(pads.back().get(), set_signature_rectangle);
    };
    if (!std::all_of(paths.begin(), paths.end(), enter)) {
        return false;
    }
    close_after_pause(std::move(pads.front()));
    pads.erase(pads.begin());
    if (!enter(paths.front())) {
        return false;
    }
    bool cleared = true;
    for (by_hand::Handle& pad : pads) {
        cleared = exchange(pad.get(), set_signature_rectangle) && cleared;
        close_after_pause(std::move(pad));
    }
    return cleared;
}

std::size_t make_the_same_calls() {
    libusb_init(nullptr); // which nobody takes back
    const auto pads = find_by_hand(close_after_pause);
    look_for_vcom_pads();
    const bool entered = !pads.empty() && enter_by_hand(pads);
    hid_exit();
    return entered ? pads.size() : 0;
}

std::size_t start_by_library() {
    unsigned int unused = 0;
    Initialize();
    const int found = GetDeviceCount(&unused);
    Deinitialize();
    return static_cast<std::size_t>(found);
}

void start(benchmark::State& state, std::size_t (*by_hand)()) {
    const std::size_t pads = start_by_library();
    if (pads < fewest_pads) {
        state.SkipWithError("no virtual pads");
        return;
    }
    paired::compare(
        state, [pads] { return start_by_library() == pads; }, [=] { return by_hand() == pads; }, 1);
}
BENCHMARK_CAPTURE(start, same_calls, make_the_same_calls)
    ->Name("Initialize and Deinitialize over the same calls by hand")
    ->UseRealTime();
BENCHMARK_CAPTURE(start, least, open_and_ask)->Name("beside opening and asking only over these by hand")->UseRealTime();

} // namespace

BENCHMARK_MAIN();
