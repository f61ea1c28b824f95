// The search for HID pads: which ids, which calls in which order, what a found interface's record holds, what ends it.
#include "core_test.hpp"

#include VXPADCOM_USB_IDS_FILE

#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>

namespace core_test {
namespace {

std::string ids_text(const char* format, unsigned int vendor_id, unsigned int product_id) {
    char text[128];
    std::snprintf(text, sizeof text, format, vendor_id, product_id);
    return text;
}

std::string enumerated(const vx_usb_id& ids) {
    return ids_text("hid_enumerate(%04x, %04x)", ids.vendor_id & 0xffff, ids.product_id & 0xffff);
}

class HidSearchTest : public CoreTest {
  protected:
    void TearDown() override {
        std::copy(table.begin(), table.end(), hid_device_list);
        CoreTest::TearDown();
    }

    // The calls of a search apart from the 54 enumerations.
    static Lines calls() {
        Lines lines = bus().log();
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("hid_enumerate("); });
        return lines;
    }

    static HidInterface pad_with(std::uint32_t vendor_id, std::uint32_t product_id, std::string at) {
        HidInterface pad;
        pad.path = std::move(at);
        pad.vendor_id = static_cast<std::uint16_t>(vendor_id);
        pad.product_id = static_cast<std::uint16_t>(product_id);
        return pad;
    }

    const std::vector<vx_usb_id> table{std::begin(hid_device_list), std::end(hid_device_list)};
    OwnRegistry registry;
};

// The id tables.

TEST_F(HidSearchTest, HidTableIsFourVendorsWithTheSameProductsAndAFifthWithTwo) {
    for (std::size_t vendor = 0; vendor < 4; ++vendor) {
        for (std::size_t product = 0; product < 13; ++product) {
            EXPECT_EQ(table[vendor * 13 + product].vendor_id, table[vendor * 13].vendor_id);
            EXPECT_EQ(table[vendor * 13 + product].product_id, table[product].product_id);
        }
    }
    EXPECT_EQ(table[52].vendor_id, table[53].vendor_id);
    std::set<std::uint32_t> vendors;
    for (std::size_t i = 0; i < 54; ++i) {
        vendors.insert(table[i].vendor_id);
    }
    EXPECT_THAT(vendors, SizeIs(5));
    EXPECT_FALSE(vendors.contains(0));
    EXPECT_EQ(table[54].vendor_id, 0U);
}

TEST_F(HidSearchTest, VcomTableIsFourVendorsWithTheSameTwoProductsAndOneMorePair) {
    for (std::size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(vcom_device_list[i].vendor_id, vcom_device_list[i / 2 * 2].vendor_id);
        EXPECT_EQ(vcom_device_list[i].product_id, vcom_device_list[i % 2].product_id);
    }
    std::set<std::uint32_t> vendors;
    for (std::size_t i = 0; i < 9; ++i) {
        vendors.insert(vcom_device_list[i].vendor_id);
    }
    EXPECT_THAT(vendors, SizeIs(5));
    EXPECT_FALSE(vendors.contains(0));
    EXPECT_EQ(vcom_device_list[9].vendor_id, 0U);
}

TEST_F(HidSearchTest, EmptyBusIsAskedForEveryPairInOrder) {
    EXPECT_EQ(search_hid_devices(registry.get()), -1);
    Lines expected;
    for (std::size_t i = 0; i < 54; ++i) {
        expected.push_back(enumerated(table[i]));
    }
    EXPECT_THAT(bus().log("hid_enumerate"), ElementsAreArray(expected));
    EXPECT_EQ(times_said("looking for hid_device_list"), 54);
    for (const std::size_t i : {0U, 53U}) { // the letter j is part of the text
        EXPECT_THAT(said(), Says(ids_text("looking for hid_device_list[j].vendor_id -> %x, "
                                          "hid_device_list[j].product_id -> %x",
                                          table[i].vendor_id, table[i].product_id)));
    }
}

TEST_F(HidSearchTest, TableEndsAtAVendorIdOfZeroAndOnlyLowHalvesAreEnumerated) {
    hid_device_list[0] = {0x12340000 | table[0].vendor_id, 0x56780000 | table[0].product_id};
    hid_device_list[2].vendor_id = 0;
    search_hid_devices(registry.get());
    EXPECT_THAT(bus().log(), ElementsAre(enumerated(table[0]), enumerated(table[1])));
}

TEST_F(HidSearchTest, IdsOfTheRecordAreTheTablesWholeValues) {
    bus().plug(pad_of_type(9));
    hid_device_list[0].vendor_id |= 0x10000;
    EXPECT_EQ(search_hid_devices(registry.get()), -1); // enumerated, but of no known vendor
    EXPECT_THAT(said(), Says("unable to fetch type of device by idVendor value"));
}

// One interface.

TEST_F(HidSearchTest, InterfaceIsOpenedOnceReadAndClosed) {
    bus().plug(pad_of_type(plain_type));
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_THAT(calls(),
                ElementsAre(opened(), "hid_get_manufacturer_string(1-1:1.0, 256)",
                            "hid_get_product_string(1-1:1.0, 256)", "hid_get_serial_number_string(1-1:1.0, 256)",
                            sent("11"), asked(), paused(50), closed(), "hid_free_enumeration()"));
    for (const char* const text :
         {"FW info: major->2", "FW info: minor->5", "FW info: patch->7", "FW info: revision->11",
          "FW info: manufacturer->ACME", "HID device was found -> ", "HID device has SerialNumber -> SN0001",
          "HID device has szPadSettings -> 000000000000000001HID: ACME Pad 100 (", "Going to call hid_close(",
          "done successful"}) {
        EXPECT_THAT(said(), Says(text));
    }
}

TEST_F(HidSearchTest, RecordHoldsWhatTheSearchLearned) {
    HidInterface& pad = bus().plug(pad_of_type(plain_type, "3-2:1.4", 4, L"SN7"));
    search_hid_devices(registry.get());
    const vx_device& found = registry.slot(0);
    EXPECT_EQ(found.pad_type, plain_type);
    EXPECT_EQ(found.hid, nullptr); // records start closed
    EXPECT_EQ(found.bcdDevice, 0U);
    EXPECT_EQ(found.vendor_id, pad.vendor_id);
    EXPECT_EQ(found.product_id, pad.product_id);
    EXPECT_EQ(text_of(found.manufacturer), "ACME");
    EXPECT_EQ(text_of(found.product), "Pad 100 "); // one trailing blank
    EXPECT_EQ(text_of(found.serial_number), "SN7");
    EXPECT_EQ(text_of(found.hid_path), "3-2:1.4");
    EXPECT_EQ(found.interface_number, 4U);
    EXPECT_EQ(found.in_use, 1);
    EXPECT_EQ(found.was_removed, 0);
    EXPECT_EQ(std::string(found.device_uid), ids_text("%x%x", pad.vendor_id, pad.product_id) + "SN7");
    EXPECT_EQ(text_of(found.szPadSettings),
              "000000000000000001HID: ACME Pad 100 " + ids_text("(%x/%x/000D/SN7)", pad.vendor_id, pad.product_id));
    EXPECT_EQ(found.vcom_handle, nullptr);
    EXPECT_EQ(found.vcom_device, nullptr);
    EXPECT_EQ(found.ssp_input_read, nullptr);
    EXPECT_EQ(found.ssp_command_messages, nullptr);
    EXPECT_EQ(found.count_of_interfaces, 1);
    EXPECT_EQ(found.interfaces[0], &registry.further(0, 0)); // the slot's own table stays
    EXPECT_EQ(found.interfaces[0]->in_use, 0);
    ASSERT_NE(found.device_lock, nullptr);
    EXPECT_EQ(pthread_mutex_trylock(found.device_lock), 0);
    EXPECT_EQ(pthread_mutex_unlock(found.device_lock), 0);
    EXPECT_EQ(registry->count_of_devices, 1);
    EXPECT_EQ(registry->current_device, nullptr);
}

TEST_F(HidSearchTest, PadTypesFollowFromVendorAndProduct) {
    const std::map<unsigned int, int> products_of_type{{9, 2},  {10, 2}, {11, 1}, {12, 1},
                                                       {13, 2}, {15, 1}, {16, 2}, {17, 2}};
    for (std::size_t vendor = 0; vendor < 4; ++vendor) {
        OwnRegistry found;
        bus().reset();
        for (std::size_t product = 0; product < 13; ++product) {
            const vx_usb_id& ids = table[vendor * 13 + product];
            bus().plug(pad_with(ids.vendor_id, ids.product_id, std::to_string(product)));
        }
        EXPECT_EQ(search_hid_devices(found.get()), 13);
        std::map<unsigned int, int> seen;
        for (std::size_t i = 0; i < 13; ++i) {
            ++seen[found.slot(i).pad_type];
            EXPECT_EQ(found.slot(i).model_param_1, 0U);
            EXPECT_EQ(found.slot(i).model_param_2, 0U);
        }
        EXPECT_EQ(seen, products_of_type);
    }
}

TEST_F(HidSearchTest, TypesOneAndEightHaveModelParameters) {
    bus().plug(pad_of_type(1, "one"));
    bus().plug(pad_of_type(8, "eight"));
    EXPECT_EQ(search_hid_devices(registry.get()), 2);
    std::set<unsigned int> types;
    for (const std::size_t i : {0U, 1U}) {
        types.insert(registry.slot(i).pad_type);
        EXPECT_EQ(registry.slot(i).model_param_1, 690U);
        EXPECT_EQ(registry.slot(i).model_param_2, 184U);
    }
    EXPECT_THAT(types, ElementsAre(1, 8));
}

TEST_F(HidSearchTest, TypeOneModelIsNeverAskedForItsVersion) {
    bus().plug(pad_of_type(1));
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_THAT(bus().log("hid_send_feature_report"), IsEmpty());
    EXPECT_THAT(said(), Says("FW info: major->1"));
    EXPECT_THAT(said(), Says("FW info: minor->31"));
}

// Strings.

TEST_F(HidSearchTest, PercentSignsInStringsStayAsTheyAre) {
    HidInterface& pad = bus().plug(pad_of_type(plain_type, path, 0, L"%n%n"));
    pad.manufacturer = L"100%s";
    pad.product = L"%x%p%d";
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_EQ(text_of(registry.slot(0).manufacturer), "100%s");
    EXPECT_EQ(text_of(registry.slot(0).product), "%x%p%d ");
    EXPECT_EQ(text_of(registry.slot(0).serial_number), "%n%n");
    EXPECT_THAT(text_of(registry.slot(0).szPadSettings), StartsWith("000000000000000001HID: 100%s %x%p%d ("));
    EXPECT_THAT(said(), Says("HID device has SerialNumber -> %n%n"));
    EXPECT_THAT(said(), Says("HID device has szPadSettings -> 000000000000000001HID: 100%s %x%p%d ("));
}

TEST_F(HidSearchTest, StringsAreCutTo254Characters) {
    HidInterface& pad = bus().plug(pad_of_type(plain_type, path, 0, std::wstring(255, L's')));
    pad.manufacturer = std::wstring(253, L'm');
    pad.product = std::wstring(255, L'p');
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_EQ(text_of(registry.slot(0).manufacturer), std::string(253, 'm'));
    EXPECT_EQ(text_of(registry.slot(0).product), std::string(254, 'p') + " ");
    EXPECT_EQ(text_of(registry.slot(0).serial_number), std::string(254, 's'));
    EXPECT_EQ(text_of(registry.slot(0).szPadSettings),
              "000000000000000001HID: " + std::string(253 - 21, 'm')); // 255 in all
}

TEST_F(HidSearchTest, StringsThatCannotBeReadAreEmpty) {
    bus().plug(pad_of_type(plain_type));
    bus().hooks.get_string = [](HidInterface&, std::string_view, std::span<wchar_t> buffer) {
        buffer[0] = L'x'; // begun, then failed
        return std::optional(-1);
    };
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_EQ(text_of(registry.slot(0).manufacturer), "");
    EXPECT_EQ(text_of(registry.slot(0).product), " ");
    EXPECT_EQ(text_of(registry.slot(0).serial_number), "");
}

// A failing string must not repeat the text of the string read before it.
TEST_F(HidSearchTest, UnreadableSerialNumberIsNotTakenFromTheProduct) {
    bus().plug(pad_of_type(plain_type));
    bus().hooks.get_string = [](HidInterface&, std::string_view which, std::span<wchar_t>) -> std::optional<int> {
        if (which == "hid_get_serial_number_string") {
            return -1;
        }
        return std::nullopt;
    };
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_EQ(text_of(registry.slot(0).serial_number), "");
}

TEST_F(HidSearchTest, StringsWithoutTerminatorDoNotRunOn) {
    bus().plug(pad_of_type(plain_type));
    bus().hooks.get_string = [](HidInterface&, std::string_view, std::span<wchar_t> buffer) {
        std::fill(buffer.begin(), buffer.end(), L'x');
        return std::optional(0);
    };
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_EQ(text_of(registry.slot(0).serial_number), std::string(254, 'x'));
}

TEST_F(HidSearchTest, LettersOutsideTheLocaleBecomeFF) {
    const EnvironmentGuard locale("LC_ALL", "C");
    HidInterface& pad = bus().plug(pad_of_type(plain_type));
    pad.manufacturer = L"\u00c4CME\U0001F58A";
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_EQ(text_of(registry.slot(0).manufacturer), "\xff"
                                                      "CME\xff");
}

TEST_F(HidSearchTest, LongPathIsCutInTheRecordOnly) {
    const std::string long_path(300, '7');
    bus().plug(pad_of_type(plain_type, long_path));
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_THAT(first(1, calls()), ElementsAre(opened(long_path)));
    EXPECT_EQ(text_of(registry.slot(0).hid_path), std::string(255, '7'));
}

// Several pads and interfaces.

TEST_F(HidSearchTest, InterfacesOfOnePadShareASlot) {
    for (int i = 0; i < 3; ++i) {
        bus().plug(pad_of_type(plain_type, "1-1:1." + std::to_string(i), i));
    }
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_EQ(registry->count_of_devices, 1);
    EXPECT_EQ(registry.slot(0).count_of_interfaces, 3);
    EXPECT_EQ(registry.slot(1).in_use, 0);
    for (unsigned int k = 0; k < 2; ++k) {
        const vx_device& further = registry.further(0, k);
        EXPECT_EQ(further.in_use, 1);
        EXPECT_EQ(text_of(further.hid_path), "1-1:1." + std::to_string(k + 1));
        EXPECT_EQ(further.interface_number, k + 1);
        EXPECT_EQ(further.pad_type, plain_type);
        EXPECT_EQ(text_of(further.szPadSettings), text_of(registry.slot(0).szPadSettings));
        EXPECT_NE(further.device_lock, nullptr);
        EXPECT_NE(further.device_lock, registry.slot(0).device_lock);
    }
    EXPECT_EQ(registry.further(0, 2).in_use, 0);
    EXPECT_THAT(said(), Says("Interface: 2 of device: 000000000000000001HID: ACME Pad 100 ("));
    EXPECT_THAT(said(), Says("was found in device's list"));
}

TEST_F(HidSearchTest, SerialNumbersTellPadsOfOneModelApart) {
    bus().plug(pad_of_type(plain_type, "a", 0, L"SN1"));
    bus().plug(pad_of_type(plain_type, "b", 0, L"SN2"));
    EXPECT_EQ(search_hid_devices(registry.get()), 2);
    EXPECT_EQ(text_of(registry.slot(0).serial_number), "SN1");
    EXPECT_EQ(text_of(registry.slot(1).serial_number), "SN2");
}

TEST_F(HidSearchTest, PadsAreFoundInTheOrderOfTheTable) {
    bus().plug(pad_of_type(8, "last"));
    bus().plug(pad_of_type(9, "first"));
    EXPECT_EQ(search_hid_devices(registry.get()), 2);
    EXPECT_EQ(text_of(registry.slot(0).hid_path), "first");
    EXPECT_EQ(text_of(registry.slot(1).hid_path), "last");
}

TEST_F(HidSearchTest, InterfacesBeyondTheNinthAreSilentlyDropped) {
    for (int i = 0; i < 40; ++i) {
        bus().plug(pad_of_type(plain_type, "1-1:1." + std::to_string(i), i));
    }
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_EQ(registry.slot(0).count_of_interfaces, 9);
    EXPECT_EQ(text_of(registry.further(0, 7).hid_path), "1-1:1.8");
    EXPECT_THAT(bus().log("hid_open_path"), SizeIs(40));
    EXPECT_THAT(said(), Not(Says("rror")));
}

TEST_F(HidSearchTest, PadsBeyondTheSixteenthAreSilentlyDropped) {
    for (int i = 0; i < 18; ++i) {
        bus().plug(pad_of_type(plain_type, std::to_string(i), 0, L"SN" + std::to_wstring(i)));
    }
    EXPECT_EQ(search_hid_devices(registry.get()), 16);
    EXPECT_EQ(registry->count_of_devices, 16);
    EXPECT_EQ(text_of(registry.slot(15).hid_path), "15");
    EXPECT_THAT(bus().log("hid_open_path"), SizeIs(18));
    EXPECT_THAT(said(), Not(Says("rror")));
}

TEST_F(HidSearchTest, NewPadForAFullRegistryStillGivesTheCount) {
    for (int i = 0; i < 16; ++i) {
        bus().plug(pad_of_type(plain_type, std::to_string(i), 0, L"SN" + std::to_wstring(i)));
    }
    search_hid_devices(registry.get());
    bus().reset();
    bus().plug(pad_of_type(plain_type, "new", 0, L"NEW"));
    EXPECT_EQ(search_hid_devices(registry.get()), 16);
}

// What the registry already knows becomes a further interface, and that is not a new pad.
TEST_F(HidSearchTest, SearchWithoutANewPadGivesMinusOne) {
    bus().plug(pad_of_type(plain_type));
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_EQ(search_hid_devices(registry.get()), -1);
    EXPECT_EQ(registry->count_of_devices, 1);
    EXPECT_EQ(registry.slot(0).count_of_interfaces, 2);
}

// Where a found interface goes.

class RegistrationTest : public HidSearchTest {
  protected:
    RegistrationTest() : pad(bus().plug(pad_of_type(plain_type))) {}

    void occupy(std::size_t slot, const std::string& settings) {
        registry.slot(slot).in_use = 1;
        registry.slot(slot).pad_type = plain_type;
        registry.slot(slot).count_of_interfaces = 1;
        settings.copy(registry.slot(slot).szPadSettings, 255);
    }

    std::string settings() const {
        return "000000000000000001HID: ACME Pad 100 " + ids_text("(%x/%x/000D/SN0001)", pad.vendor_id, pad.product_id);
    }

    HidInterface& pad;
};

// Deliberate: the comparison runs over the new text's length only.
TEST_F(RegistrationTest, TextThatBeginsAnOlderTextIsTheSamePad) {
    occupy(0, settings() + " and more");
    registry->count_of_devices = 1;
    EXPECT_EQ(search_hid_devices(registry.get()), -1);
    EXPECT_EQ(registry.slot(0).count_of_interfaces, 2);
    EXPECT_EQ(registry.further(0, 0).in_use, 1);
    EXPECT_EQ(registry->count_of_devices, 1);
}

TEST_F(RegistrationTest, OlderTextThatBeginsTheNewOneIsAnotherPad) {
    occupy(0, settings().substr(0, 40));
    registry->count_of_devices = 1;
    EXPECT_EQ(search_hid_devices(registry.get()), 2);
    EXPECT_EQ(registry.slot(1).in_use, 1);
}

TEST_F(RegistrationTest, NewPadTakesTheFirstFreeSlot) {
    occupy(0, "first");
    occupy(2, "third");
    registry->count_of_devices = 2;
    EXPECT_EQ(search_hid_devices(registry.get()), 3);
    EXPECT_EQ(text_of(registry.slot(1).szPadSettings), settings());
    EXPECT_EQ(text_of(registry.slot(2).szPadSettings), "third");
}

// Deliberate: known pads are looked for among the first count_of_devices slots, free slots among all sixteen.
TEST_F(RegistrationTest, KnownPadBeyondTheCountIsNotRecognised) {
    occupy(0, "first");
    occupy(2, settings());
    registry->count_of_devices = 2;
    EXPECT_EQ(search_hid_devices(registry.get()), 3);
    EXPECT_EQ(text_of(registry.slot(1).szPadSettings), settings());
    EXPECT_EQ(registry.slot(2).count_of_interfaces, 1);
}

TEST_F(RegistrationTest, SlotThatIsNotInUseIsNoKnownPad) {
    occupy(0, settings());
    registry.slot(0).in_use = 0;
    registry.slot(0).count_of_interfaces = 0;
    registry->count_of_devices = 1;
    EXPECT_EQ(search_hid_devices(registry.get()), 2);
    EXPECT_EQ(registry.slot(0).in_use, 1);
    EXPECT_EQ(registry.slot(0).count_of_interfaces, 1);
}

TEST_F(RegistrationTest, MissingInterfaceRecordIsReportedAndSkipped) {
    occupy(0, settings());
    registry->count_of_devices = 1;
    registry.slot(0).interfaces[0] = nullptr;
    search_hid_devices(registry.get());
    EXPECT_THAT(said(), Says("Error, interfaces[0] is NULL"));
    EXPECT_EQ(registry.further(0, 1).in_use, 1);
    EXPECT_EQ(registry.slot(0).count_of_interfaces, 2);
    registry.slot(0).count_of_interfaces = 3; // the gap counted, so that clearing reaches the record
}

// What ends a search early.

Bytes refused_version() {
    Bytes reply(64);
    reply[0] = 0x12;
    return reply;
}

TEST_F(HidSearchTest, InterfaceThatCannotBeOpenedEndsTheWholeSearch) {
    bus().plug(pad_of_type(9, "first"));
    bus().plug(pad_of_type(10, "bad%s"));
    bus().plug(pad_of_type(11, "never"));
    bus().hooks.open_path = [](const std::string& p) { return std::optional(p == "bad%s" ? -1 : 0); };
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_THAT(bus().log("hid_open_path"), ElementsAre(opened("first"), opened("bad%s"))); // once, no retry
    EXPECT_THAT(last(1, bus().log()), ElementsAre("hid_free_enumeration()"));
    EXPECT_THAT(said(), Says("failed during opening HID device bad%s"));
    EXPECT_THAT(said(), Says("hid_open_path() failed and return NULL"));
}

TEST_F(HidSearchTest, FailureOfTheFirstInterfaceLeavesNothingRegistered) {
    bus().plug(pad_of_type(9, "first"));
    bus().plug(pad_of_type(10, "second"));
    bus().hooks.open_path = results({-1});
    EXPECT_EQ(search_hid_devices(registry.get()), -1);
    EXPECT_EQ(registry->count_of_devices, 0);
}

// Deliberate: where the version cannot be read, the search ends at once and does not close the handle.
TEST_F(HidSearchTest, UnreadableVersionEndsTheSearchWithTheHandleOpen) {
    bus().plug(pad_of_type(9, "first"));
    HidInterface& bad = bus().plug(pad_of_type(10, "bad"));
    bus().plug(pad_of_type(11, "never"));
    bad.feature_replies.assign(3, refused_version());
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_THAT(bus().log("hid_open_path"), ElementsAre(opened("first"), opened("bad")));
    EXPECT_THAT(bus().log("hid_close"), ElementsAre(closed("first")));
    EXPECT_EQ(bus().pauses(), (Pauses{50, 1000, 3000, 7000}));
    EXPECT_THAT(last(1, bus().log()), ElementsAre("hid_free_enumeration()"));
    EXPECT_THAT(said(), Says("Function core_read_version() fail with code: -1"));
}

// What the application registered may be gone by then, and in a forked child nobody would answer libusb.
TEST_F(HidSearchTest, HandleThatASearchLeftOpenIsNotTouchedAsTheProcessEnds) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static bool exiting = false;
            bus().plug(pad_of_type(plain_type)).feature_replies.assign(3, refused_version());
            search_hid_devices(registry.get());
            RegisterLoggingCallBackProcedure(reinterpret_cast<void*>(+[](void*, const char16_t*) {
                                                 if (exiting) {
                                                     std::fputs("called too late\n", stderr);
                                                 }
                                             }),
                                             nullptr);
            std::atexit([] { exiting = true; });
            std::fprintf(stderr, "open: %d\n", bus().open_handles());
            std::exit(3);
        },
        testing::ExitedWithCode(3), AllOf(HasSubstr("open: 1\n"), Not(HasSubstr("too late"))));
}

TEST_F(HidSearchTest, HandleThatASearchLeftOpenIsClosedByTheNextSearch) {
    bus().plug(pad_of_type(plain_type)).feature_replies.assign(3, refused_version());
    EXPECT_EQ(search_hid_devices(registry.get()), -1);
    EXPECT_EQ(bus().open_handles(), 1);
    forget();
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_EQ(first(2, bus().log()), (Lines{paused(50), closed()}));
    EXPECT_EQ(bus().open_handles(), 0);
}

TEST_F(HidSearchTest, HandleThatWasReopenedDuringTheVersionIsTheOneClosed) {
    bus().plug(pad_of_type(plain_type));
    bus().hooks.get_feature = results(tries_until_time_out, -1);
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    Lines lines = calls();
    std::erase_if(lines, [](const std::string& line) { return line.find("feature_report") != std::string::npos; });
    EXPECT_THAT(last(8, lines), ElementsAre(paused(50), closed(), opened(), blocking(), paused(1000), paused(50),
                                            closed(), "hid_free_enumeration()"));
    EXPECT_EQ(registry.slot(0).hid, nullptr);
}

TEST_F(HidSearchTest, PadPulledOutDuringTheVersionEndsTheSearch) {
    HidInterface& pad = bus().plug(pad_of_type(plain_type));
    bus().hooks.get_feature = [&](HidInterface&, std::span<unsigned char>) {
        bus().unplug(pad);
        return std::optional(-1);
    };
    EXPECT_EQ(search_hid_devices(registry.get()), -1);
    EXPECT_EQ(registry->count_of_devices, 0);
    EXPECT_EQ(bus().open_handles(), 0);
    EXPECT_EQ(bus().open_lists(), 0);
}

// Pads of unknown type.

struct UnknownIds {
    const char* name;
    std::uint32_t vendor_id;
    std::uint32_t product_id;
    const char* message;
};

class UnknownPadTest : public HidSearchTest, public testing::WithParamInterface<UnknownIds> {};

INSTANTIATE_TEST_SUITE_P(All, UnknownPadTest,
                         testing::Values(UnknownIds{"vendor", 0xeeee, usb_ids::shared_products[0].product_id,
                                                    "unable to fetch type of device by idVendor value"},
                                         UnknownIds{"product", usb_ids::shared_vendors[0], 0xeeee,
                                                    "unable to fetch type of device by idProduct value"},
                                         UnknownIds{"product_of_the_fifth_vendor", usb_ids::shared_vendors[0],
                                                    usb_ids::classic_products[0].product_id,
                                                    "unable to fetch type of device by idProduct value"},
                                         UnknownIds{"product_of_the_four_vendors", usb_ids::classic_vendor,
                                                    usb_ids::shared_products[0].product_id,
                                                    "unable to fetch type of device by idProduct value"}),
                         [](const auto& test) { return test.param.name; });

// Deliberate: once an unknown pad was met, the pads after it are opened, read and closed, but not registered.
TEST_P(UnknownPadTest, StopsRegistrationForTheRestOfTheSearch) {
    bus().plug(pad_of_type(9, "before"));
    bus().plug(pad_with(GetParam().vendor_id, GetParam().product_id, "unknown"));
    bus().plug(pad_of_type(8, "after"));
    hid_device_list[20] = {GetParam().vendor_id, GetParam().product_id};

    EXPECT_EQ(search_hid_devices(registry.get()), 1);
    EXPECT_EQ(registry->count_of_devices, 1);
    EXPECT_EQ(text_of(registry.slot(0).hid_path), "before");
    EXPECT_THAT(bus().log("hid_close"), ElementsAre(closed("before"), closed("unknown"), closed("after")));
    EXPECT_THAT(bus().log("hid_get_serial_number_string"), SizeIs(3));
    EXPECT_THAT(bus().log("hid_enumerate"), SizeIs(54));
    EXPECT_EQ(times_said(GetParam().message), 1);
}

TEST_P(UnknownPadTest, DoesNotTroubleTheNextSearch) {
    HidInterface& unknown = bus().plug(pad_with(GetParam().vendor_id, GetParam().product_id, "unknown"));
    bus().plug(pad_of_type(8, "after"));
    hid_device_list[20] = {GetParam().vendor_id, GetParam().product_id};
    EXPECT_EQ(search_hid_devices(registry.get()), -1);
    bus().unplug(unknown);
    EXPECT_EQ(search_hid_devices(registry.get()), 1);
}

} // namespace
} // namespace core_test
