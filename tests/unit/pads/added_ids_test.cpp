// Ids that files add: what the searches do with them, and that without any nothing is other than before.
#include "setuid_process.hpp"
#include "ssp_test.hpp"

#include VXPADCOM_USB_IDS_FILE

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace core_test {
namespace {

constexpr std::uint32_t own_vendor = 0x1234;
constexpr std::uint32_t own_product = 0x5678;
constexpr std::size_t chip_vendors_entry = 8; // of vcom_device_list: accepted by the manufacturer string only

std::string enumerate_call(std::uint32_t vendor, std::uint32_t product) {
    char text[64];
    std::snprintf(text, sizeof text, "hid_enumerate(%04x, %04x)", vendor, product);
    return text;
}

std::string line_for(std::uint32_t vendor, std::uint32_t product, const std::string& rest) {
    char text[16];
    std::snprintf(text, sizeof text, "%04x %04x ", vendor, product);
    return text + rest + "\n";
}

HidInterface own_pad(std::string at = path) {
    HidInterface pad;
    pad.path = std::move(at);
    pad.vendor_id = own_vendor;
    pad.product_id = own_product;
    return pad;
}

class AddedIds : public CoreTest {
  protected:
    AddedIds() {
        std::string name = testing::TempDir() + "vxpad-ids-XXXXXX";
        folder_ = ::mkdtemp(name.data());
        bus().cost_us["libusb_bulk_transfer"] = 1000;
    }
    ~AddedIds() override {
        is_setuid = false;
        fs::remove_all(folder_);
    }
    void TearDown() override {
        CoreTest::TearDown();
        no_name_.emplace("VXPADCOM_IDS", "");
        core_initialize(); // what this test has added is forgotten
        core_uninitialize();
    }

    std::string file(const std::string& text) const {
        std::ofstream(folder_ / "test.ids") << text;
        return folder_ / "test.ids";
    }

    // A start over the file, with what is said from there on.
    int start(const std::string& text) {
        named_.emplace("VXPADCOM_IDS", file(text).c_str());
        core_initialize();
        forget();
        return core_looking_for_devices();
    }

    // What core_initialize() writes to standard error.
    static std::string errors_of_start() {
        const standins::OutputCapture errors(STDERR_FILENO);
        core_initialize();
        return errors.text();
    }

    // A VCOM pad with bus ids that no table has.
    UsbDevice& plug_own_vcom_pad(unsigned int told_type, const std::string& name = "usb1") {
        UsbDevice pad = vcom_pad(name);
        pad.vendor_id = own_vendor;
        pad.product_id = own_product;
        return plug_vcom(std::move(pad), told_type);
    }
    UsbDevice& plug_vcom(UsbDevice pad, unsigned int told_type) {
        models_.push_back(std::make_unique<SspPad>(described_as(told_type)));
        UsbDevice& plugged = bus().plug(std::move(pad));
        models_.back()->attach(plugged);
        return plugged;
    }
    SspPad& model() { return *models_.back(); }

    fs::path folder_;
    std::optional<EnvironmentGuard> named_;

  private:
    std::optional<EnvironmentGuard> no_name_;
    std::vector<std::unique_ptr<SspPad>> models_;
};

TEST_F(AddedIds, AHidPadIsFoundAndOfItsType) {
    bus().plug(own_pad());
    EXPECT_EQ(start("1234 5678 hid 11 Counter pad\n"), 1);
    EXPECT_EQ(core_get_vendor_id(), 0x1234);
    EXPECT_EQ(core_get_pad_product_id(), 0x5678);
    EXPECT_EQ(current_settings(), "000000000000000001HID: ACME Pad 100 (1234/5678/000D/SN0001)");
    EXPECT_THAT(bus().log("hid_send_feature_report"), Contains(HasSubstr(": 00 11"))) << "asked for its version";
    EXPECT_THAT(said(), Says("looking for an id of a file: vendor_id -> 1234, product_id -> 5678"));
}

TEST_F(AddedIds, AreLookedForInFrontOfTheTable) {
    start("# mine\n2222 3 hid 16\n2222 2 vcom 16\n2222 1 hid 8\n");
    Lines expected{enumerate_call(0x2222, 3), enumerate_call(0x2222, 1)};
    for (std::size_t i = 0; i < 54; ++i) {
        expected.push_back(enumerate_call(hid_device_list[i].vendor_id, hid_device_list[i].product_id));
    }
    EXPECT_THAT(bus().log("hid_enumerate"), ElementsAreArray(expected));
    EXPECT_THAT(bus().log("libusb_get_device_list"), SizeIs(1)) << "an empty bus ends the search";
}

TEST_F(AddedIds, TakeThePlaceOfThePairInTheTable) {
    const HidInterface& pad = bus().plug(pad_of_type(9));
    EXPECT_EQ(start(line_for(pad.vendor_id, pad.product_id, "hid 13")), 1);
    EXPECT_THAT(bus().log("hid_enumerate"), SizeIs(54));
    EXPECT_THAT(bus().log("hid_open_path"), Contains(opened()).Times(2)) << "found once, and made current";
    EXPECT_EQ(core_get_count_of_hid_interfaces(), 1);
    EXPECT_THAT(bus().log("hid_send_feature_report"), Each(Not(HasSubstr("00 2a"))));
}

TEST_F(AddedIds, DecideTheTransportOfAPairInTheTable) {
    const HidInterface& pad = bus().plug(pad_of_type(9));
    EXPECT_EQ(start(line_for(pad.vendor_id, pad.product_id, "vcom 9")), 0);
    EXPECT_THAT(bus().log("hid_enumerate"), SizeIs(53));
}

// A type 1 pad cannot be asked for its version, and has other model parameters.
TEST_F(AddedIds, GiveTheFactsThatHangOnTheType) {
    bus().plug(own_pad());
    EXPECT_EQ(start("1234 5678 hid 1\n"), 1);
    EXPECT_THAT(bus().log("hid_send_feature_report"), IsEmpty());
    EXPECT_EQ(core_get_max_packet_size_of_input_report(), 20);
}

TEST_F(AddedIds, AVcomPadIsFoundByWhatItShowsOnTheBus) {
    plug_own_vcom_pad(15);
    model().vendor_id = own_vendor;
    model().product_id = own_product;
    EXPECT_EQ(start("1234 5678 vcom 17\n"), 1);
    EXPECT_EQ(current_settings(), "000000000000000001VCOM: ACME Pad 300(1234/5678/000D/" + model().serial_number + ")");
    EXPECT_THAT(bus().log("libusb_open"), SizeIs(2)) << "found once, and made current";
}

class AddedVcomType : public AddedIds {
  protected:
    // The type of the one pad that a search finds.
    unsigned int type_found(const std::string& text) {
        named_.emplace("VXPADCOM_IDS", file(text).c_str());
        core_initialize();
        OwnRegistry pads;
        EXPECT_EQ(search_vcom_devices(pads.get()), 1);
        return pads.slot(0).pad_type;
    }
};

TEST_F(AddedVcomType, IsThatOfTheLineForTheIdsThatItTells) {
    plug_own_vcom_pad(15);
    model().vendor_id = 0x4242;
    model().product_id = 2;
    EXPECT_EQ(type_found("1234 5678 vcom 16\n4242 1 hid 10\n4242 2 hid 17\n"), 17U);
}

TEST_F(AddedVcomType, ElseThatOfTheLineByWhichItWasFound) {
    plug_own_vcom_pad(15); // the table knows the ids that it tells, too
    EXPECT_EQ(type_found("1234 5678 vcom 16\n"), 16U);
    model().vendor_id = 0x4242;
    EXPECT_EQ(type_found("1234 5678 vcom 12\n"), 12U);
    EXPECT_THAT(said(), Not(Says("unable to fetch type")));
}

TEST_F(AddedVcomType, StaysThatOfTheTableForAPadOfTheTable) {
    plug_vcom(vcom_pad(), 15);
    EXPECT_EQ(type_found("1234 5678 vcom 16\n"), 15U);
}

TEST_F(AddedVcomType, OfAChipVendorNeedsNoMaker) {
    UsbDevice pad = vcom_pad("usb1", chip_vendors_entry);
    pad.manufacturer = "Somebody";
    plug_vcom(std::move(pad), 15);
    const vx_usb_id& id = vcom_device_list[chip_vendors_entry];
    EXPECT_EQ(type_found(line_for(id.vendor_id, id.product_id, "vcom 16")), 16U);
    EXPECT_THAT(said(), Not(Says("Check manufacturer string")));
    EXPECT_THAT(bus().log("libusb_get_device_list"), SizeIs(9)) << "eight of the table";
}

// As one of the table that cannot be opened does.
TEST_F(AddedIds, APadThatCannotBeOpenedEndsTheSearch) {
    bus().plug(own_pad());
    bus().plug(pad_of_type(9, "never"));
    bus().hooks.open_path = results({-1});
    EXPECT_EQ(start("1234 5678 hid 16\n"), 0);
    EXPECT_THAT(bus().log("hid_open_path"), ElementsAre(opened()));
    EXPECT_THAT(said(), Says("failed during opening HID device " + path));
    EXPECT_EQ(core_looking_for_devices(), 2) << "only that one";
}

TEST_F(AddedIds, AreReadAtEachStart) {
    bus().plug(own_pad());
    EXPECT_EQ(start("1234 5678 hid 16\n"), 1);
    EXPECT_EQ(start("1234 5679 hid 16\n"), 0);
    EXPECT_EQ(start(""), 0);
    EXPECT_EQ(start("1234 5678 hid 16\n"), 1);
}

TEST_F(AddedIds, AreReadByInitializeToo) {
    bus().plug(own_pad());
    named_.emplace("VXPADCOM_IDS", file("1234 5678 hid 16\n").c_str());
    unsigned int unused = 0;
    Initialize();
    EXPECT_EQ(GetDeviceCount(&unused), 1);
    Deinitialize();
}

TEST_F(AddedIds, OfTheUsersFolderCountWithoutAName) {
    const EnvironmentGuard nothing("VXPADCOM_IDS", nullptr);
    const EnvironmentGuard config("XDG_CONFIG_HOME", folder_.c_str());
    fs::create_directories(folder_ / "vxpadcom/ids.d");
    std::ofstream(folder_ / "vxpadcom/ids.d/a.ids") << "1234 5678 hid 16\n";
    bus().plug(own_pad());
    core_initialize();
    EXPECT_EQ(core_looking_for_devices(), 1);
}

TEST_F(AddedIds, AreNotReadForASetuidProgram) {
    bus().plug(own_pad());
    is_setuid = true;
    EXPECT_EQ(start("1234 5678 hid 16\nbad\n"), 0);
    EXPECT_EQ(errors_of_start(), "");
    is_setuid = false;
    EXPECT_EQ(start("1234 5678 hid 16\n"), 1);
}

TEST_F(AddedIds, BadLinesAreToldOnAnErrorLine) {
    named_.emplace("VXPADCOM_IDS", file("1234 5678 hid 16\n\n1234 5679 bluetooth 16\n").c_str());
    EXPECT_THAT(errors_of_start(), testing::ContainsRegex("error: core_initialize\\(\\): " + folder_.string() +
                                                          "/test.ids:3: the transport is neither hid nor vcom"));
    bus().plug(own_pad());
    EXPECT_EQ(core_looking_for_devices(), 1);
    named_.emplace("VXPADCOM_IDS", (folder_ / "nowhere").c_str());
    EXPECT_THAT(errors_of_start(), HasSubstr("/nowhere: cannot be read: No such file or directory"));
    named_.emplace("VXPADCOM_IDS", (folder_ / "\x1b[31m%s%n\n\x7f").c_str());
    EXPECT_THAT(errors_of_start(), HasSubstr("/?[31m%s%n\?\?: cannot be read"));
}

TEST_F(AddedIds, AreCountedWhereSomebodyListens) {
    named_.emplace("VXPADCOM_IDS", file("1234 5678 hid 16\n").c_str());
    core_initialize();
    EXPECT_THAT(said(), Says("ids of files: 1"));
}

TEST_F(AddedIds, WithoutAnyNothingIsSaidAndTheTablesAreSearched) {
    const EnvironmentGuard nothing("VXPADCOM_IDS", nullptr);
    const EnvironmentGuard config("XDG_CONFIG_HOME", folder_.c_str());
    EXPECT_EQ(errors_of_start(), "");
    EXPECT_THAT(said(), Each(Not(HasSubstr("file"))));
    forget();
    EXPECT_EQ(core_looking_for_devices(), 0);
    EXPECT_THAT(bus().log("hid_enumerate"), SizeIs(54));
    EXPECT_EQ(times_said("looking for "), 55) << "of the VCOM pairs the first one finds an empty bus";
}

TEST_F(AddedIds, LeaveTheExportedTablesAlone) {
    const std::vector<unsigned char> before(reinterpret_cast<const unsigned char*>(hid_device_list),
                                            reinterpret_cast<const unsigned char*>(hid_device_list + 55));
    start("1234 5678 hid 16\n1234 5679 vcom 16\n");
    EXPECT_EQ(std::memcmp(before.data(), hid_device_list, before.size()), 0);
    EXPECT_EQ(vcom_device_list[9].vendor_id, 0U);
}

// The table is the application's to change; a pair with more than 16 bits is another one.
TEST_F(AddedIds, DoNotTakeThePlaceOfOtherPairs) {
    const vx_usb_id kept = hid_device_list[0];
    hid_device_list[0] = {0x11234, own_product};
    start("1234 5678 hid 16\n");
    EXPECT_THAT(bus().log("hid_enumerate"), Contains(enumerate_call(own_vendor, own_product)).Times(2));
    hid_device_list[0] = kept;
}

} // namespace
} // namespace core_test
