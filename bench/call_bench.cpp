// The library's own cost of a call: the functions of hidapi are replaced by ones that answer at once.
#include <array>
#include <benchmark/benchmark.h>
#include <cstring>
#include <hidapi/hidapi.h>
#include <string>
#include <unistd.h>
#include <vxpadcom/internals.h>
#include <vxpadcom/vxpadcom.h>

namespace {

char interface_path[] = "null";
hid_device_info interface_info{};
int handle;

hid_device* null_handle() {
    return reinterpret_cast<hid_device*>(&handle);
}

int fill(wchar_t* text, const wchar_t* value) {
    std::wcscpy(text, value);
    return 0;
}

// The last pair of the list: a pad that is neither asked for its version nor has a signature rectangle.
bool is_null_pad(unsigned short vendor_id, unsigned short product_id) {
    const vx_usb_id& pad = hid_device_list[std::size(hid_device_list) - 3];
    return pad.vendor_id == vendor_id && pad.product_id == product_id;
}

} // namespace

extern "C" {
hid_device_info* hid_enumerate(unsigned short vendor_id, unsigned short product_id) {
    interface_info.path = interface_path;
    return is_null_pad(vendor_id, product_id) ? &interface_info : nullptr;
}
void hid_free_enumeration(hid_device_info*) {}
hid_device* hid_open_path(const char*) {
    return null_handle();
}
void hid_close(hid_device*) {}
int hid_exit() {
    return 0;
}
int hid_set_nonblocking(hid_device*, int) {
    return 0;
}
int hid_get_manufacturer_string(hid_device*, wchar_t* text, size_t) {
    return fill(text, L"Null");
}
int hid_get_product_string(hid_device*, wchar_t* text, size_t) {
    return fill(text, L"Pad");
}
int hid_get_serial_number_string(hid_device*, wchar_t* text, size_t) {
    return fill(text, L"SN0001");
}
int hid_send_feature_report(hid_device*, const unsigned char*, size_t length) {
    return static_cast<int>(length);
}
int hid_get_feature_report(hid_device*, unsigned char*, size_t length) {
    return static_cast<int>(length);
}
int hid_read(hid_device*, unsigned char*, size_t) {
    return 0;
}
}

namespace {

using Report = std::array<unsigned char, 65>;

template <typename Call> void measure(benchmark::State& state, Call call) {
    Initialize();
    for ([[maybe_unused]] auto iteration : state) {
        if (call() != 0) {
            state.SkipWithError("the call failed");
            break;
        }
    }
    Deinitialize();
}

void get_feature(benchmark::State& state) {
    Report report{};
    unsigned int reply = 0;
    measure(state, [&] { return GetFeature(1, 0, report.data(), report.size(), &reply); });
}

void set_feature(benchmark::State& state) {
    const Report report{};
    unsigned int reply = 0;
    measure(state, [&] { return SetFeature(1, 0, report.data(), report.size(), &reply); });
}

void read_file_empty(benchmark::State& state) {
    std::array<unsigned char, 21> report{};
    unsigned int reply = 0;
    measure(state, [&] { return ReadFile(1, 0, report.data(), report.size(), &reply); });
}

void get_serial_number(benchmark::State& state) {
    std::array<char16_t, 64> text{};
    unsigned int reply = 0;
    measure(state, [&] { return GetSerialNumber(1, text.data(), static_cast<int>(text.size()), &reply); });
}

struct Case {
    const char* name;
    void (*measured)(benchmark::State&);
};

constexpr Case cases[] = {
    {"GetFeature", get_feature},
    {"SetFeature", set_feature},
    {"ReadFile, nothing waiting", read_file_empty},
    {"GetSerialNumber", get_serial_number},
};

// What tracing costs while it is off depends on it.
std::size_t number_of_variables() {
    std::size_t count = 0;
    while (environ[count] != nullptr) {
        ++count;
    }
    return count;
}

} // namespace

int main(int argc, char** argv) {
    const std::string variables = ", " + std::to_string(number_of_variables()) + " variables";
    for (const Case& one : cases) {
        benchmark::RegisterBenchmark((one.name + variables).c_str(), one.measured);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
