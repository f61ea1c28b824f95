// What the tests of the exported functions share.
#pragma once

#include "base/all_given_back.hpp"
#include "captures.hpp"
#include "standins.hpp"
#include "vxpadcom/vxpadcom.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace api {

inline std::string narrow(const char16_t* text, std::size_t units) {
    std::string result;
    for (std::size_t i = 0; i < units; ++i) {
        result += text[i] < 0x80 ? static_cast<char>(text[i]) : '?';
    }
    return result;
}

struct Record {
    int code = 0;
    std::string function;
    std::string message;

    bool operator==(const Record&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Record& record) {
        return out << record.code << ' ' << record.function << "(): " << record.message;
    }
};

// Reads a record that must exist.
inline Record record_of(int handle) {
    const auto number = static_cast<unsigned int>(handle);
    const auto text_of = [number](int (*read)(unsigned int, char16_t*, int, unsigned int*)) {
        std::array<char16_t, 256> text{};
        unsigned int units = 0;
        EXPECT_EQ(read(number, text.data(), 256, &units), 0);
        return narrow(text.data(), units == 0 ? 0 : units - 1); // without the terminator
    };
    unsigned int code = 0;
    EXPECT_EQ(GetExceptionCode(number, &code), 0);
    return {static_cast<int>(code), text_of(GetExceptionName), text_of(GetExceptionMessage)};
}

// Arguments that pass where they are not the ones under test.
inline char16_t some_text[64];
inline unsigned char some_bytes[65];
inline unsigned int some_number;

constexpr int unknown = VXPCEC_UNKNOWN;
constexpr int invalid_handle = VXPCEC_INVALID_HANDLE;
constexpr int invalid_parameter = VXPCEC_INVALID_PARAMETER;

// A text buffer between units that nobody may touch.
class GuardedText {
  public:
    explicit GuardedText(std::size_t size) : units_(size + 2 * guard, mark), size_(size) {}

    char16_t* data() { return units_.data() + guard; }
    int size() const { return static_cast<int>(size_); }
    std::string text(std::size_t units) { return narrow(data(), units); }

    bool untouched() const {
        return std::all_of(units_.begin(), units_.end(), [](char16_t unit) { return unit == mark; });
    }
    bool guards_untouched() const {
        const auto is_mark = [](char16_t unit) { return unit == mark; };
        return std::all_of(units_.begin(), units_.begin() + guard, is_mark) &&
               std::all_of(units_.end() - guard, units_.end(), is_mark);
    }
    // Everything from this unit to the end of the buffer is zero.
    bool zero_from(std::size_t unit) {
        return std::all_of(data() + unit, data() + size_, [](char16_t one) { return one == 0; });
    }

  private:
    static constexpr std::ptrdiff_t guard = 64;
    static constexpr char16_t mark = 0x5A5A;
    std::vector<char16_t> units_;
    std::size_t size_;
};

constexpr unsigned int preset = 4711; // what a reply holds that must not change

// A library that is not initialized, no pads, error lines kept from the terminal.
class Test : public testing::Test {
  protected:
    void SetUp() override { start_over(); }
    void TearDown() override {
        Deinitialize();
        standins::expect_all_given_back();
    }

    // Not initialized, no pads, nothing logged.
    static void start_over() {
        Deinitialize();
        standins::bus().reset();
    }

    // What information and error lines say while call runs, on both streams: callbacks do not outlive Initialize().
    template <class Call> static std::string said_during(Call call) {
        const standins::EnvironmentGuard on("LIBVXPADCOM_DEBUG", "1");
        standins::OutputCapture output(STDOUT_FILENO);
        standins::OutputCapture errors(STDERR_FILENO);
        call();
        return output.text() + errors.text();
    }

    standins::OutputCapture errors_{STDERR_FILENO};
};

// Two pads: 1 with two interfaces, 2 with one.
class TwoPads : public Test {
  protected:
    void SetUp() override {
        Test::SetUp();
        first_ = &standins::bus().plug(standins::pad_of_type(9));
        further_ = &standins::bus().plug(standins::pad_of_type(9, "1-1:1.1", 1));
        second_ = &standins::bus().plug(standins::pad_of_type(9, "1-2:1.0", 0, L"SN0002"));
        ASSERT_EQ(Initialize(), 0);
        standins::bus().take_log();
    }

    standins::HidInterface* first_ = nullptr;
    standins::HidInterface* further_ = nullptr;
    standins::HidInterface* second_ = nullptr;
    unsigned int reply_ = preset;
};

} // namespace api
