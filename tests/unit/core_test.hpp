// What the tests of the core and the HID transport share.
#pragma once

#include "base/all_given_back.hpp"
#include "base/pad_record.hpp"
#include "captures.hpp"
#include "standins.hpp"
#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace core_test {

using standins::always;
using standins::bus;
using standins::Bytes;
using standins::describe;
using standins::EnvironmentGuard;
using standins::HidInterface;
using standins::LogCapture;
using standins::pad_of_type;
using standins::results;
using standins::UsbDevice;
using standins::vcom_pad;

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

using Lines = std::vector<std::string>;
using Pauses = std::vector<unsigned int>;

// Types whose signature rectangle the core clears, and one without such extra traffic.
inline constexpr std::array rectangle_types{9U, 11U, 12U, 15U, 16U, 17U};
inline constexpr unsigned int plain_type = 10;

inline const std::string path = "1-1:1.0";

class CoreTest : public testing::Test {
  protected:
    CoreTest() {
        bus().reset();
        messages.emplace();
    }

    void TearDown() override {
        bus().hooks = {};
        core_uninitialize();
        standins::expect_all_given_back();
    }

    // The messages that the logging callback was given.
    Lines said() const { return messages->messages(); }
    int times_said(std::string_view part) const { return messages->count(part); }

    // From a clean slate, but with the same pads.
    void forget() {
        messages->clear();
        bus().take_log();
    }

  private:
    std::optional<LogCapture> messages; // made after the bus is reset
};

// The first or last lines, or all where there are fewer.
inline Lines first(std::size_t count, Lines lines) {
    lines.resize(std::min(count, lines.size()));
    return lines;
}
inline Lines last(std::size_t count, const Lines& lines) {
    return {lines.end() - static_cast<std::ptrdiff_t>(std::min(count, lines.size())), lines.end()};
}

inline auto Says(const std::string& text) {
    return Contains(HasSubstr(text));
}

// A record of a HID pad.
class Record : public PadRecord {
  public:
    explicit Record(const HidInterface& pad, unsigned int pad_type = plain_type) : PadRecord(pad_type) {
        get()->vendor_id = pad.vendor_id;
        get()->product_id = pad.product_id;
        get()->interface_number = static_cast<std::uint32_t>(pad.interface_number);
        pad.path.copy(get()->hid_path, sizeof get()->hid_path - 1);
    }
};

struct OpenRecord : Record {
    explicit OpenRecord(const HidInterface& pad, unsigned int pad_type = plain_type) : Record(pad, pad_type) { open(); }
};

// A registry of the test's own, in the state in which core_initialize() leaves the library's.
class OwnRegistry {
  public:
    OwnRegistry() {
        for (std::size_t i = 0; i < VX_MAX_DEVICES; ++i) {
            registry_.devices[i].interfaces = tables_[i].data();
            for (std::size_t k = 0; k < VX_MAX_FURTHER_INTERFACES; ++k) {
                tables_[i][k] = &further(i, k);
            }
        }
    }
    ~OwnRegistry() { core_close_all_devs_clear_mem(&registry_); }
    OwnRegistry(const OwnRegistry&) = delete;
    OwnRegistry& operator=(const OwnRegistry&) = delete;

    vx_registry* get() { return &registry_; }
    vx_registry* operator->() { return &registry_; }
    vx_device& slot(std::size_t i) { return registry_.devices[i]; }
    vx_device& further(std::size_t i, std::size_t k) { return records_[i * VX_MAX_FURTHER_INTERFACES + k]; }

  private:
    vx_registry registry_{};
    std::vector<vx_device> records_{static_cast<std::size_t>(VX_MAX_DEVICES) * VX_MAX_FURTHER_INTERFACES};
    std::array<std::array<vx_device*, VX_MAX_FURTHER_INTERFACES>, VX_MAX_DEVICES> tables_{};
};

// 200, 400, 800 ... µs: the pauses of a call that is tried again.
inline Pauses growing_pauses(std::size_t count) {
    Pauses pauses;
    for (unsigned int pause = 200; pauses.size() < count; pause *= 2) {
        pauses.push_back(pause);
    }
    return pauses;
}

// With calls that cost no time, the sum of the pauses passes 1000 ms with the 13th.
inline constexpr std::size_t tries_until_time_out = 13;

// Log lines of calls for an interface.
inline std::string opened(const std::string& p = path) {
    return "hid_open_path(" + p + ")";
}
inline std::string blocking(const std::string& p = path) {
    return "hid_set_nonblocking(" + p + ", 0)";
}
inline std::string nonblocking(const std::string& p = path) {
    return "hid_set_nonblocking(" + p + ", 1)";
}
inline std::string closed(const std::string& p = path) {
    return "hid_close(" + p + ")";
}
inline std::string paused(unsigned int microseconds) {
    return "usleep(" + std::to_string(microseconds) + ")";
}
// A 64-byte report with its id byte in front; bytes as hexadecimal text without the zeros at the end.
inline std::string sent(const std::string& bytes, const std::string& p = path) {
    return "hid_send_feature_report(" + p + ", 65: 00 " + bytes + ")";
}
inline std::string asked(const std::string& p = path) {
    return "hid_get_feature_report(" + p + ", 65:)";
}

inline std::string text_of(const char (&field)[256]) {
    return {field, strnlen(field, sizeof field)};
}

// What core_get_pad_settings() gives, or its failure as a number.
inline std::string current_settings() {
    char text[256] = {};
    const int length = core_get_pad_settings(text);
    return length < 0 ? std::to_string(length) : text;
}

} // namespace core_test
