// Trace lines name the functions that a reader of the header and the log knows, not helpers behind them.
#include "captures.hpp"
#include "standins.hpp"
#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <thread>

namespace {

std::set<std::string> known_names() {
    // Functions of the exported layer that have a name in the log without being exported.
    std::set<std::string> names{"exception",          "init_exceptions", "set_dev_to_current", "get_current_dev",
                                "looking_for_device", "__deinitialize",  "stop_read_threads",  "start_thread",
                                "stop_thread",        "__stop_thread",   "flush_data_packets", "start_routine",
                                "read_file",          "pirc_routine",    "start_upload",       "interface_routine"};
    std::ifstream list{EXPORTS_LIST};
    for (std::string name; std::getline(list, name);) {
        names.insert(name);
    }
    return names;
}

// Much of what the library does, good and bad.
void use_the_library() {
    auto& bus = standins::bus();
    bus.reset();
    standins::HidInterface& pad = bus.plug(standins::pad_of_type(9));
    bus.plug(standins::pad_of_type(9, "1-1:1.1", 1));
    standins::HidInterface& other = bus.plug(standins::pad_of_type(8, "1-2:1.0", 0, L"SN0002"));
    Initialize();

    std::array<unsigned char, 65> report{};
    std::array<char16_t, 256> text{};
    unsigned int reply = 0;
    const auto use_both_pads = [&] {
        for (const unsigned int device : {1U, 2U, 17U}) {
            for (const unsigned int interface : {0U, 1U, 5U}) {
                SetFeature(device, interface, report.data(), 65, &reply);
                GetFeature(device, interface, report.data(), 65, &reply);
                WriteFile(device, interface, report.data(), 65, &reply);
                ReadFile(device, interface, report.data(), 65, &reply);
                WriteFile(device, interface, report.data(), 66, &reply);
                ReadFile(device, interface, report.data(), 66, &reply);
                SetFeature(device, interface, report.data(), 1, &reply);
                GetProductName(device, interface, text.data(), 256, &reply);
                GetProductId(device, interface, &reply);
                GetFeatureReportSize(device, interface, &reply);
            }
        }
        GetSerialNumber(1, text.data(), 256, &reply);
        GetVendorName(1, text.data(), 256, &reply);
        GetVendorId(1, &reply);
        GetUsbVersion(1, &reply);
        SetUsedTransportProtocol(1, 1);
        GetUsedTransportProtocol(1, &reply);
        GetBytesToSend(1, &reply);
        GetEndPointCount(1, &reply);
        EnumerateDevicesStart(&reply);
        EnumerateDevicesNext(&reply);
        core_set_device_to_current(nullptr);
        core_set_device_to_current("no such pad");
        core_enable_ssp_biodata_sending();
        core_disable_ssp_biodata_sending();
        __core_reopen_devs();
    };
    use_both_pads();
    SayHello(u"text", text.data(), 256, &reply);
    GetDeviceCount(nullptr);
    GetExceptionType(1, text.data(), 256, &reply);
    GetExceptionName(1, text.data(), 256, &reply);
    GetExceptionMessage(64, text.data(), 256, &reply);
    GetExceptionCode(1, &reply);
    TranslateErrorCode(1, nullptr, 0, nullptr);
    SetOnDeviceArrivedHandler(nullptr, nullptr);
    TriggerOnDeviceArrivedEvents();
    LogDeviceStatistics(1);
    bus.unplug(pad);
    bus.unplug(other);
    use_both_pads();
    Initialize();
    EnumerateDevicesStart(&reply);

    std::array<unsigned char, 64> data{};
    hid_open_dev("1-9:1.0");
    hid_feature_read(nullptr, data.data(), 64);
    hid_read_ssp_data(nullptr, data.data(), 64, 100, 1);
    core_read_version(nullptr, nullptr);
    core_set_pad_mode(nullptr, 1, 0);
    core_create_signature_rectangle(nullptr, 0, 0, 0, 0, 0);
    core_feature_read(nullptr, data.data(), 64);
    uni_queue* const queue = init_uni_queue();
    get_uni_frame(queue, &reply);
    add_uni_frame(queue, std::calloc(1, 4), 4);
    destroy_uni_queue(queue);
    load_file("/nonexistent/file", &reply);
    save_file("/dev/null", data.data(), 64);
    save_file(nullptr, nullptr, 0);
    print_wchar_to_asci(u"text");
    print_bits(1);
    print_bytes(data.data(), 1);
    print_current_time();
    Deinitialize();
}

// The threads too.
void receive_and_upload() {
    auto& bus = standins::bus();
    bus.reset();
    standins::HidInterface& pad = bus.plug(standins::pad_of_type(9));
    bus.hooks.usleep = [](unsigned int) { std::this_thread::sleep_for(std::chrono::milliseconds(1)); };
    Initialize();
    static std::atomic<bool> received;
    received = false;
    SetOnDataReceivedHandler(
        1, 0, [](void*, unsigned int, unsigned int, const void*, unsigned int) { received = true; }, nullptr);
    for (const unsigned int device : {1U, 3U, 17U}) {
        SetDataReceivingEnabled(device, 0, 1);
    }
    {
        const auto guard = bus.lock();
        pad.input_reports.push_back(standins::Bytes(64, 7));
    }
    for (int i = 0; i < 5000 && !received; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    unsigned int count = 0;
    GetDataPacketsAvailable(1, 0, &count);
    FlushDataPackets(1, 0);
    const standins::Bytes buffer(130);
    WriteFileBuffer(1, 3, buffer.data(), 130, &count);
    ReadFileBuffer(1, 3, nullptr, 0, nullptr);
    bus.unplug(pad); // the receive thread finds it gone, so it must be running still
    for (int i = 0; i < 5000 && bus.open_handles() > 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(bus.open_handles(), 0);
    SetOnDataReceivedHandler(1, 0, nullptr, nullptr);
    Deinitialize();
    bus.hooks = {};
}

TEST(TracedNames, AreThoseOfKnownFunctions) {
    std::string output;
    std::string errors;
    {
        const standins::EnvironmentGuard debug("LIBVXPADCOM_DEBUG", "1");
        const standins::EnvironmentGuard functions("LIBVXPADCOM_DEBUG_FUNC", "1");
        const standins::EnvironmentGuard mutexes("LIBVXPADCOM_DEBUG_MUTEX", "1");
        const standins::OutputCapture standard_output(STDOUT_FILENO);
        const standins::OutputCapture standard_error(STDERR_FILENO);
        use_the_library();
        receive_and_upload();
        output = standard_output.text();
        errors = standard_error.text();
    }
    std::set<std::string> traced;
    const std::regex name{"\x1b\\[3\\dm\\d+: [0-9:.]+: *[\\w.]+: *\\d+: (?:info: |error: )?(\\w+)\\(\\): "};
    for (const std::string& text : {output, errors}) {
        for (auto match = std::sregex_iterator(text.begin(), text.end(), name); match != std::sregex_iterator();
             ++match) {
            traced.insert((*match)[1]);
        }
    }

    EXPECT_GT(traced.size(), 60U);
    const auto known = known_names();
    for (const std::string& one : traced) {
        EXPECT_TRUE(known.contains(one)) << one;
    }
}

} // namespace
