#include "scenarios/steps.hpp"

#include <array>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace faults {

HidInterface& plug_hid(unsigned int number) {
    const std::string port = "1-" + std::to_string(number);
    return bus().plug(pad_of_type(9, port + ":1.0", 0, L"SN000" + std::to_wstring(number)));
}
HidInterface& plug_further(unsigned int number) {
    return bus().plug(pad_of_type(9, "1-" + std::to_string(number) + ":1.1", 1, L"SN000" + std::to_wstring(number)));
}

int start(Run& run) {
    run.plain("Initialize", Initialize());
    unsigned int reply = 0;
    return run.plain("GetDeviceCount", GetDeviceCount(&reply));
}

void stop(Run& run) {
    run.plain("Deinitialize", Deinitialize());
}

void expect_pads(Run& run, int count) {
    run.expect_healthy(start(run) == count, "not all pads are found");
}

bool set_feature(Run& run, unsigned int device, unsigned int interface) {
    const std::array<unsigned char, 65> report{0, 9, 8, 7};
    unsigned int reply = 0;
    return run.api("SetFeature", SetFeature(device, interface, report.data(), 65, &reply)) == 0 && reply == 65;
}

bool get_feature(Run& run, unsigned int device, unsigned int interface) {
    std::array<unsigned char, 65> report{};
    unsigned int reply = 0;
    return run.api("GetFeature", GetFeature(device, interface, report.data(), 65, &reply)) == 0 && reply == 65 &&
           report[1] == 9;
}

bool write_file(Run& run, unsigned int device) {
    const std::array<unsigned char, 65> report{0, 5};
    unsigned int reply = 0;
    return run.api("WriteFile", WriteFile(device, 0, report.data(), 65, &reply)) == 0 && reply == 65;
}

bool read_file(Run& run, unsigned int device) {
    std::array<unsigned char, 65> report{};
    unsigned int reply = 0;
    return run.api("ReadFile", ReadFile(device, 0, report.data(), 65, &reply)) == 0 && reply == 65 && report[1] == 7;
}

bool send_message(Run& run, unsigned int device, const Bytes& message) {
    return run.api("SendSspMessage",
                   SendSspMessage(device, 0, message.data(), static_cast<unsigned int>(message.size()))) == 0;
}

unsigned int receive_message(Run& run, unsigned int device, unsigned int time_out) {
    std::array<unsigned char, 256> message{};
    unsigned int reply = 0;
    const int result =
        run.api("ReceiveSspMessage", ReceiveSspMessage(device, 0, message.data(), message.size(), time_out, &reply));
    return result == 0 ? reply : 0;
}

void ignore_removal(void*, unsigned int) {}

void count_call(void* counter, unsigned int) {
    ++*static_cast<std::atomic<int>*>(counter);
}

void count_report(void* counter, unsigned int, unsigned int, const void*, unsigned int) {
    ++*static_cast<std::atomic<int>*>(counter);
}

void let_threads_work(const Run& run, const std::function<bool()>& done, unsigned int for_naps) {
    const unsigned int first = naps();
    const std::chrono::milliseconds longest{run.is_healthy() ? 10'000 : 200};
    const auto end = std::chrono::steady_clock::now() + longest;
    while (!done() && (run.is_healthy() || naps() - first < for_naps) && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
}

int set_handler(Run& run, unsigned int device, vxpad_data_callback callback, void* user_specific) {
    return run.api("SetOnDataReceivedHandler", SetOnDataReceivedHandler(device, 0, callback, user_specific),
                   {VXPCEC_INVALID_PARAMETER});
}

int enable(Run& run, unsigned int device, bool enabled) {
    return run.receiving(SetDataReceivingEnabled(device, 0, enabled ? 1 : 0));
}

bool receive(Run& run, unsigned int device, int wanted) {
    std::atomic<int> count = 0;
    const int handler = set_handler(run, device, count_report, &count);
    if (const int enabled = enable(run, device); enabled == 0 && handler == 0) {
        let_threads_work(run, [&] { return count >= wanted; });
    }
    enable(run, device, false);
    set_handler(run, device, nullptr, nullptr);
    const bool complete = count == wanted;
    stop(run); // the count is ours
    return complete;
}

std::vector<Bytes> reports() {
    return std::vector<Bytes>(3, Bytes(64, 7));
}

bool upload(Run& run, unsigned int device, unsigned int mask) {
    const Bytes pieces(std::size_t{65} * 6, 3);
    unsigned int reply = 0;
    const int result = run.api("WriteFileBuffer", WriteFileBuffer(device, mask, pieces.data(),
                                                                  static_cast<unsigned int>(pieces.size()), &reply));
    run.expect(reply <= pieces.size(), "WriteFileBuffer has sent more than there is");
    return result == 0 && reply == pieces.size();
}

void end_uploads() {
    const Bytes one(std::size_t{65} * 6, 3);
    unsigned int reply = 0;
    WriteFileBuffer(1, 1, one.data(), static_cast<unsigned int>(one.size()), &reply);
}

namespace {

bool text_of(Run& run, const char* function, int (*get)(unsigned int, char16_t*, int, unsigned int*)) {
    std::array<char16_t, 64> text{};
    unsigned int reply = 0;
    return run.api(function, get(1, text.data(), 64, &reply)) == 0 && reply > 0;
}

bool number_of(Run& run, const char* function, int (*get)(unsigned int, unsigned int*)) {
    unsigned int reply = 0;
    return run.api(function, get(1, &reply)) == 0;
}

} // namespace

void ask_facts(Run& run) {
    bool all = text_of(run, "GetSerialNumber", GetSerialNumber) && text_of(run, "GetVendorName", GetVendorName);
    std::array<char16_t, 64> text{};
    unsigned int reply = 0;
    all = run.api("GetProductName", GetProductName(1, 0, text.data(), 64, &reply)) == 0 && all;
    all = run.api("GetProductId", GetProductId(1, 0, &reply)) == 0 && all;
    all = run.api("GetFeatureReportSize", GetFeatureReportSize(1, 0, &reply)) == 0 && reply == 65 && all;
    all = number_of(run, "GetVendorId", GetVendorId) && all;
    all = number_of(run, "GetUsbVersion", GetUsbVersion) && all;
    all = number_of(run, "GetUsedTransportProtocol", GetUsedTransportProtocol) && all;
    all = number_of(run, "GetBytesToSend", GetBytesToSend) && all;
    all = number_of(run, "GetEndPointCount", GetEndPointCount) && all;
    all = run.api("SetUsedTransportProtocol", SetUsedTransportProtocol(1, 1)) == 0 && all;
    run.expect_healthy(all, "a fact is missing");
}

} // namespace faults
