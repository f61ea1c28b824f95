// The pads that emulator.pads runs with, and the least that one does with them through hidapi.
#pragma once

#include "pads.hpp"

#include <gtest/gtest.h>
#include <hidapi.h>
#include <optional>
#include <string>
#include <vector>

namespace pads {

// The pads of CMakeLists.txt.
inline constexpr int main_pad = 1;      // type 16, two interfaces, status shows a new mode after 3 polls
inline constexpr int oldest_pad = 2;    // type 1
inline constexpr int strings_pad = 3;   // strings that are long, odd or missing
inline constexpr int hostile_pad = 4;   // 40 interfaces
inline constexpr int loop_back_pad = 5; // 32 interfaces, unknown commands are no requests
inline constexpr int pad_count = 5;
inline constexpr int main_interfaces = 2;

inline std::string hid_path(int pad, int interface) {
    return "1-" + std::to_string(pad) + ":1." + std::to_string(interface);
}
inline Hid open_hid(int pad, int interface) {
    return Hid(hid_open_path(hid_path(pad, interface).c_str()));
}
inline int write_feature(const Hid& device, Bytes report, std::size_t size = 64) {
    report.resize(size);
    report.insert(report.begin(), 0);
    return hid_send_feature_report(device.get(), report.data(), report.size());
}

// The report without its id; shorter when less came, nothing after a failure.
inline std::optional<Bytes> read_feature(const Hid& device) {
    Bytes report(65);
    const int size = hid_get_feature_report(device.get(), report.data(), report.size());
    if (size < 0) {
        return std::nullopt;
    }
    return Bytes(report.begin() + 1, report.begin() + size);
}

inline std::optional<Bytes> ask(const Hid& device, const Bytes& report) {
    if (write_feature(device, report) != 65) {
        return std::nullopt;
    }
    return read_feature(device);
}

inline bool asks_version(const Hid& device) {
    const auto reply = ask(device, {0x11});
    return reply && reply->size() == 64 && reply->front() == 0x11 && reply->at(1) == 0;
}

class Pads : public FreshPads {
  protected:
    Pads() : FreshPads{pad_count} {}
};

} // namespace pads
