// What a scenario tells of its calls: their results, the records behind them, how long they took.
#include "scenario.hpp"

#include "api_test.hpp"
#include "calls.hpp"
#include "vxpadcom/vxpadcom.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace faults {

void Run::note(const char* function, int result) {
    results_.push_back(result);
    const std::int64_t now = spent_us();
    if (now - before_us_ > longest_us_) {
        longest_us_ = now - before_us_;
        longest_call_ = function;
    }
    before_us_ = now;
    expect(locks_held_here() == 0, std::string(function) + " returns with a lock held");
}

void Run::expect_record(const char* function, int handle, std::initializer_list<int> codes) {
    const Truce truce;
    const auto number = static_cast<unsigned int>(handle);
    unsigned int code = 0;
    if (GetExceptionCode(number, &code) != 0) {
        findings_.push_back(std::string(function) + " returns " + std::to_string(handle) + ", which names no record");
        return;
    }
    if (std::find(codes.begin(), codes.end(), static_cast<int>(code)) == codes.end()) {
        findings_.push_back(std::string(function) + " files the code " + std::to_string(static_cast<int>(code)));
    }
    const auto text_of = [number](int (*read)(unsigned int, char16_t*, int, unsigned int*)) {
        std::array<char16_t, 256> text{};
        unsigned int units = 0;
        return read(number, text.data(), 256, &units) == 0 ? api::narrow(text.data(), units == 0 ? 0 : units - 1)
                                                           : std::string("?");
    };
    if (const std::string name = text_of(GetExceptionName); name != function) {
        findings_.push_back(std::string(function) + " files a record of " + name);
    }
    if (text_of(GetExceptionMessage).empty()) {
        findings_.push_back(std::string(function) + " files a record without a message");
    }
}

int Run::api(const char* function, int result, std::initializer_list<int> codes) {
    note(function, result == 0 ? 0 : 1);
    if (result != 0) {
        expect_record(function, result, codes);
    }
    return result;
}

int Run::api(const char* function, int result) {
    return api(function, result, {VXPCEC_INVALID_HANDLE});
}

int Run::receiving(int result) {
    note("SetDataReceivingEnabled", result);
    expect(result == 0 || result == -1, "SetDataReceivingEnabled returns " + std::to_string(result));
    return result;
}

int Run::core(const char* function, int result) {
    note(function, result);
    constexpr int documented[] = {-1, -2, -4, -7, -9, -20}; // libusb's own among them
    expect(result >= 0 || std::find(std::begin(documented), std::end(documented), result) != std::end(documented),
           std::string(function) + " returns " + std::to_string(result));
    return result;
}

int Run::plain(const char* function, int result) {
    note(function, result);
    return result;
}

void Run::expect(bool holds, const std::string& what) {
    if (!holds) {
        findings_.push_back(what);
    }
}

void Run::expect_healthy(bool holds, const char* what) {
    expect(holds || !healthy_, what);
}

} // namespace faults
