// Feature reports of one pad through the library and by hand with hidapi, in one run.
//
// Needs a pad with two HID interfaces, plugged in or virtual: the library works on the first, the hand-written code on
// the second. Both sides take turns in short blocks, so that whatever else the machine does meets both alike. The
// counters are the medians over all blocks: microseconds a call, wall time and CPU time of this process, and the
// library's cost over the hand-written one in per cent.
#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <ctime>
#include <hidapi/hidapi.h>
#include <memory>
#include <string>
#include <vector>
#include <vxpadcom/vxpadcom.h>

namespace {

constexpr std::size_t report_length = 65; // report id and 64 bytes
constexpr int calls_per_block = 100;

using Report = std::array<unsigned char, report_length>;

double seconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

struct Samples {
    std::vector<double> wall;
    std::vector<double> cpu;
};

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Times one block of calls; false where one of them failed.
template <typename Call> bool sample(Samples& samples, Call call) {
    const double wall = seconds(CLOCK_MONOTONIC);
    const double cpu = seconds(CLOCK_PROCESS_CPUTIME_ID);
    bool succeeded = true;
    for (int i = 0; i < calls_per_block; ++i) {
        succeeded = call() && succeeded;
    }
    samples.cpu.push_back((seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu) / calls_per_block * 1e6);
    samples.wall.push_back((seconds(CLOCK_MONOTONIC) - wall) / calls_per_block * 1e6);
    return succeeded;
}

struct HandleCloser {
    void operator()(hid_device* hid) const { hid_close(hid); }
};
using Handle = std::unique_ptr<hid_device, HandleCloser>;

// The second interface of the first pad, opened by hand.
Handle open_second_interface() {
    unsigned int reply = 0;
    unsigned int vendor_id = 0;
    unsigned int product_id = 0;
    GetVendorId(1, &vendor_id);
    GetProductId(1, 0, &product_id);
    if (GetEndPointCount(1, &reply) != 0 || reply < 2) {
        return nullptr;
    }
    const std::unique_ptr<hid_device_info, decltype(&hid_free_enumeration)> list{
        hid_enumerate(static_cast<unsigned short>(vendor_id), static_cast<unsigned short>(product_id)),
        hid_free_enumeration};
    for (const hid_device_info* interface = list.get(); interface != nullptr; interface = interface->next) {
        if (interface->interface_number == 1) {
            return Handle{hid_open_path(interface->path)};
        }
    }
    return nullptr;
}

template <typename Library, typename ByHand>
void compare(benchmark::State& state, Library library_call, ByHand hand_written_call) {
    Initialize();
    Handle hid = open_second_interface();
    if (!hid) {
        state.SkipWithError("no pad with two HID interfaces");
        Deinitialize();
        return;
    }
    Samples library;
    Samples by_hand;
    Report report{};
    for ([[maybe_unused]] auto iteration : state) {
        const bool succeeded = sample(library, [&] { return library_call(report); }) &&
                               sample(by_hand, [&] { return hand_written_call(hid.get(), report); });
        if (!succeeded) {
            state.SkipWithError("a transfer failed");
            break;
        }
    }
    if (!library.wall.empty() && !by_hand.wall.empty()) {
        const double library_wall = median(library.wall);
        const double library_cpu = median(library.cpu);
        state.counters["lib_wall_us"] = library_wall;
        state.counters["hid_wall_us"] = median(by_hand.wall);
        state.counters["wall_over_%"] = (library_wall / median(by_hand.wall) - 1) * 100;
        state.counters["lib_cpu_us"] = library_cpu;
        state.counters["hid_cpu_us"] = median(by_hand.cpu);
        state.counters["cpu_over_%"] = (library_cpu / median(by_hand.cpu) - 1) * 100;
    }
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
BENCHMARK(get_feature)->Name("GetFeature over hid_get_feature_report")->UseRealTime()->MinTime(4);

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
BENCHMARK(set_feature)->Name("SetFeature over hid_send_feature_report")->UseRealTime()->MinTime(4);

} // namespace

BENCHMARK_MAIN();
