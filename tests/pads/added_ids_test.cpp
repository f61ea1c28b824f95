// Pads whose ids no table has, found by a file: HID pad 1, VCOM pads 2 and 3 of CMakeLists.txt.
#include "ssp_pad_test.hpp"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

using namespace pads;

namespace {

class AddedIds : public testing::Test {
  protected:
    AddedIds() {
        std::string name = testing::TempDir() + "vxpad-ids-XXXXXX";
        folder_ = ::mkdtemp(name.data());
        ::setenv("VXPADCOM_IDS", folder_.c_str(), 1);
    }
    ~AddedIds() override {
        Deinitialize();
        ::setenv("VXPADCOM_IDS", "", 1);
        std::filesystem::remove_all(folder_);
    }

    void write(const std::string& name, const std::string& text) const { std::ofstream(folder_ / name) << text; }

    static std::vector<std::u16string> serials_found() {
        EXPECT_EQ(Initialize(), 0);
        std::vector<std::u16string> serials;
        unsigned int unused = 0;
        for (int device = 1; device <= GetDeviceCount(&unused); ++device) {
            serials.push_back(serial_number(static_cast<unsigned int>(device)));
        }
        return serials;
    }

    std::filesystem::path folder_;
};

using Serials = std::vector<std::u16string>;

TEST_F(AddedIds, WithoutAFileNoPadIsFound) {
    EXPECT_EQ(serials_found(), Serials{});
}

TEST_F(AddedIds, PadsOfBothTransportsAreFoundAndWork) {
    write("a.ids", "1234 5678 hid 11 Desk\n1234 9abc vcom 17 Counter\n");
    ASSERT_EQ(serials_found(), (Serials{u"H11", u"V17"}));
    EXPECT_EQ(number_of([](auto* reply) { return GetVendorId(1, reply); }), 0x1234U);
    EXPECT_EQ(number_of([](auto* reply) { return GetProductId(1, 0, reply); }), 0x5678U);
    EXPECT_EQ(number_of([](auto* reply) { return GetProductId(2, 0, reply); }), 0x9abcU);
    EXPECT_EQ(number_of([](auto* reply) { return GetEndPointCount(1, reply); }), 2U);
    for (unsigned int device = 1; device <= 2; ++device) {
        const auto sent = report(65, static_cast<unsigned char>(0x80 + device));
        EXPECT_EQ(set_feature(device, 0, sent), 0);
        EXPECT_EQ(read(GetFeature, device, 0).buffer, received(payload(sent))) << device;
    }
}

TEST_F(AddedIds, APadThatTellsOthersIsFoundByThoseThatItShows) {
    write("a.ids", "1234 9abd vcom 16\n");
    ASSERT_EQ(serials_found(), Serials{u"V16"});
    EXPECT_EQ(number_of([](auto* reply) { return GetVendorId(1, reply); }), 0x4242U);
}

TEST_F(AddedIds, EachStartReadsThemAnew) {
    write("b.ids", "1234 5678 hid 11\n");
    EXPECT_EQ(serials_found(), Serials{u"H11"});
    write("a.ids", "nonsense\n1234 9abd vcom 16\n1234 5678 vcom 11\n");
    EXPECT_EQ(serials_found(), Serials{u"V16"}) << "the first line of a pair counts";
    std::filesystem::remove(folder_ / "a.ids");
    EXPECT_EQ(serials_found(), Serials{u"H11"});
}

} // namespace
