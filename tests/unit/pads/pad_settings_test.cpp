// The text by which pads are told apart.
#include "core_test.hpp"

namespace core_test {
namespace {

struct Identity {
    unsigned int pad_type = plain_type;
    std::string manufacturer = "ACME";
    std::string product = "Pad 100 ";
    unsigned int vendor_id = 0x1a2b;
    unsigned int product_id = 0x3c;
    std::string serial_number = "SN0042";
    int transport = 0;
};

std::string settings_of(const Identity& identity, const char* device_uid = "unused") {
    std::array<char, 256 + 8> buffer;
    buffer.fill('x');
    core_pad_settings_population(buffer.data(), identity.pad_type, identity.manufacturer.c_str(),
                                 identity.product.c_str(), identity.vendor_id, identity.product_id,
                                 identity.serial_number.c_str(), device_uid, identity.transport);
    const std::size_t length = strnlen(buffer.data(), 256);
    EXPECT_LT(length, 256U);
    EXPECT_EQ(std::count(buffer.begin() + static_cast<std::ptrdiff_t>(length), buffer.begin() + 256, '\0'),
              static_cast<std::ptrdiff_t>(256 - length))
        << "the rest of the 256 bytes is zero";
    EXPECT_EQ(std::count(buffer.begin() + 256, buffer.end(), 'x'), 8) << "nothing beyond is touched";
    return {buffer.data(), length};
}

using PadSettingsTest = CoreTest;

TEST_F(PadSettingsTest, HidText) {
    EXPECT_EQ(settings_of({}), "000000000000000001HID: ACME Pad 100 (1a2b/3c/000D/SN0042)");
}

TEST_F(PadSettingsTest, VcomTextHasNoBlankOfItsOwnBeforeTheParenthesis) {
    EXPECT_EQ(settings_of({.product = "Pad 100", .transport = 1}),
              "000000000000000001VCOM: ACME Pad 100(1a2b/3c/000D/SN0042)");
}

TEST_F(PadSettingsTest, OtherTransportsAreNotNamed) {
    for (const int transport : {2, -1, 99}) {
        EXPECT_EQ(settings_of({.transport = transport}), "000000000000000001ACME Pad 100 (1a2b/3c/000D/SN0042)");
    }
}

TEST_F(PadSettingsTest, OnlyKnownTypesHaveAnIdentity) {
    for (unsigned int type = 0; type < 40; ++type) {
        const bool known = type == 1 || (type >= 8 && type <= 17 && type != 14);
        EXPECT_EQ(settings_of({.pad_type = type}),
                  known ? "000000000000000001HID: ACME Pad 100 (1a2b/3c/000D/SN0042)" : "000000000000000001no pad")
            << type;
    }
    EXPECT_EQ(settings_of({.pad_type = 0xffffffff}), "000000000000000001no pad");
}

TEST_F(PadSettingsTest, IdsAreHexadecimalWithoutLeadingZeros) {
    EXPECT_EQ(settings_of({.vendor_id = 0, .product_id = 0xABCDEF01}),
              "000000000000000001HID: ACME Pad 100 (0/abcdef01/000D/SN0042)");
}

TEST_F(PadSettingsTest, EmptyStringsLeaveTheirSeparators) {
    EXPECT_EQ(settings_of({.manufacturer = "", .product = "", .serial_number = ""}),
              "000000000000000001HID:  (1a2b/3c/000D/)");
}

TEST_F(PadSettingsTest, PercentSignsStayAsTheyAre) {
    EXPECT_EQ(settings_of({.manufacturer = "100%s", .product = "%n%x ", .serial_number = "%p%"}),
              "000000000000000001HID: 100%s %n%x (1a2b/3c/000D/%p%)");
}

TEST_F(PadSettingsTest, TextIsCutTo255CharactersWhereverTheLimitFalls) {
    const std::string start = "000000000000000001HID: "; // 23 characters
    EXPECT_EQ(settings_of({.manufacturer = std::string(255, 'm')}), start + std::string(232, 'm'));
    EXPECT_EQ(settings_of({.manufacturer = std::string(232, 'm')}), start + std::string(232, 'm'));
    EXPECT_EQ(settings_of({.manufacturer = std::string(231, 'm')}), start + std::string(231, 'm') + " ");
    EXPECT_EQ(settings_of({.product = std::string(255, 'p')}), start + "ACME " + std::string(227, 'p'));
    EXPECT_EQ(settings_of({.serial_number = std::string(255, 's')}),
              start + "ACME Pad 100 (1a2b/3c/000D/" + std::string(205, 's'));
}

TEST_F(PadSettingsTest, DeviceUidPlaysNoPart) {
    EXPECT_EQ(settings_of({}, nullptr), settings_of({}, "something"));
}

} // namespace
} // namespace core_test
