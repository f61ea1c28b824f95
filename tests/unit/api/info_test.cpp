#include "api_test.hpp"

using api::GuardedText;
using api::Record;
using api::record_of;
using api::some_bytes;
using api::some_text;
using standins::bus;
using standins::LogCapture;
using standins::pad_of_type;

namespace {

using ReadText = int (*)(unsigned int device, char16_t* text, int size, unsigned int* reply);
using ReadNumber = int (*)(unsigned int device, unsigned int* reply);

int product_name(unsigned int device, char16_t* text, int size, unsigned int* reply) {
    return GetProductName(device, 0, text, size, reply);
}
int product_id(unsigned int device, unsigned int* reply) {
    return GetProductId(device, 0, reply);
}
int feature_report_size(unsigned int device, unsigned int* reply) {
    return GetFeatureReportSize(device, 0, reply);
}

class TextInfo : public api::Test {
  protected:
    struct Texts {
        std::wstring manufacturer = L"ACME";
        std::wstring product = L"Pad 100";
        std::wstring serial_number = L"SN0001";
    };

    static void start_with(const Texts& texts) {
        standins::HidInterface pad = pad_of_type(9);
        pad.manufacturer = texts.manufacturer;
        pad.product = texts.product;
        pad.serial_number = texts.serial_number;
        bus().plug(pad);
        Initialize();
    }

    // Reads into buffers of several sizes; length is what a large enough buffer's reply must be.
    static void expect_text(ReadText read, const std::string& text, std::size_t counted) {
        for (const std::size_t size :
             {std::size_t{1}, std::size_t{4}, text.size(), text.size() + 1, std::size_t{600}}) {
            if (size == 0) {
                continue;
            }
            GuardedText result(size);
            unsigned int reply = 0;
            ASSERT_EQ(read(1, result.data(), result.size(), &reply), 0);
            EXPECT_EQ(reply, std::min(size, counted));
            const auto visible = std::min(size, text.size());
            EXPECT_EQ(result.text(visible), text.substr(0, visible));
            EXPECT_TRUE(result.zero_from(visible));
            EXPECT_TRUE(result.guards_untouched());
        }
    }
};

TEST_F(TextInfo, OnlyTheProductNameCountsItsTerminator) {
    start_with({L"ACME", L"Twelve chars", L"0123456789"});
    expect_text(GetSerialNumber, "0123456789", 10);
    expect_text(GetVendorName, "ACME", 4);
    expect_text(product_name, "Twelve chars ", 14); // a HID pad's name ends in a blank
}

TEST_F(TextInfo, OfATwelveCharacterNameReplies13) {
    start_with({L"ACME", L"Eleven char", L"0123456789"}); // the blank is the twelfth
    expect_text(product_name, "Eleven char ", 13);
}

TEST_F(TextInfo, MayContainPercentSigns) {
    start_with({L"%s%n100%", L"%d%%", L"%x"});
    expect_text(GetVendorName, "%s%n100%", 8);
    expect_text(product_name, "%d%% ", 6);
    expect_text(GetSerialNumber, "%x", 2);
}

TEST_F(TextInfo, MayBe255CharactersLong) {
    start_with({std::wstring(255, L'm'), std::wstring(255, L'p'), std::wstring(255, L's')});
    expect_text(GetVendorName, std::string(254, 'm'), 254);
    expect_text(product_name, std::string(254, 'p') + " ", 256);
    expect_text(GetSerialNumber, std::string(254, 's'), 254);
}

TEST_F(TextInfo, OfPadsWithLongTextsStillTellsThemApart) {
    // The identity texts differ in their last character only.
    standins::HidInterface pad = pad_of_type(9);
    const std::size_t head = std::string_view("000000000000000001HID: ").size();
    pad.manufacturer = std::wstring(254 - head, L'm') + L"1"; // 255 characters with the head
    bus().plug(pad);
    pad.path = "1-2:1.0";
    pad.manufacturer.back() = L'2';
    bus().plug(pad);
    Initialize();
    unsigned int reply = 0;
    ASSERT_EQ(GetDeviceCount(&reply), 2);
    for (const unsigned int device : {2U, 1U, 2U}) {
        GuardedText name(300);
        ASSERT_EQ(GetVendorName(device, name.data(), 300, &reply), 0);
        EXPECT_EQ(name.data()[reply - 1], device == 1 ? u'1' : u'2');
    }
}

TEST_F(TextInfo, WithCharactersOutsideTheLocaleArrivesAsAllOnes) {
    start_with({L"\u00c4CME", L"Pad", L"SN"});
    GuardedText name(8);
    unsigned int reply = 0;
    EXPECT_EQ(GetVendorName(1, name.data(), 8, &reply), 0);
    EXPECT_EQ(std::u16string(name.data(), reply), u"\uffffCME");
}

TEST_F(TextInfo, EmptySerialNumberIsAnAnswer) {
    start_with({L"ACME", L"Pad", L""});
    expect_text(GetSerialNumber, "", 0);
    expect_text(product_name, "Pad ", 5);
}

TEST_F(TextInfo, EmptyProductNameIsTheBlank) {
    start_with({L"ACME", L"", L"SN"});
    expect_text(product_name, " ", 2);
}

TEST_F(TextInfo, EmptyVendorNameIsAFailure) {
    start_with({L"", L"Pad", L"SN"});
    GuardedText name(8);
    unsigned int reply = api::preset;
    EXPECT_EQ(record_of(GetVendorName(1, name.data(), 8, &reply)),
              (Record{257, "GetVendorName", "Error of getting device's manufacturer for device: 1"}));
    EXPECT_EQ(reply, api::preset);
    EXPECT_TRUE(name.untouched());
}

TEST_F(TextInfo, IsLogged) {
    start_with({});
    const LogCapture log;
    GuardedText text(64);
    unsigned int reply = 0;
    GetSerialNumber(1, text.data(), 64, &reply);
    EXPECT_EQ(log.count("info: GetSerialNumber(): Was switched to device: 1\n"), 1);
    EXPECT_EQ(log.count("info: GetSerialNumber(): SERIAL_NUMBER: SN0001\n"), 1);
}

class NumberInfo : public api::TwoPads {
  protected:
    static unsigned int value_of(ReadNumber read, unsigned int device) {
        unsigned int reply = api::preset;
        EXPECT_EQ(read(device, &reply), 0);
        return reply;
    }
};

TEST_F(NumberInfo, TellsWhatThePadIs) {
    EXPECT_EQ(value_of(product_id, 1), first_->product_id);
    EXPECT_EQ(value_of(GetVendorId, 1), first_->vendor_id);
    EXPECT_EQ(value_of(GetUsbVersion, 1), 0U);
    EXPECT_EQ(value_of(GetBytesToSend, 1), 0U);
    EXPECT_EQ(value_of(GetEndPointCount, 1), 2U);
    EXPECT_EQ(value_of(GetEndPointCount, 2), 1U);
    EXPECT_EQ(value_of(feature_report_size, 1), 65U);
}

TEST_F(NumberInfo, NeedsNoTransferAndNoSecondSelection) {
    value_of(GetVendorId, 1);
    value_of(GetEndPointCount, 1);
    EXPECT_THAT(bus().log(), testing::IsEmpty());
}

TEST_F(NumberInfo, IsLogged) {
    const LogCapture log;
    value_of(GetEndPointCount, 1);
    EXPECT_EQ(log.count("info: GetEndPointCount(): Was switched to device: 1\n"), 1);
    EXPECT_EQ(log.count("info: GetEndPointCount(): OUTPUT: *reply: 2\n"), 1);
}

TEST_F(NumberInfo, DoesNotDependOnTheInterfaceNumber) {
    GuardedText name(64);
    for (const unsigned int interface : {0U, 1U, 2U, 8U, 9U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(GetProductId(1, interface, &reply_), 0);
        EXPECT_EQ(reply_, first_->product_id);
        EXPECT_EQ(GetFeatureReportSize(1, interface, &reply_), 0);
        EXPECT_EQ(reply_, 65U);
        EXPECT_EQ(GetProductName(1, interface, name.data(), 64, &reply_), 0);
        EXPECT_EQ(reply_, 9U);
    }
}

TEST_F(NumberInfo, KeepsTheTransportProtocolOfEachPadAsAFlag) {
    EXPECT_EQ(value_of(GetUsedTransportProtocol, 1), 0U);
    EXPECT_EQ(SetUsedTransportProtocol(1, 7), 0);
    EXPECT_EQ(value_of(GetUsedTransportProtocol, 1), 1U);
    EXPECT_EQ(value_of(GetUsedTransportProtocol, 2), 0U);
    EXPECT_EQ(SetUsedTransportProtocol(2, 0x100), 0);
    EXPECT_EQ(SetUsedTransportProtocol(1, 0), 0);
    EXPECT_EQ(value_of(GetUsedTransportProtocol, 1), 0U);
    EXPECT_EQ(value_of(GetUsedTransportProtocol, 2), 1U);
    Initialize();
    EXPECT_EQ(value_of(GetUsedTransportProtocol, 2), 0U);
}

TEST_F(NumberInfo, OfManyInterfacesCountsNine) {
    start_over();
    for (int i = 0; i < 40; ++i) {
        bus().plug(pad_of_type(9, "1-1:1." + std::to_string(i), i));
    }
    Initialize();
    EXPECT_EQ(GetDeviceCount(&reply_), 1);
    EXPECT_EQ(value_of(GetEndPointCount, 1), 9U);
}

// A pad that could be searched but not be opened afterwards has no open handle to ask for sizes.
TEST_F(NumberInfo, FailsForAPadThatCouldNotBeOpenedAfterItWasFound) {
    start_over();
    bus().plug(pad_of_type(1));
    int opened = 0;
    bus().hooks.open_path = [&](const std::string&) { return ++opened == 1 ? std::nullopt : std::optional(1); };
    Initialize();
    ASSERT_EQ(GetDeviceCount(&reply_), 1);
    EXPECT_EQ(record_of(GetFeatureReportSize(1, 0, &reply_)),
              (Record{257, "GetFeatureReportSize", "Error of switching to device: 1"}));
    EXPECT_EQ(record_of(GetVendorId(1, &reply_)), (Record{257, "GetVendorId", "Error of switching to device: 1"}));
}

struct DeviceCall {
    const char* name;
    int (*call)(unsigned int device, unsigned int* reply);
    friend std::ostream& operator<<(std::ostream& out, const DeviceCall& one) { return out << one.name; }
};

const DeviceCall device_calls[] = {
    {"GetSerialNumber",
     [](unsigned int device, unsigned int* reply) { return GetSerialNumber(device, some_text, 64, reply); }},
    {"GetProductName",
     [](unsigned int device, unsigned int* reply) { return product_name(device, some_text, 64, reply); }},
    {"GetVendorName",
     [](unsigned int device, unsigned int* reply) { return GetVendorName(device, some_text, 64, reply); }},
    {"GetProductId", product_id},
    {"GetVendorId", GetVendorId},
    {"GetUsbVersion", GetUsbVersion},
    {"GetUsedTransportProtocol", GetUsedTransportProtocol},
    {"SetUsedTransportProtocol",
     [](unsigned int device, unsigned int*) { return SetUsedTransportProtocol(device, 1); }},
    {"GetBytesToSend", GetBytesToSend},
    {"GetEndPointCount", GetEndPointCount},
    {"GetFeatureReportSize", feature_report_size},
    {"SetFeature",
     [](unsigned int device, unsigned int* reply) { return SetFeature(device, 0, some_bytes, 65, reply); }},
    {"GetFeature",
     [](unsigned int device, unsigned int* reply) { return GetFeature(device, 0, some_bytes, 65, reply); }},
    {"WriteFile", [](unsigned int device, unsigned int* reply) { return WriteFile(device, 0, some_bytes, 65, reply); }},
    {"ReadFile", [](unsigned int device, unsigned int* reply) { return ReadFile(device, 0, some_bytes, 65, reply); }},
};

class DeviceNumber : public api::TwoPads, public testing::WithParamInterface<DeviceCall> {
  protected:
    void expect_refused(unsigned int device, const char* shown) {
        std::fill(std::begin(some_text), std::end(some_text), u'x');
        std::fill(std::begin(some_bytes), std::end(some_bytes), static_cast<unsigned char>(7));
        reply_ = api::preset;
        const int handle = GetParam().call(device, &reply_);
        ASSERT_NE(handle, 0) << device;
        EXPECT_EQ(reply_, api::preset);
        EXPECT_TRUE(
            std::all_of(std::begin(some_text), std::end(some_text), [](char16_t unit) { return unit == u'x'; }));
        EXPECT_TRUE(
            std::all_of(std::begin(some_bytes), std::end(some_bytes), [](unsigned char byte) { return byte == 7; }));
        EXPECT_THAT(bus().log(), testing::IsEmpty());
        EXPECT_EQ(record_of(handle),
                  (Record{257, GetParam().name, std::string("Error of switching to device: ") + shown}));
    }
};

TEST_P(DeviceNumber, MustNameAPad) {
    const struct {
        unsigned int device;
        const char* shown;
        const char* reason;
    } wrong[] = {{0, "0", "Device 0 has not pad settings data"},
                 {3, "3", "Device 3 is not indexed"},
                 {15, "15", "Device 15 is not indexed"},
                 {16, "16", "Device 16 is not indexed"},
                 {17, "17", "Error: incorrect device value: 17"},
                 {0x10001, "65537", "Error: incorrect device value: 65537"},
                 {0xFFFFFFFF, "-1", "Error: incorrect device value: -1"}};
    for (const auto& one : wrong) {
        const LogCapture log;
        expect_refused(one.device, one.shown);
        EXPECT_EQ(log.count(one.reason), 1) << one.reason;
        EXPECT_EQ(log.count("Static function set_dev_to_current() was return -1"), 1);
    }
}

TEST_P(DeviceNumber, NamesNothingWithoutPads) {
    bus().unplug(*first_);
    bus().unplug(*further_);
    bus().unplug(*second_);
    Initialize();
    bus().take_log();
    expect_refused(1, "1");
    expect_refused(0, "0");
}

TEST_P(DeviceNumber, NamesNothingBeforeTheStart) {
    Deinitialize();
    bus().take_log();
    const LogCapture log;
    expect_refused(1, "1");
    EXPECT_EQ(log.count("dev_shared_short is NULL.. Use Initialize() first."), 1);
}

TEST_P(DeviceNumber, SelectsThePadItNames) {
    EXPECT_EQ(GetParam().call(2, &reply_), 0);
    EXPECT_EQ(EnumerateDevicesNext(&reply_), 0);
    EXPECT_EQ(reply_, 0U) << "the second pad is the last";
}

INSTANTIATE_TEST_SUITE_P(Functions, DeviceNumber, testing::ValuesIn(device_calls),
                         [](const auto& tested) { return std::string(tested.param.name); });

} // namespace
