#include "pad_test.hpp"

#include "kernel_pads.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iomanip>
#include <malloc.h>
#include <sstream>
#include <sys/time.h>

namespace pads {

namespace {

constexpr char16_t untouched_unit = 0xeeee;

constexpr bool counts_memory = !VXPAD_SANITIZED; // the sanitizers have allocators of their own

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream stream{text};
    for (std::string line; std::getline(stream, line);) {
        result.push_back(line);
    }
    return result;
}

std::string narrow(const std::u16string& text) {
    return {text.begin(), std::find(text.begin(), text.end(), u'\0')};
}

double now() {
    timeval time{};
    gettimeofday(&time, nullptr);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

int ask_any_text(const TextQuery& query) {
    std::array<char16_t, 256> text{};
    unsigned int reply = 0;
    return query(text.data(), static_cast<int>(text.size()), &reply);
}

int ask_any_number(const NumberQuery& query) {
    unsigned int reply = 0;
    return query(&reply);
}

std::ptrdiff_t entries(const char* directory) {
    return std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator());
}

} // namespace

void PrintTo(const Failure& failure, std::ostream* stream) {
    *stream << failure.code << " " << failure.function << "(): " << failure.message;
}

void PrintTo(const TextAnswer& answer, std::ostream* stream) {
    *stream << testing::PrintToString(answer.units) << ", reply " << answer.reply;
}

Failure failure(int result) {
    if (result == 0) {
        return {};
    }
    const auto handle = static_cast<unsigned int>(result);
    const auto text = [&](auto query) {
        return narrow(text_of([&](char16_t* res_text, int res_text_size, unsigned int* reply) {
            return query(handle, res_text, res_text_size, reply);
        }));
    };
    EXPECT_EQ(text(GetExceptionType), "libvxpadcom");
    return {number_of([&](unsigned int* reply) { return GetExceptionCode(handle, reply); }), text(GetExceptionName),
            text(GetExceptionMessage)};
}

Failure invalid_handle(const std::string& function, const std::string& message) {
    return {VXPCEC_INVALID_HANDLE, function, message};
}

Failure invalid_parameter(const std::string& function, const std::string& message) {
    return {VXPCEC_INVALID_PARAMETER, function, message};
}

TextAnswer ask_text(const TextQuery& query, int res_text_size) {
    const auto size = static_cast<std::size_t>(res_text_size);
    std::u16string buffer(size + 8, untouched_unit);
    TextAnswer answer{{}, reply_untouched};
    EXPECT_EQ(query(buffer.data(), res_text_size, &answer.reply), 0);
    EXPECT_EQ(buffer.substr(size), std::u16string(8, untouched_unit)) << "wrote behind the buffer";
    answer.units = buffer.substr(0, size);
    return answer;
}

std::u16string text_of(const TextQuery& query) {
    const auto units = ask_text(query, 300).units;
    return units.substr(0, units.find(u'\0'));
}

std::u16string serial_number(unsigned int device) {
    return text_of([&](char16_t* res_text, int res_text_size, unsigned int* reply) {
        return GetSerialNumber(device, res_text, res_text_size, reply);
    });
}

unsigned int number_of(const NumberQuery& query) {
    unsigned int reply = reply_untouched;
    EXPECT_EQ(query(&reply), 0);
    return reply;
}

const std::vector<DeviceCall>& device_calls() {
    constexpr const char* packet_size = "Error of getting max packet size of hid interfaces for device: ";
    static const std::vector<DeviceCall> calls{
        {"GetSerialNumber",
         [](unsigned int device) {
             return ask_any_text([&](auto... rest) { return GetSerialNumber(device, rest...); });
         },
         "Error of getting serial number for device: "},
        {"GetProductName",
         [](unsigned int device) {
             return ask_any_text([&](auto... rest) { return GetProductName(device, 0, rest...); });
         },
         "Error of getting device's name for device: "},
        {"GetVendorName",
         [](unsigned int device) { return ask_any_text([&](auto... rest) { return GetVendorName(device, rest...); }); },
         "Error of getting device's manufacturer for device: "},
        {"GetProductId",
         [](unsigned int device) {
             return ask_any_number([&](auto* reply) { return GetProductId(device, 0, reply); });
         },
         "Error of getting product ID for device: "},
        {"GetVendorId",
         [](unsigned int device) { return ask_any_number([&](auto* reply) { return GetVendorId(device, reply); }); },
         "Error of getting vendor ID for device: "},
        {"GetUsbVersion",
         [](unsigned int device) { return ask_any_number([&](auto* reply) { return GetUsbVersion(device, reply); }); },
         "Error of getting bcdDevice for device: "},
        {"GetUsedTransportProtocol",
         [](unsigned int device) {
             return ask_any_number([&](auto* reply) { return GetUsedTransportProtocol(device, reply); });
         },
         nullptr},
        {"SetUsedTransportProtocol", [](unsigned int device) { return SetUsedTransportProtocol(device, 1); }, nullptr},
        {"GetBytesToSend",
         [](unsigned int device) { return ask_any_number([&](auto* reply) { return GetBytesToSend(device, reply); }); },
         nullptr},
        {"GetEndPointCount",
         [](unsigned int device) {
             return ask_any_number([&](auto* reply) { return GetEndPointCount(device, reply); });
         },
         "Error of getting count of hid interfaces for device: "},
        {"GetFeatureReportSize",
         [](unsigned int device) {
             return ask_any_number([&](auto* reply) { return GetFeatureReportSize(device, 0, reply); });
         },
         packet_size},
        {"SetFeature", [](unsigned int device) { return set_feature(device, 0, report(65, 0x80)); }, packet_size},
        {"GetFeature", [](unsigned int device) { return read(GetFeature, device, 0).result; }, packet_size},
        {"WriteFile", [](unsigned int device) { return write_file(device, 0, report(65, 0x80)); }, packet_size},
        {"ReadFile", [](unsigned int device) { return read(ReadFile, device, 0).result; }, packet_size},
    };
    return calls;
}

Bytes report(std::size_t size, unsigned char first) {
    Bytes bytes(size, 0xaa);
    for (std::size_t i = 1; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(first + i - 1);
    }
    return bytes;
}

Bytes payload(const Bytes& report) {
    return {report.begin() + 1, report.end()};
}

ReadAnswer read(ReadFunction function, unsigned int device, unsigned int interface, unsigned int length) {
    ReadAnswer answer{0, reply_untouched, Bytes(length + 8, untouched)};
    answer.result = function(device, interface, answer.buffer.data(), length, &answer.reply);
    EXPECT_EQ(Bytes(answer.buffer.end() - 8, answer.buffer.end()), Bytes(8, untouched)) << "wrote behind the buffer";
    answer.buffer.resize(length);
    return answer;
}

Bytes received(const Bytes& payload) {
    Bytes bytes(payload.size() + 1); // with the report id
    std::ranges::copy(payload, bytes.begin() + 1);
    return bytes;
}

namespace {

using WriteFunction = int (*)(unsigned int, unsigned int, const void*, unsigned int, unsigned int*);

int write(WriteFunction function, unsigned int device, unsigned int interface, const Bytes& report) {
    unsigned int reply = reply_untouched;
    const auto size = static_cast<unsigned int>(report.size());
    const int result = function(device, interface, report.data(), size, &reply);
    EXPECT_EQ(reply, result == 0 ? size : reply_untouched);
    return result;
}

} // namespace

int set_feature(unsigned int device, unsigned int interface, const Bytes& report) {
    return write(SetFeature, device, interface, report);
}

int write_file(unsigned int device, unsigned int interface, const Bytes& report) {
    return write(WriteFile, device, interface, report);
}

namespace {

// All in one go, for the kernel looks at pads that come at the same time at once.
void ask_pad(const std::string& request, int pad) {
    emulator::request(request + " " + std::to_string(pad));
}

} // namespace

std::string to_pad(const std::string& request, int pad, const std::string& rest) {
    const bool moves = request == "plug" || request == "unplug";
    if (moves) {
        wait_for_kernel(); // for a pad that a fault has pulled out
    }
    const auto reply = emulator::request(request + " " + std::to_string(pad) + (rest.empty() ? "" : " ") + rest);
    if (moves) {
        wait_for_kernel();
    }
    return reply;
}

std::string hex(const Bytes& bytes) {
    std::ostringstream text;
    for (const auto byte : bytes) {
        text << std::hex << std::setw(2) << std::setfill('0') << static_cast<unsigned int>(byte);
    }
    return text.str();
}

std::vector<std::string> take_log(int pad, const std::string& kind) {
    auto log = lines(to_pad("log", pad));
    std::erase_if(log, [&](const std::string& line) { return line.find(" " + kind + " ") == std::string::npos; });
    return log;
}

std::string feature_line(const char* direction, unsigned int interface, const Bytes& payload) {
    return std::string(direction) + " feature " + std::to_string(interface) + " " + hex(payload);
}

std::string state_of(int pad, const std::string& name) {
    std::istringstream words{to_pad("state", pad)};
    for (std::string word; words >> word;) {
        if (word.starts_with(name + "=")) {
            return word.substr(name.size() + 1);
        }
    }
    return {};
}

bool is_plugged(int pad) {
    const bool plugged = state_of(pad, "plugged") == "1";
    if (!plugged) {
        wait_for_kernel();
    }
    return plugged;
}

void heal() {
    wait_for_kernel();
    int pads = 0;
    for (const auto& line : lines(emulator::request("list"))) {
        ++pads;
        ask_pad("clear-faults", pads);
        if (line.find(" unplugged ") != std::string::npos) {
            ask_pad("plug", pads);
        }
    }
    wait_for_kernel();
    for (int pad = 1; pad <= pads; ++pad) {
        ask_pad("log", pad);
    }
}

void plug_only(const std::vector<int>& pads) {
    wait_for_kernel();
    int pad = 0;
    for (const auto& line : lines(emulator::request("list"))) {
        ++pad;
        ask_pad("clear-faults", pad);
        if (line.find(" unplugged ") == std::string::npos) {
            ask_pad("unplug", pad);
        }
    }
    wait_for_kernel();
    for (const int wanted : pads) {
        ask_pad("plug", wanted);
    }
    wait_for_kernel();
}

void run_at_once(unsigned int threads, const std::function<void(unsigned int thread)>& action) {
    constexpr auto patience = 60s;
    std::atomic<unsigned int> ready{0};
    std::vector<std::future<void>> running;
    for (unsigned int thread = 0; thread < threads; ++thread) {
        running.push_back(std::async(std::launch::async, [&, thread] {
            ++ready;
            while (ready < threads) {
                std::this_thread::yield();
            }
            action(thread);
        }));
    }
    for (auto& thread : running) {
        if (thread.wait_for(patience) != std::future_status::ready) {
            std::fprintf(stderr, "a thread hangs\n");
            std::abort(); // there is no way to take a hanging thread back
        }
        thread.get();
    }
}

ReadAnswer next_input(unsigned int device, unsigned int interface, unsigned int length) {
    ReadAnswer answer{};
    EXPECT_TRUE(wait_for([&] {
        answer = read(ReadFile, device, interface, length);
        return answer.result != 0 || answer.reply != reply_untouched;
    })) << "no input report";
    return answer;
}

double seconds_of(const std::function<void()>& action) {
    const auto start = now();
    action();
    return now() - start;
}

int times(int everyday, int load) {
    return std::getenv("VXPAD_TEST_LOAD") == nullptr ? everyday : load;
}

Resources resources() {
    return {entries("/proc/self/fd"), entries("/proc/self/task"), mallinfo2().uordblks};
}

void expect_no_growth(const Resources& before, int cycles, int replugs) {
    const auto slack = static_cast<std::size_t>(16 * cycles + 640 * replugs);
    // libusb looks at a replugged pad on a thread of its own, and has a file open meanwhile.
    Resources after{};
    wait_for(
        [&] {
            after = resources();
            return after.descriptors <= before.descriptors && after.threads <= before.threads &&
                   after.memory < before.memory + slack;
        },
        2s);
    EXPECT_LE(after.descriptors, before.descriptors);
    EXPECT_LE(after.threads, before.threads);
    if (counts_memory) {
        EXPECT_LT(after.memory, before.memory + slack);
    }
}

} // namespace pads
