// 17 pads of one model: more than the library has room for.
#include "pad_test.hpp"

#include <set>

using namespace pads;

namespace {

constexpr unsigned int usable = 15;

class ManyPads : public PluggedPads {};

TEST_F(ManyPads, AreUsedUpToTheFifteenth) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(Initialize(), 0);
    const auto errors = testing::internal::GetCapturedStderr();
    EXPECT_NE(errors.find("16 devices were found, only the first 15 can be used"), std::string::npos) << errors;

    unsigned int reply = 0;
    EXPECT_EQ(GetDeviceCount(&reply), static_cast<int>(usable));
    std::set<std::u16string> serials;
    unsigned int expected = 1;
    for (unsigned int device = number_of(EnumerateDevicesStart); device != 0;
         device = number_of(EnumerateDevicesNext), ++expected) {
        EXPECT_EQ(device, expected);
        serials.insert(serial_number(device));
        EXPECT_EQ(set_feature(device, 0, report(65, static_cast<unsigned char>(0x80 + device))), 0);
    }
    EXPECT_EQ(expected, usable + 1);
    EXPECT_EQ(serials.size(), usable) << "pads of one model are told apart by their serial numbers";
    for (unsigned int device = 1; device <= usable; ++device) {
        EXPECT_EQ(read(GetFeature, device, 0).buffer[1], 0x80 + device);
    }
    for (const auto& [name, call, _] : device_calls()) {
        EXPECT_EQ(failure(call(16)), invalid_handle(name, "Error of switching to device: 16"));
    }
    EXPECT_EQ(Deinitialize(), 0);
}

TEST_F(ManyPads, MakeRoomWhenTheyAreUnplugged) {
    for (int pad = 1; pad <= 15; ++pad) {
        to_pad("unplug", pad);
    }
    Initialize();
    unsigned int reply = 0;
    EXPECT_EQ(GetDeviceCount(&reply), 2);
    EXPECT_EQ((std::set{serial_number(1), serial_number(2)}), (std::set<std::u16string>{u"SN0016", u"SN0017"}));
}

} // namespace
