#include "support/lines.hpp"

#include "standins.hpp"
#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <gmock/gmock.h>
#include <hidapi/hidapi.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <ctime>
#include <string>
#include <thread>

namespace {

TEST(WideZero, CoversAsManyUnitsAsAsked) {
    std::array<char16_t, 8> text{};
    text.fill(u'x');
    wbzero(text.data(), 5);
    EXPECT_EQ(std::count(text.begin(), text.begin() + 5, u'\0'), 5);
    EXPECT_EQ(std::count(text.begin() + 5, text.end(), u'x'), 3);
    wbzero(text.data() + 5, 0);
    EXPECT_EQ(text[5], u'x');
}

TEST(WideLength, CountsTheUnitsBeforeTheTerminator) {
    EXPECT_EQ(wstr_length(u""), 0);
    EXPECT_EQ(wstr_length(u"a"), 1);
    EXPECT_EQ(wstr_length(std::u16string(255, u'a').c_str()), 255);
    EXPECT_EQ(wstr_length(u"ab\u00e9\u4e00c"), 5) << "units outside the locale count";
}

TEST(WideLength, LooksAt256UnitsAtMost) {
    const std::u16string long_text(300, u'a');
    EXPECT_EQ(wstr_length(long_text.c_str()), 256);
    const std::array<char16_t, 256> unterminated = [] {
        std::array<char16_t, 256> text{};
        text.fill(u'a');
        return text;
    }();
    EXPECT_EQ(wstr_length(unterminated.data()), 256); // the address sanitizer sees a look at a 257th
}

TEST(NarrowToWide, ConvertsExactlyNCharacters) {
    std::array<char16_t, 5> wide{};
    wide.fill(u'x');
    EXPECT_EQ(astr_to_wstr(wide.data(), "AB", 3), 3);
    EXPECT_EQ(wide, (std::array<char16_t, 5>{0x41, 0x42, 0, u'x', u'x'}));
    wide.fill(u'x');
    EXPECT_EQ(astr_to_wstr(wide.data(), "ABC", 2), 2); // no terminator of its own
    EXPECT_EQ(wide, (std::array<char16_t, 5>{0x41, 0x42, u'x', u'x', u'x'}));
    EXPECT_EQ(astr_to_wstr(wide.data(), "ABC", 0), 0);
    EXPECT_EQ(wide[0], 0x41);
}

TEST(NarrowToWide, DoesNotStopAtATerminator) {
    std::array<char16_t, 3> wide{};
    EXPECT_EQ(astr_to_wstr(wide.data(), "A\0B", 3), 3);
    EXPECT_EQ(wide, (std::array<char16_t, 3>{0x41, 0, 0x42}));
}

TEST(NarrowToWide, EveryByteAbove7fBecomesAllOnes) {
    for (int byte = 1; byte < 256; ++byte) {
        const char narrow = static_cast<char>(byte);
        char16_t wide = 0;
        EXPECT_EQ(astr_to_wstr(&wide, &narrow, 1), 1);
        EXPECT_EQ(wide, byte < 0x80 ? byte : 0xFFFF);
    }
}

TEST(WideToNarrow, ConvertsExactlyNUnits) {
    std::array<char, 5> narrow{};
    narrow.fill('x');
    EXPECT_EQ(wstr_to_astr(narrow.data(), u"AB", 3), 3);
    EXPECT_EQ(narrow, (std::array<char, 5>{'A', 'B', 0, 'x', 'x'}));
    narrow.fill('x');
    EXPECT_EQ(wstr_to_astr(narrow.data(), u"A\0BC", 3), 3);
    EXPECT_EQ(narrow, (std::array<char, 5>{'A', 0, 'B', 'x', 'x'}));
    EXPECT_EQ(wstr_to_astr(narrow.data(), u"B", 0), 0);
    EXPECT_EQ(narrow[0], 'A');
}

TEST(WideToNarrow, UnitsThatAreNoSingleByteBecomeFf) {
    for (const char16_t wide : {u'\u0080', u'\u00e9', u'\u0100', u'\u4e00', u'\uffff'}) {
        char narrow = 0;
        EXPECT_EQ(wstr_to_astr(&narrow, &wide, 1), 1);
        EXPECT_EQ(narrow, '\xff') << static_cast<int>(wide);
    }
}

class WideToLog : public testing::Test {
  protected:
    void TearDown() override { std::setlocale(LC_CTYPE, "C"); }
};

TEST_F(WideToLog, KeepsTextsUpTo253Characters) {
    EXPECT_STREQ(print_wchar_to_asci(u""), "");
    EXPECT_STREQ(print_wchar_to_asci(u"Pad 100"), "Pad 100");
    EXPECT_EQ(print_wchar_to_asci(std::u16string(253, u'a').c_str()), std::string(253, 'a'));
}

TEST_F(WideToLog, CutsAt254UnitsAndAlwaysEndsInATerminator) {
    for (const std::size_t length : {254U, 255U, 256U, 300U, 5000U}) {
        EXPECT_EQ(print_wchar_to_asci(std::u16string(length, u'a').c_str()), std::string(254, 'a')) << length;
    }
}

TEST_F(WideToLog, LeavesNothingOfALongerTextBehind) {
    const char* text = print_wchar_to_asci(std::u16string(254, u'a').c_str());
    EXPECT_EQ(print_wchar_to_asci(u"b"), text);
    EXPECT_STREQ(text, "b");
    EXPECT_TRUE(std::all_of(text + 1, text + 256, [](char unit) { return unit == 0; }));
}

TEST_F(WideToLog, TakesTheCharacterTypeFromTheEnvironmentForGood) {
    const standins::EnvironmentGuard all("LC_ALL", "C.UTF-8");
    std::setlocale(LC_CTYPE, "C");
    print_wchar_to_asci(u"a");
    EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C.UTF-8");
}

TEST_F(WideToLog, FillsItsBufferUnderItsLock) {
    ASSERT_EQ(pthread_mutex_lock(&print_wchar_to_asci_lock), 0);
    const char* text = nullptr;
    std::thread caller([&] { text = print_wchar_to_asci(u"text"); });
    // The call cannot end while this thread holds the lock; it is seen to end as soon as it may.
    timespec soon{};
    clock_gettime(CLOCK_REALTIME, &soon);
    soon.tv_nsec += 20'000'000;
    soon.tv_sec += soon.tv_nsec / 1'000'000'000;
    soon.tv_nsec %= 1'000'000'000;
    EXPECT_EQ(pthread_timedjoin_np(caller.native_handle(), nullptr, &soon), ETIMEDOUT);
    EXPECT_EQ(pthread_mutex_unlock(&print_wchar_to_asci_lock), 0);
    caller.join();
    EXPECT_STREQ(text, "text");
}

constexpr std::array<const char*, 40> status_texts{
    "device: success",
    "device: write outside RAM",
    "device: read outside RAM",
    "device: wrong sector",
    "device: flash failure",
    "device: function not implemented",
    "device: wrong HASH",
    "device: in progress",
    "device: invalid sector",
    "device: sector read protected",
    "device: sector write protected",
    "device: sector erase protected",
    "device: write outside sector",
    "device: read outside sector",
    "device: admin key set",
    "device: admin key not set",
    "device: admin key already set",
    "device: wrong admin key",
    "device: pad is locked",
    "device: pre doc HASH not set",
    "device: final doc HASH not set",
    "device: AES context not set",
    "device: there is no sign BMP",
    "device: not in signature mode",
    "device: RSA encryption failed",
    "device: RSA check public key failed",
    "device: pad mode is already set",
    "device: switch mode not allowed",
    "device: invalid address",
    "device: file already open",
    "device: file open failed",
    "device: file not open",
    "device: file close failed",
    "device: delete failed",
    "device: file read failed",
    "device: no directory entry",
    "device: different length written",
    "device: out of memory",
    "device: format failed",
    "device: not in configuration mode",
};

TEST(StatusText, IsTheTablesTextOrUnknown) {
    for (int code = 0; code < 256; ++code) {
        EXPECT_STREQ(vx_dev_strerror(static_cast<unsigned char>(code)),
                     code < 40 ? status_texts[static_cast<std::size_t>(code)] : "device: unknown error");
    }
}

TEST(StatusText, DependsOnTheLowEightBitsOnly) {
    const int status = 0x111;
    EXPECT_STREQ(vx_dev_strerror(static_cast<unsigned char>(status)), "device: wrong admin key");
}

// What a caller may leave in the rest of a register is none of the function's business.
#if !VXPAD_SANITIZED
TEST(StatusText, DoesNotDependOnWhatStandsAboveTheByte) {
    using OfWholeRegister = const char*(unsigned long);
    const auto text_of = reinterpret_cast<OfWholeRegister*>(reinterpret_cast<void*>(&vx_dev_strerror));
    EXPECT_STREQ(text_of(0x111), "device: wrong admin key");
    EXPECT_STREQ(text_of(0xFFFFFFFFFFFFFF11), "device: wrong admin key");
    EXPECT_STREQ(text_of(0x7FFF00FF), "device: unknown error");
}
#endif

class HidapiText : public testing::Test {
  protected:
    void SetUp() override {
        standins::bus().reset();
        standins::bus().plug(standins::pad_of_type(9));
        handle_ = hid_open_path("1-1:1.0");
        ASSERT_NE(handle_, nullptr);
    }
    void TearDown() override { hid_close(handle_); }

    std::string text_of(const std::wstring& error) const {
        standins::bus().hid_error_text = error;
        return hidapi_str_error(handle_);
    }

    hid_device* handle_ = nullptr;
};

TEST_F(HidapiText, IsEmptyWithoutADevice) {
    text_of(L"earlier text");
    EXPECT_STREQ(hidapi_str_error(nullptr), "");
}

TEST_F(HidapiText, ShowsWhatHidapiSays) {
    EXPECT_EQ(text_of(L"no such device"), "hidapi error: no such device");
    EXPECT_EQ(text_of(L""), "hidapi error: ");
    EXPECT_EQ(text_of(L"100% %s %n"), "hidapi error: 100% %s %n");
}

TEST_F(HidapiText, IsCutTo254Characters) {
    const std::string start = "hidapi error: ";
    for (const std::size_t length : {239U, 240U, 241U, 300U, 5000U}) {
        const std::string text = start + std::string(length, 'e');
        EXPECT_EQ(text_of(std::wstring(length, L'e')), text.substr(0, 254)) << length;
    }
}

} // namespace
