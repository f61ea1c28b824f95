// Finding VCOM pads.
#include "ssp_test.hpp"

#include VXPADCOM_USB_IDS_FILE

#include <cstdio>

namespace core_test {
namespace {

constexpr std::size_t named_entry = 8; // of vcom_device_list: accepted by the manufacturer string only

class VcomSearchTest : public CoreTest {
  protected:
    VcomSearchTest() { bus().cost_us["libusb_bulk_transfer"] = 1000; }

    void TearDown() override {
        pads.reset();
        CoreTest::TearDown();
    }

    // A pad that answers, of a type.
    UsbDevice& plug(unsigned int pad_type, const std::string& name = "usb1", std::size_t which = 0,
                    const std::string& serial_number = "SN0300") {
        models_.push_back(std::make_unique<SspPad>(described_as(pad_type)));
        models_.back()->serial_number = serial_number;
        UsbDevice& pad = bus().plug(vcom_pad(name, which));
        models_.back()->attach(pad);
        return pad;
    }
    SspPad& model(std::size_t index = 0) { return *models_[index]; }

    int search() { return search_vcom_devices(pads->get()); }
    // The calls between a pad's opening and its closing, transfers left out.
    Lines calls(const std::string& name = "usb1") const {
        Lines chosen;
        for (const std::string& line : bus().log()) {
            if (line.find(name) != std::string::npos && line.find("bulk_transfer") == std::string::npos) {
                chosen.push_back(line);
            }
        }
        return chosen;
    }

    std::optional<OwnRegistry> pads{std::in_place};

  private:
    std::vector<std::unique_ptr<SspPad>> models_;
};

TEST_F(VcomSearchTest, TableHasFourVendorsWithTwoProductsAndANamedPair) {
    std::size_t count = 0;
    while (vcom_device_list[count].vendor_id != 0) {
        ++count;
    }
    ASSERT_EQ(count, 9U);
    for (std::size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(vcom_device_list[i].vendor_id, vcom_device_list[i / 2 * 2].vendor_id);
        EXPECT_EQ(vcom_device_list[i].product_id, vcom_device_list[i % 2].product_id);
    }
    for (std::size_t i = 0; i < 8; ++i) {
        EXPECT_NE(vcom_device_list[named_entry].vendor_id, vcom_device_list[i].vendor_id);
    }
}

TEST_F(VcomSearchTest, WithoutARegistryNothingIsSearchedOrCleared) {
    plug(15);
    EXPECT_EQ(search_vcom_devices(nullptr), -1);
    EXPECT_EQ(search_hid_devices(nullptr), -1);
    EXPECT_EQ(core_close_all_devs_clear_mem(nullptr), 1);
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(VcomSearchTest, EmptyBusEndsTheSearchWithZero) {
    EXPECT_EQ(search(), 0);
    EXPECT_THAT(bus().log(),
                ElementsAre("libusb_set_debug(1)", "libusb_get_device_list()", "libusb_free_device_list(1)"));
    EXPECT_THAT(said(), Says("No usb devices"));
}

TEST_F(VcomSearchTest, FailedListGoesOnWithTheNextEntryAndIsNotFreed) {
    bus().device_list_result = LIBUSB_ERROR_IO;
    EXPECT_EQ(search(), -1);
    EXPECT_THAT(bus().log("libusb_get_device_list"), SizeIs(9));
    EXPECT_THAT(bus().log("libusb_free_device_list"), IsEmpty());
    EXPECT_EQ(times_said("libusb_get_device_list() failed and return -1"), 9);
}

TEST_F(VcomSearchTest, BusWithoutPadsGivesMinusOne) {
    UsbDevice other;
    other.vendor_id = 0x1234;
    bus().plug(other);
    EXPECT_EQ(search(), -1);
    EXPECT_THAT(bus().log("libusb_open"), IsEmpty());
    EXPECT_THAT(bus().log("libusb_get_device_list"), SizeIs(9));
    EXPECT_THAT(said(),
                AllOf(Says("Count of devices on USB bus: 1"), Says("before libusb_free_device_list(list, 1);")));
    char text[128];
    for (std::size_t i = 0; i < 9; ++i) {
        std::snprintf(text, sizeof text,
                      "looking for vcom_device_list[j].vendor_id -> %x, vcom_device_list[j].product_id -> %x",
                      vcom_device_list[i].vendor_id, vcom_device_list[i].product_id);
        EXPECT_EQ(times_said(text), 1);
    }
}

TEST_F(VcomSearchTest, PadIsOpenedAskedAndClosedInOrder) {
    plug(15);
    EXPECT_EQ(search(), 1);
    EXPECT_THAT(calls(), ElementsAre("libusb_get_device_descriptor(usb1)", usb_opened(),
                                     "libusb_get_string_descriptor_ascii(usb1, 1, 256)",
                                     "libusb_get_string_descriptor_ascii(usb1, 2, 256)",
                                     "libusb_get_string_descriptor_ascii(usb1, 3, 256)",
                                     "libusb_get_config_descriptor(usb1, 0)", "libusb_kernel_driver_active(usb1, 0)",
                                     "libusb_claim_interface(usb1, 0)", "libusb_ref_device(usb1)", usb_closed(),
                                     // the other entries of the table
                                     "libusb_get_device_descriptor(usb1)", "libusb_get_device_descriptor(usb1)",
                                     "libusb_get_device_descriptor(usb1)", "libusb_get_device_descriptor(usb1)",
                                     "libusb_get_device_descriptor(usb1)", "libusb_get_device_descriptor(usb1)",
                                     "libusb_get_device_descriptor(usb1)", "libusb_get_device_descriptor(usb1)"));
    Bytes mode(64);
    mode[0] = 1;
    mode[1] = 1;
    EXPECT_THAT(model().asked, ElementsAre(legacy(mode), Bytes{0xC0, 0}, Bytes{0, 0, 0, 0x10}, base(1, {0x10, 0, 0})));
}

TEST_F(VcomSearchTest, RecordHoldsWhatWasFound) {
    const UsbDevice& pad = plug(15);
    search();
    const vx_device& found = pads->slot(0);
    EXPECT_EQ(pads->get()->count_of_devices, 1);
    EXPECT_EQ(found.in_use, 1);
    EXPECT_EQ(found.pad_type, 15U);
    EXPECT_EQ(found.vendor_id, model().vendor_id);
    EXPECT_EQ(found.product_id, model().product_id);
    EXPECT_EQ(text_of(found.manufacturer), pad.manufacturer);
    EXPECT_EQ(text_of(found.product), pad.product); // no trailing blank
    EXPECT_EQ(text_of(found.serial_number), "SN0300");
    EXPECT_EQ(found.ep_in, 0x81);
    EXPECT_EQ(found.ep_in_max_packet_size, 512U);
    EXPECT_EQ(found.ep_out, 0x01);
    EXPECT_EQ(found.ep_out_max_packet_size, 64U); // whatever the descriptor says
    EXPECT_EQ(found.interface_number, 0U);
    EXPECT_EQ(found.was_removed, 0);
    EXPECT_EQ(found.vcom_handle, nullptr);
    EXPECT_NE(found.vcom_device, nullptr);
    EXPECT_NE(found.device_lock, nullptr);
    EXPECT_EQ(found.send_ssp_message, __send_ssp_message);
    EXPECT_EQ(found.receive_ssp_message, __receive_ssp_message);
    EXPECT_EQ(found.hid, nullptr);
    EXPECT_EQ(found.hid_path[0], '\0');
    EXPECT_EQ(found.count_of_interfaces, 1);
    char ids[128];
    std::snprintf(ids, sizeof ids, "%x%x", model().vendor_id, model().product_id);
    EXPECT_STREQ(found.device_uid, (std::string(ids) + "SN0300").c_str());
    std::snprintf(ids, sizeof ids, "000000000000000001VCOM: ACME Pad 300(%x/%x/000D/SN0300)", model().vendor_id,
                  model().product_id);
    EXPECT_EQ(text_of(found.szPadSettings), ids);
    EXPECT_EQ(bus().usb_references(), 1);
    EXPECT_EQ(bus().open_handles(), 0);
    EXPECT_THAT(said(), AllOf(Says("VCOM device was found -> Pad 300"), Says("VCOM device has SerialNumber -> SN0300"),
                              Says("VCOM device has szPadSettings -> " + std::string(ids)),
                              Says("vx_device.serial_number: USB0001"), Says("vx_device updated by ENDPOINT_IN..."),
                              Says("vx_device updated by ENDPOINT_OUT..."), Says("before libusb_close(vcom_handle);")));
}

TEST_F(VcomSearchTest, TablesTravelWithTheRecordAndAreNotAskedForAgain) {
    plug(15);
    search();
    vx_device& found = pads->slot(0);
    EXPECT_EQ(found.components_id_table[1], 11);
    model().asked.clear();
    ASSERT_EQ(__core_open_dev(&found), 0);
    EXPECT_EQ(ssp_common_component_id_get_id(&found, 3), 2);
    EXPECT_THAT(model().asked, IsEmpty());
}

TEST_F(VcomSearchTest, ClearingARecordGivesItsReferenceBack) {
    plug(15);
    search();
    core_close_all_devs_clear_mem(pads->get());
    EXPECT_EQ(bus().usb_references(), 0);
    EXPECT_THAT(bus().log("libusb_unref_device"), SizeIs(1));
}

// Modes are confirmed by the status only where the type is known; the search does not know it yet.
TEST_F(VcomSearchTest, TypeIsUnknownWhileTheModeIsSet) {
    plug(8);
    search();
    EXPECT_EQ(pads->slot(0).pad_type, 8U);
    EXPECT_EQ(pads->slot(0).model_param_1, 690U);
    EXPECT_THAT(bus().pauses(), IsEmpty());
    EXPECT_THAT(model().asked, SizeIs(4));
}

// What is traced is asked for wherever nobody listens, too: the pad sees the same calls.
TEST_F(VcomSearchTest, StringsAreReadWithoutALoggingCallbackToo) {
    plug(15);
    RegisterLoggingCallBackProcedure(nullptr, nullptr);
    EXPECT_EQ(search(), 1);
    EXPECT_THAT(said(), IsEmpty());
    EXPECT_THAT(bus().log("libusb_get_string_descriptor_ascii"),
                ElementsAre("libusb_get_string_descriptor_ascii(usb1, 1, 256)",
                            "libusb_get_string_descriptor_ascii(usb1, 2, 256)",
                            "libusb_get_string_descriptor_ascii(usb1, 3, 256)"));
}

TEST_F(VcomSearchTest, EndOfEachOpenedDeviceIsTraced) {
    plug(15, "usb1");
    plug(16, "usb2", named_entry).manufacturer = "Other"; // refused, but opened
    bus().plug(vcom_pad("usb3", 1)).configurations.clear();
    UsbDevice other;
    other.vendor_id = 0x1234;
    bus().plug(other); // not opened
    EXPECT_EQ(search(), 1);
    Lines ends;
    for (const std::string& line : said()) {
        if (line.find("before ") != std::string::npos && line.find("list") == std::string::npos) {
            ends.push_back(line);
        }
    }
    const auto closing = HasSubstr("before libusb_close(vcom_handle);");
    const auto freeing = HasSubstr("before free(desc);");
    EXPECT_THAT(ends, ElementsAre(closing, freeing, closing, freeing, closing, freeing));
}

// The mode command may lose the pad for a moment; a good description shows that it is there.
TEST_F(VcomSearchTest, PadThatIsLostOnlyWhileItsModeIsSetIsNotRemoved) {
    plug(15);
    bus().hooks.bulk_out = results({LIBUSB_ERROR_NO_DEVICE});
    EXPECT_EQ(search(), 1);
    EXPECT_THAT(said(), Says("we lost device.."));
    EXPECT_EQ(pads->slot(0).was_removed, 0);
}

TEST_F(VcomSearchTest, FailedModeDoesNotMatter) {
    plug(15);
    model().replace = [](const Bytes& message) {
        return message == Bytes{0xC0, 0} ? std::optional(std::vector<Bytes>{legacy({0x99, 0})}) : std::nullopt;
    };
    EXPECT_EQ(search(), 1);
    EXPECT_EQ(pads->get()->count_of_devices, 1);
}

// Recovery during the mode replaces the handle: the new one is closed at the end, once.
TEST_F(VcomSearchTest, HandleOfTheRecoveryIsClosedAtTheEnd) {
    plug(15);
    int modes = 0;
    model().replace = [&](const Bytes& message) {
        return message == Bytes{0xC0, 0} && ++modes == 1 ? std::optional(std::vector<Bytes>{}) : std::nullopt;
    };
    EXPECT_EQ(search(), 1);
    EXPECT_EQ(bus().open_handles(), 0);
    EXPECT_GE(bus().log("libusb_open").size(), 2U);
    EXPECT_EQ(bus().log("libusb_open").size(), bus().log("libusb_close").size());
}

TEST_F(VcomSearchTest, PadPulledOutAtAnyTransferLeavesNothingBehind) {
    for (int at = 0; at < 12; ++at) {
        UsbDevice& pad = plug(15);
        int transfers = 0;
        const auto pull = [&] {
            if (transfers++ == at) {
                bus().unplug(pad);
            }
        };
        bus().hooks.bulk_in = [&](UsbDevice&, std::span<unsigned char>, int&) {
            pull();
            return std::optional<int>();
        };
        bus().hooks.bulk_out = [&](UsbDevice&, std::span<const unsigned char>, int&) {
            pull();
            return std::optional<int>();
        };
        search();
        if (transfers > at) {
            EXPECT_EQ(pads->get()->count_of_devices, 0) << at;
            EXPECT_EQ(bus().usb_references(), 0) << at;
        }
        EXPECT_EQ(bus().open_handles(), 0) << at;
        core_close_all_devs_clear_mem(pads->get());
        EXPECT_EQ(bus().usb_references(), 0) << at;
        bus().hooks = {};
        bus().unplug(pad);
    }
}

TEST_F(VcomSearchTest, FailedDescriptionIsNotRegisteredAndLeavesTheNextPadAlone) {
    plug(15, "usb1");
    plug(16, "usb2", 0, "SN2");
    model(0).replace = [](const Bytes& message) {
        return message == base(1, {0x10, 0, 0}) ? std::optional(std::vector<Bytes>{base(1, {0x10, 0})}) : std::nullopt;
    };
    EXPECT_EQ(search(), 1);
    EXPECT_EQ(pads->get()->count_of_devices, 1);
    EXPECT_EQ(pads->slot(0).pad_type, 16U);
    EXPECT_THAT(said(), Says("ssp_common_get_pad_description() failed and return -1"));
    EXPECT_EQ(bus().usb_references(), 1);
    EXPECT_THAT(bus().log("libusb_unref_device"), ElementsAre("libusb_unref_device(usb1)"));
}

// Deliberate, as in the HID search: behind an unknown device nothing more is registered.
TEST_F(VcomSearchTest, UnknownTypeStopsRegistrationForTheRestOfTheSearch) {
    plug(15, "usb1", 0, "SN1");
    plug(15, "usb2", 1);
    plug(16, "usb3", 2, "SN3");
    model(1).product_id = 0x4242;
    EXPECT_EQ(search(), 1);
    EXPECT_EQ(pads->get()->count_of_devices, 1);
    EXPECT_EQ(text_of(pads->slot(0).serial_number), "SN1");
    EXPECT_THAT(said(), Says("unable to fetch type of device by idProduct value"));
    EXPECT_THAT(bus().log("libusb_open"), ElementsAre(usb_opened("usb1"), usb_opened("usb2"), usb_opened("usb3")));
    EXPECT_EQ(bus().usb_references(), 1);
    EXPECT_EQ(search_vcom_devices(pads->get()), -1); // the same pad again, and a new skip
}

TEST_F(VcomSearchTest, UnknownVendorIsReported) {
    plug(15);
    model().vendor_id = 0x4242;
    EXPECT_EQ(search(), -1);
    EXPECT_THAT(said(), Says("unable to fetch type of device by idVendor value"));
    EXPECT_EQ(bus().usb_references(), 0);
}

TEST_F(VcomSearchTest, NamedVendorsDeviceNeedsAnAcceptedManufacturer) {
    const auto accepts = [&](const std::string& manufacturer) {
        UsbDevice& pad = plug(15, "usb1", named_entry);
        pad.manufacturer = manufacturer;
        forget();
        search();
        const bool registered = pads->get()->count_of_devices == 1;
        EXPECT_EQ(times_said("It looks like not Quillon's device because manufacturer: " + manufacturer),
                  registered ? 0 : 1);
        EXPECT_THAT(said(), Says("Check manufacturer string for vendor ID: 0x"));
        EXPECT_EQ(bus().open_handles(), 0);
        core_close_all_devs_clear_mem(pads->get());
        bus().unplug(pad);
        return registered;
    };
    for (const char* accepted : {"Quillon", "Quillon Pads Ltd", "Kesta", "KestaX", "mirlo", "mirlo gmbh"}) {
        EXPECT_TRUE(accepts(accepted)) << accepted;
    }
    for (const char* rejected : {"quillon", "Quillo", "KESTA", "Mirlo", " mirlo", "ACME", ""}) {
        EXPECT_FALSE(accepts(rejected)) << rejected;
    }
}

TEST_F(VcomSearchTest, RejectedDeviceIsNotAskedFurther) {
    UsbDevice& pad = plug(15, "usb1", named_entry);
    pad.manufacturer = "Other";
    search();
    EXPECT_THAT(bus().log("libusb_get_string_descriptor_ascii"), SizeIs(1));
    EXPECT_THAT(bus().log("libusb_get_config_descriptor"), IsEmpty());
    EXPECT_THAT(bus().log("libusb_claim_interface"), IsEmpty());
    EXPECT_THAT(bus().log("libusb_close"), SizeIs(1));
}

TEST_F(VcomSearchTest, OtherVendorsNeedNoName) {
    plug(15).manufacturer = "Whoever";
    EXPECT_EQ(search(), 1);
    EXPECT_EQ(times_said("Check manufacturer string"), 0);
}

TEST_F(VcomSearchTest, MissingStringsAreEmptyTexts) {
    UsbDevice& pad = plug(15);
    pad.manufacturer = "";
    pad.product = "";
    pad.serial_number = "";
    EXPECT_EQ(search(), 1);
    EXPECT_EQ(text_of(pads->slot(0).manufacturer), "");
    EXPECT_EQ(text_of(pads->slot(0).product), "");
    EXPECT_EQ(text_of(pads->slot(0).serial_number), "SN0300");
}

TEST_F(VcomSearchTest, TextsOfFullLengthStayWithinTheirFields) {
    UsbDevice& pad = plug(15, "usb1", 0, std::string(255, 's'));
    pad.manufacturer = std::string(300, 'm');
    pad.product = std::string(300, 'p');
    EXPECT_EQ(search(), 1);
    const vx_device& found = pads->slot(0);
    EXPECT_EQ(text_of(found.manufacturer), std::string(255, 'm'));
    EXPECT_EQ(text_of(found.product), std::string(255, 'p'));
    EXPECT_EQ(text_of(found.serial_number), std::string(255, 's'));
    EXPECT_EQ(text_of(found.szPadSettings).size(), 255U);
}

TEST_F(VcomSearchTest, FailuresOfTheDevicePassItOver) {
    for (const std::string_view failing :
         {"libusb_get_device_descriptor", "libusb_open", "libusb_get_config_descriptor"}) {
        UsbDevice& bad = plug(15, "usb1");
        UsbDevice& good = plug(16, "usb2");
        bus().hooks.usb = [&](UsbDevice& device, std::string_view which) {
            return &device == &bad && which == failing ? std::optional<int>(LIBUSB_ERROR_IO) : std::nullopt;
        };
        EXPECT_EQ(search(), 1) << failing;
        EXPECT_EQ(pads->slot(0).pad_type, 16U) << failing;
        EXPECT_THAT(said(), Says(std::string(failing) + "() failed"));
        core_close_all_devs_clear_mem(pads->get());
        EXPECT_EQ(bus().usb_references(), 0);
        EXPECT_EQ(bus().open_lists(), 0);
        bus().unplug(bad);
        bus().unplug(good);
    }
    EXPECT_THAT(said(),
                AllOf(Says("libusb_get_device_descriptor() failed and return -1"),
                      Says("failed during opening VCOM device 0x"), Says("libusb_open() failed: LIBUSB_ERROR_IO"),
                      Says("libusb_get_config_descriptor() failed and return -1")));
}

// libusb's own name of the error follows.
TEST_F(VcomSearchTest, ErrorsOfLibusbAreNamed) {
    struct Failing {
        std::string_view function;
        int times; // that it is called
    };
    for (const Failing& failing :
         {Failing{"libusb_get_device_descriptor", 9}, Failing{"libusb_get_config_descriptor", 1},
          Failing{"libusb_claim_interface", 1}, Failing{"libusb_detach_kernel_driver", 1},
          Failing{"libusb_kernel_driver_active", 1}, Failing{"libusb_get_string_descriptor_ascii", 3}}) {
        UsbDevice& pad = plug(15);
        bus().hooks.usb = [&](UsbDevice&, std::string_view which) {
            return which == failing.function                ? std::optional<int>(LIBUSB_ERROR_PIPE)
                   : which == "libusb_kernel_driver_active" ? std::optional(1)
                                                            : std::nullopt;
        };
        forget();
        search();
        EXPECT_EQ(times_said("LIBUSB_ERROR_PIPE"), failing.times) << failing.function;
        core_close_all_devs_clear_mem(pads->get());
        bus().unplug(pad);
    }
    bus().device_list_result = LIBUSB_ERROR_IO;
    forget();
    search();
    EXPECT_EQ(times_said("LIBUSB_ERROR_IO"), 9);
}

// Endpoints.

struct EndpointCase {
    const char* name;
    std::vector<standins::UsbConfiguration> configurations;
    int in; // -1: not registered
    unsigned int in_size;
    int out;
};

void PrintTo(const EndpointCase& one, std::ostream* out) {
    *out << one.name;
}

class VcomEndpointsTest : public VcomSearchTest, public testing::WithParamInterface<EndpointCase> {};

using standins::UsbConfiguration;
using standins::UsbInterface;
using standins::UsbSetting;

INSTANTIATE_TEST_SUITE_P(
    Descriptors, VcomEndpointsTest,
    testing::Values(
        EndpointCase{"OutFirst", {{{{{0x02, 512}, {0x82, 64}}}}}, 0x82, 64, 0x02},
        // the larger IN wins until an OUT ends the search
        EndpointCase{"LargestIn", {{{{{0x81, 8}, {0x82, 64}, {0x83, 16}, {0x01, 64}}}}}, 0x82, 64, 0x01},
        EndpointCase{"FirstPairEndsTheSearch", {{{{{0x81, 8}, {0x01, 64}, {0x82, 512}}}}}, 0x81, 8, 0x01},
        // an OUT counts as 64 from then on, so only a larger one replaces it
        EndpointCase{"LargerOut", {{{{{0x01, 8}, {0x02, 64}, {0x03, 65}, {0x81, 64}}}}}, 0x81, 64, 0x03},
        EndpointCase{"EmptyPackets", {{{{{0x81, 0}, {0x01, 0}}}}}, -1, 0, 0},
        EndpointCase{"SecondSetting", {{{{{0x81, 512}}, {{0x82, 64}, {0x02, 64}}}}}, 0x82, 64, 0x02},
        EndpointCase{"SecondInterface", {{{{}}, {{{0x83, 64}, {0x03, 64}}}}}, 0x83, 64, 0x03},
        EndpointCase{"SecondConfiguration", {{{{{0x81, 8}}}}, {{{{0x84, 64}, {0x04, 64}}}}}, 0x84, 64, 0x04},
        // what one setting gives, another may complete
        EndpointCase{"OverTwoSettings", {{{{{0x81, 8}, {0x82, 16}}, {{0x01, 64}, {0x02, 64}}}}}, 0x82, 16, 0x01},
        EndpointCase{"OnlyIn", {{{{{0x81, 8}, {0x82, 64}}}}}, -1, 0, 0},
        EndpointCase{"OnlyOut", {{{{{0x01, 8}, {0x02, 64}}}}}, -1, 0, 0},
        EndpointCase{"SettingsOfOneEndpoint", {{{{{0x81, 64}}, {{0x01, 64}}}}}, -1, 0, 0},
        EndpointCase{"NoInterfaces", {UsbConfiguration{}}, -1, 0, 0}, EndpointCase{"NoConfigurations", {}, -1, 0, 0}),
    testing::PrintToStringParamName());

TEST_P(VcomEndpointsTest, AreTakenAsTheDescriptorsComeUp) {
    plug(15).configurations = GetParam().configurations;
    const bool registered = search() == 1;
    EXPECT_EQ(registered, GetParam().in >= 0);
    if (registered) {
        EXPECT_EQ(pads->slot(0).ep_in, GetParam().in);
        EXPECT_EQ(pads->slot(0).ep_in_max_packet_size, GetParam().in_size);
        EXPECT_EQ(pads->slot(0).ep_out, GetParam().out);
        EXPECT_EQ(pads->slot(0).ep_out_max_packet_size, 64U);
    } else {
        EXPECT_THAT(bus().log("libusb_claim_interface"), IsEmpty());
        EXPECT_THAT(bus().log("libusb_close"), SizeIs(1));
        EXPECT_EQ(bus().usb_references(), 0);
    }
    EXPECT_EQ(bus().open_lists(), 0);
}

TEST_F(VcomSearchTest, SkippedEndpointsAndSettingsAreTraced) {
    plug(15).configurations = {{{{{0x81, 64}}}, {{{0x81, 64}, {0x82, 8}, {0x01, 8}}}}};
    search();
    EXPECT_THAT(said(), AllOf(Says("Skip interface[0] > descriptor[0]"), Says("skipped ENDPOINT_IN...")));
}

// Kernel driver and claim.

TEST_F(VcomSearchTest, OnlyOneFromTheDriverQueryDetaches) {
    for (const int active : {1, 0, int{LIBUSB_ERROR_NOT_SUPPORTED}, 2}) {
        UsbDevice& pad = plug(15);
        bus().take_log();
        bus().hooks.usb = [&](UsbDevice&, std::string_view which) {
            return which == "libusb_kernel_driver_active" ? std::optional(active) : std::nullopt;
        };
        search();
        EXPECT_THAT(bus().log("libusb_detach_kernel_driver"), SizeIs(active == 1 ? 1 : 0)) << active;
        EXPECT_THAT(bus().log("libusb_claim_interface"), SizeIs(1));
        core_close_all_devs_clear_mem(pads->get());
        bus().unplug(pad);
    }
    EXPECT_EQ(times_said("going to libusb_detach_kernel_driver(0x"), 1);
    EXPECT_THAT(said(), Says("was claimed by libusb_claim_interface()"));
}

TEST_F(VcomSearchTest, FailedClaimIsOnlyReported) {
    plug(15);
    bus().hooks.usb = [](UsbDevice&, std::string_view which) {
        return which == "libusb_claim_interface" ? std::optional<int>(LIBUSB_ERROR_BUSY) : std::nullopt;
    };
    EXPECT_EQ(search(), 1);
    EXPECT_THAT(said(), Says("libusb_claim_interface() failed and return -6"));
}

// Registering.

TEST_F(VcomSearchTest, TwoPadsTakeTwoSlots) {
    plug(15, "usb1", 0, "SN1");
    plug(15, "usb2", 0, "SN2");
    EXPECT_EQ(search(), 2);
    EXPECT_EQ(text_of(pads->slot(0).serial_number), "SN1");
    EXPECT_EQ(text_of(pads->slot(1).serial_number), "SN2");
    EXPECT_EQ(bus().usb_references(), 2);
}

// A second interface of the same pad brings its type only: no handle, no lock, no texts.
TEST_F(VcomSearchTest, SecondInterfaceHoldsItsTypeOnly) {
    plug(15, "usb1");
    plug(15, "usb2");
    EXPECT_EQ(search(), 1);
    EXPECT_EQ(pads->get()->count_of_devices, 1);
    EXPECT_EQ(pads->slot(0).count_of_interfaces, 2);
    vx_device& second = pads->further(0, 0);
    EXPECT_EQ(second.in_use, 1);
    EXPECT_EQ(second.pad_type, 15U);
    EXPECT_EQ(second.device_lock, nullptr);
    EXPECT_EQ(second.vcom_device, nullptr);
    EXPECT_EQ(second.vcom_handle, nullptr);
    EXPECT_EQ(second.ssp_command_messages, nullptr);
    EXPECT_EQ(second.product[0], '\0');
    EXPECT_EQ(second.send_ssp_message, nullptr);
    EXPECT_EQ(bus().usb_references(), 1);
    EXPECT_THAT(said(), Says("was found in device's list"));
    // Everything copes with it.
    Bytes data(64);
    unsigned int length = 64;
    EXPECT_EQ(core_open_dev(&second), 0);
    EXPECT_EQ(core_feature_read(&second, data.data(), 64), -1);
    EXPECT_EQ(core_output_write(&second, data.data(), 64), -1);
    EXPECT_EQ(core_input_read(&second, data.data(), 64), -1);
    EXPECT_EQ(lock_dev_and_send_ssp_message(&second, data.data(), 4), -1);
    EXPECT_EQ(lock_dev_and_receive_ssp_message(&second, data.data(), &length, 50, 0), -1);
    EXPECT_EQ(ssp_common_is_ssp_supported(&second), 0);
    core_close_dev(&second);
    EXPECT_EQ(second.was_removed, 0);
}

TEST_F(VcomSearchTest, PadsAndInterfacesThatDoNotFitLeaveNothingBehind) {
    for (int i = 0; i < 18; ++i) {
        plug(15, "usb" + std::to_string(i), 0, "SN" + std::to_string(100 + i));
    }
    EXPECT_EQ(search(), 16);
    EXPECT_EQ(pads->get()->count_of_devices, 16);
    EXPECT_EQ(bus().usb_references(), 16);
    EXPECT_EQ(bus().open_handles(), 0);
    core_close_all_devs_clear_mem(pads->get());

    bus().reset();
    bus().cost_us["libusb_bulk_transfer"] = 1000;
    for (int i = 0; i < 11; ++i) {
        plug(15, "usb" + std::to_string(i));
    }
    EXPECT_EQ(search(), 1);
    EXPECT_EQ(pads->slot(0).count_of_interfaces, 9);
    EXPECT_EQ(bus().usb_references(), 1);
}

TEST_F(VcomSearchTest, PenDataAndRepliesOfTheSearchBelongToTheRecord) {
    plug(15);
    model().replace = [this](const Bytes& message) -> std::optional<std::vector<Bytes>> {
        if (message == base(1, {0x10, 0, 0})) {
            return {{pen({1}), base(1, model().description())}};
        }
        return std::nullopt;
    };
    EXPECT_EQ(search(), 1);
    EXPECT_EQ(queued(pads->slot(0).ssp_input_read), 1);
}

TEST_F(VcomSearchTest, CoreSearchesHidPadsFirst) {
    plug(15);
    bus().plug(pad_of_type(10));
    core_initialize();
    EXPECT_EQ(core_looking_for_devices(), 2);
    EXPECT_THAT(current_settings(), HasSubstr("HID: "));
    EXPECT_EQ(core_set_device_to_current(nullptr), 0);
    EXPECT_THAT(current_settings(), HasSubstr("VCOM: "));
    EXPECT_EQ(core_get_max_packet_size_of_out_endpoint(), 64);
    EXPECT_EQ(core_get_max_packet_size_of_input_report(), 512);
    core_uninitialize();
    EXPECT_EQ(bus().usb_references(), 0);
    EXPECT_EQ(bus().open_handles(), 0);
}

} // namespace
} // namespace core_test
