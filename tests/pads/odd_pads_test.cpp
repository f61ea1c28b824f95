// Pads with strings and descriptors that invite mistakes.
#include "pad_test.hpp"

using namespace pads;

namespace {

class OddPads : public InitializedPads {};

std::u16string vendor(unsigned int device) {
    return text_of([&](auto... rest) { return GetVendorName(device, rest...); });
}
std::u16string product(unsigned int device) {
    return text_of([&](auto... rest) { return GetProductName(device, 0, rest...); });
}

// In the order of their types, which is also the emulator's.
enum : unsigned int { percent = 1, foreign, longest, nameless, broken, twins, crowded };

TEST_F(OddPads, AreAllFound) {
    unsigned int reply = 0;
    EXPECT_EQ(GetDeviceCount(&reply), crowded);
    for (unsigned int device = 1; device <= crowded; ++device) {
        EXPECT_EQ(set_feature(device, 0, report(65, 0x80)), 0) << device;
    }
}

TEST_F(OddPads, HaveNoFormatsInTheirNames) {
    setenv("LIBVXPADCOM_DEBUG", "1", 1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(vendor(percent), u"%s%n%d%x%100000s");
    EXPECT_EQ(product(percent), u"100% ");
    EXPECT_EQ(serial_number(percent), u"%n%n%n%s");
    const auto trace = testing::internal::GetCapturedStdout();
    unsetenv("LIBVXPADCOM_DEBUG");
    EXPECT_NE(trace.find("%s%n%d%x%100000s"), std::string::npos) << trace;
}

// Text is converted unit by unit; what is no single byte in the process's locale arrives as 0xffff.
TEST_F(OddPads, HaveForeignLettersOfOneUnitEach) {
    EXPECT_EQ(vendor(foreign), u"M\xffffller");
    EXPECT_EQ(product(foreign), u"\xffff\xffff\xffff ");
    EXPECT_EQ(serial_number(foreign), u"\xffff");
}

TEST_F(OddPads, HaveStringsAsLongAsTheBusAllows) {
    EXPECT_EQ(vendor(longest), std::u16string(126, u'M'));
    EXPECT_EQ(product(longest), std::u16string(126, u'P') + u" ");
    EXPECT_EQ(ask_text([](auto... rest) { return GetProductName(longest, 0, rest...); }, 200).reply, 128U);
    EXPECT_EQ(serial_number(longest), std::u16string(126, u'S'));
    EXPECT_EQ(ask_text([](auto... rest) { return GetSerialNumber(longest, rest...); }, 126),
              (TextAnswer{std::u16string(126, u'S'), 126}));
}

// hidapi then asks for string 0, which is the bus's list of languages: one unit that no single byte stands for.
TEST_F(OddPads, LackStrings) {
    const std::u16string languages = u"\xffff";
    EXPECT_EQ(vendor(nameless), languages);
    EXPECT_EQ(product(nameless), languages + u" ");
    EXPECT_EQ(serial_number(nameless), languages);
}

// Half a surrogate pair cannot be converted.
TEST_F(OddPads, HaveBrokenStrings) {
    EXPECT_EQ(failure(device_calls()[2].call(broken)),
              invalid_handle("GetVendorName", "Error of getting device's manufacturer for device: 5"));
    EXPECT_EQ(product(broken), u"Pad ");
    EXPECT_EQ(serial_number(broken), u"");
}

// libusb does not let a device through that claims 40 interfaces, and the search goes on without it.
TEST_F(OddPads, AreNotFoundWithFortyInterfaces) {
    EXPECT_NE(emulator::request("list").find("interfaces=40 serial=FORTY"), std::string::npos);
    unsigned int reply = 0;
    const auto count = static_cast<unsigned int>(GetDeviceCount(&reply));
    for (unsigned int device = 1; device <= count; ++device) {
        EXPECT_NE(serial_number(device), u"FORTY");
    }
}

// Nothing tells two pads of one model apart that have no serial numbers: they count as interfaces of one.
TEST_F(OddPads, CannotBeToldApart) {
    EXPECT_EQ(number_of([](auto* reply) { return GetEndPointCount(twins, reply); }), 2U);
    EXPECT_EQ(set_feature(twins, 1, report(65, 0x80)), 0);
}

TEST_F(OddPads, HaveMoreInterfacesThanCanBeUsed) {
    EXPECT_EQ(number_of([](auto* reply) { return GetEndPointCount(crowded, reply); }), 9U);
    for (unsigned int interface = 0; interface < 9; ++interface) {
        EXPECT_EQ(set_feature(crowded, interface, report(65, 0x80)), 0) << interface;
    }
    for (const unsigned int interface : {9U, 10U, 31U, 32U}) {
        EXPECT_EQ(failure(set_feature(crowded, interface, report(65, 0x80))),
                  invalid_handle("SetFeature", "Error of write HID feature for device: 7"));
    }
}

} // namespace
