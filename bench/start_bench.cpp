// Start and stop with many pads through the library and by hand with hidapi, in one run.
//
// Needs HID pads that the library knows and asks for their version. The hand-written code looks for the same ids, opens
// what it finds, reads the three strings and asks for the version.
#include "by_hand.hpp"
#include "paired.hpp"

#include <array>
#include <benchmark/benchmark.h>
#include <vxpadcom/internals.h>
#include <vxpadcom/vxpadcom.h>

namespace {

constexpr std::size_t report_length = 65;    // report id and 64 bytes
constexpr unsigned char read_version = 0x11; // the command, behind the report id
constexpr int fewest_pads = 2;

bool ask(const char* path) {
    const by_hand::Handle hid{hid_open_path(path)};
    std::array<wchar_t, 256> text;
    for (auto* query : {hid_get_manufacturer_string, hid_get_product_string, hid_get_serial_number_string}) {
        if (!hid || query(hid.get(), text.data(), text.size()) != 0) {
            return false;
        }
    }
    std::array<unsigned char, report_length> report{};
    report[1] = read_version;
    if (hid_send_feature_report(hid.get(), report.data(), report.size()) != static_cast<int>(report.size())) {
        return false;
    }
    report[0] = 0;
    return hid_get_feature_report(hid.get(), report.data(), report.size()) > 0 && report[1] == read_version;
}

// The number of pads, those counted twice whose ids are looked for twice, or 0 where one does not answer.
int start_by_hand() {
    int found = 0;
    for (const vx_usb_id* id = hid_device_list; id->vendor_id != 0; ++id) {
        const std::unique_ptr<hid_device_info, decltype(&hid_free_enumeration)> list{
            hid_enumerate(static_cast<unsigned short>(id->vendor_id), static_cast<unsigned short>(id->product_id)),
            hid_free_enumeration};
        for (const hid_device_info* one = list.get(); one != nullptr; one = one->next) {
            if (!ask(one->path)) {
                return 0;
            }
            ++found;
        }
    }
    hid_exit();
    return found;
}

int start_by_library() {
    unsigned int unused = 0;
    Initialize();
    const int found = GetDeviceCount(&unused);
    Deinitialize();
    return found;
}

void start(benchmark::State& state) {
    const int pads = start_by_library();
    if (pads < fewest_pads) {
        state.SkipWithError("no virtual pads");
        return;
    }
    paired::compare(
        state, [pads] { return start_by_library() == pads; }, [pads] { return start_by_hand() >= pads; }, 1);
}
BENCHMARK(start)->Name("Initialize and Deinitialize over opening and asking")->UseRealTime()->MinTime(10);

} // namespace

BENCHMARK_MAIN();
