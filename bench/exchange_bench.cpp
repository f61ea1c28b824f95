// Feature reports of one pad through the library and by hand with hidapi, in one run.
//
// Needs a pad with two HID interfaces, plugged in or virtual: the library works on the first, the hand-written code on
// the second.
#include "by_hand.hpp"
#include "paired.hpp"

#include <array>
#include <benchmark/benchmark.h>
#include <vxpadcom/vxpadcom.h>

namespace {

constexpr std::size_t report_length = 65; // report id and 64 bytes

using Report = std::array<unsigned char, report_length>;

// The second interface of the first pad.
by_hand::Handle open_second_interface() {
    unsigned int vendor_id = 0;
    unsigned int product_id = 0;
    GetVendorId(1, &vendor_id);
    GetProductId(1, 0, &product_id);
    return by_hand::open(static_cast<unsigned short>(vendor_id), static_cast<unsigned short>(product_id), 1);
}

template <typename Library, typename ByHand>
void compare(benchmark::State& state, Library library_call, ByHand hand_written_call) {
    Initialize();
    by_hand::Handle hid = open_second_interface();
    if (!hid) {
        state.SkipWithError("no pad with two HID interfaces");
        Deinitialize();
        return;
    }
    Report report{};
    paired::compare(
        state, [&] { return library_call(report); }, [&] { return hand_written_call(hid.get(), report); });
    hid.reset(); // Deinitialize() shuts hidapi down
    Deinitialize();
}

void get_feature(benchmark::State& state) {
    compare(
        state,
        [](Report& report) {
            unsigned int reply = 0;
            return GetFeature(1, 0, report.data(), report_length, &reply) == 0;
        },
        [](hid_device* hid, Report& report) {
            report[0] = 0;
            return hid_get_feature_report(hid, report.data(), report.size()) == static_cast<int>(report.size());
        });
}
BENCHMARK(get_feature)->Name("GetFeature over hid_get_feature_report")->UseRealTime();

void set_feature(benchmark::State& state) {
    compare(
        state,
        [](Report& report) {
            unsigned int reply = 0;
            return SetFeature(1, 0, report.data(), report_length, &reply) == 0;
        },
        [](hid_device* hid, Report& report) {
            report[0] = 0;
            return hid_send_feature_report(hid, report.data(), report.size()) == static_cast<int>(report.size());
        });
}
BENCHMARK(set_feature)->Name("SetFeature over hid_send_feature_report")->UseRealTime();

} // namespace

BENCHMARK_MAIN();
