#include "usb_bus.hpp"

#include <array>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace vxpadctl;
namespace fs = std::filesystem;

namespace {

constexpr uid_t nobody = 65534;

// A root directory with the files of some USB devices.
class UsbBus : public testing::Test {
  protected:
    UsbBus() {
        std::string name = testing::TempDir() + "vxpad-XXXXXX";
        root_ = ::mkdtemp(name.data());
        fs::permissions(root_, static_cast<fs::perms>(0755));
    }
    ~UsbBus() override { fs::remove_all(root_); }

    fs::path node(unsigned int address) const { return root_ / "dev/bus/usb/001" / ("00" + std::to_string(address)); }

    void plug(const std::string& port, UsbId id, unsigned int address, std::size_t descriptor_size = 18) {
        const fs::path directory = root_ / "sys/bus/usb/devices" / port;
        fs::create_directories(directory);
        std::array<char, 18> descriptor{18, 1};
        descriptor[8] = static_cast<char>(id.vendor);
        descriptor[9] = static_cast<char>(id.vendor >> 8);
        descriptor[10] = static_cast<char>(id.product);
        descriptor[11] = static_cast<char>(id.product >> 8);
        std::ofstream(directory / "descriptors")
            .write(descriptor.data(), static_cast<std::streamsize>(descriptor_size));
        std::ofstream(directory / "busnum") << "1\n";
        std::ofstream(directory / "devnum") << address << '\n';
        fs::create_directories(node(address).parent_path());
        std::ofstream(node(address)).close();
    }

    fs::path root_;
    std::vector<SearchedId> ids_{{{0xf1a0, 0x1001}}, {{0xf1a0, 0x1002}}, {{0xf1a5, 0x7c03}, "Acme"}};
};

TEST_F(UsbBus, FindsTheWantedDevicesOnly) {
    plug("1-1", {0xf1a0, 0x1002}, 5);
    plug("1-2", {0xf1a0, 0x9999}, 6);
    plug("1-3", {0xf1a0, 0x1001}, 4);
    const auto found = find_on_bus(ids_, root_);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].node, node(4));
    EXPECT_EQ(found[0].id, ids_[0].id);
    EXPECT_EQ(found[1].node, node(5));
    EXPECT_EQ(found[1].id, ids_[1].id);
    EXPECT_EQ(found[1].access, Access::open);
}

TEST_F(UsbBus, AChipVendorsDeviceIsAPadOnlyByItsMakersName) {
    const std::pair<const char*, const char*> makers[] = {
        {"1-1", "Acme Ltd\n"}, {"1-2", "acme\n"}, {"1-3", "The Acme\n"}, {"1-4", ""}};
    unsigned int address = 1;
    for (const auto& [port, maker] : makers) {
        plug(port, {0xf1a5, 0x7c03}, address++);
        std::ofstream(root_ / "sys/bus/usb/devices" / port / "manufacturer") << maker;
    }
    plug("1-5", {0xf1a5, 0x7c03}, address); // without a manufacturer string
    const auto found = find_on_bus(ids_, root_);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].node, node(1));
}

TEST_F(UsbBus, SkipsWhatCannotBeRead) {
    plug("1-1", {0xf1a0, 0x1001}, 5, 17);
    fs::create_directories(root_ / "sys/bus/usb/devices/1-1:1.0");
    EXPECT_TRUE(find_on_bus(ids_, root_).empty());
}

TEST_F(UsbBus, IsEmptyWithoutUsb) {
    EXPECT_TRUE(find_on_bus(ids_, root_ / "nowhere").empty());
    EXPECT_TRUE(find_likely_pads(ids_, root_ / "nowhere").empty());
}

// Devices that no id names.
class LikelyPads : public UsbBus {
  protected:
    using Descriptor = std::vector<unsigned char>;

    static Descriptor interface(unsigned char device_class, unsigned char protocol = 0) {
        return {9, 4, 0, 0, 2, device_class, 0, protocol, 0};
    }
    static Descriptor endpoint(unsigned char address, unsigned char type) { return {7, 5, address, type, 64, 0, 1}; }
    static Descriptor hid(unsigned char protocol = 0) { return joined({interface(3, protocol), endpoint(0x81, 3)}); }
    static Descriptor bulk(unsigned char device_class = 0xff) {
        return joined({interface(device_class), endpoint(0x81, 2), endpoint(0x01, 2)});
    }
    static Descriptor joined(const std::vector<Descriptor>& parts) {
        Descriptor all;
        for (const Descriptor& part : parts) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }

    fs::path device(const std::string& port) const { return root_ / "sys/bus/usb/devices" / port; }

    void plug_with(const std::string& port, UsbId id, const Descriptor& interfaces) {
        plug(port, id, 5);
        std::ofstream file(device(port) / "descriptors", std::ios::app | std::ios::binary);
        const Descriptor configuration{9, 2, 0, 0, 1, 1, 0, 0x80, 50};
        file.write(reinterpret_cast<const char*>(configuration.data()), 9);
        file.write(reinterpret_cast<const char*>(interfaces.data()), static_cast<std::streamsize>(interfaces.size()));
    }

    // As the kernel has it once a driver has taken an interface.
    void bind(const std::string& port, unsigned int interface, const std::string& driver,
              const Descriptor& report_descriptor = {}) {
        const fs::path directory = device(port) / (port + ":1." + std::to_string(interface));
        fs::create_directories(directory / "0003:1234:5678.0001");
        fs::create_symlink("../../../../bus/usb/drivers/" + driver, directory / "driver");
        std::ofstream(directory / "0003:1234:5678.0001/report_descriptor", std::ios::binary)
            .write(reinterpret_cast<const char*>(report_descriptor.data()),
                   static_cast<std::streamsize>(report_descriptor.size()));
    }

    std::vector<UsbId> found() const {
        std::vector<UsbId> ids;
        for (const LikelyPad& pad : find_likely_pads(ids_, root_)) {
            ids.push_back(pad.id);
        }
        return ids;
    }
};

TEST_F(LikelyPads, HaveAnInterfaceAsPadsHaveOne) {
    plug_with("1-1", {0x1111, 1}, hid());
    plug_with("1-2", {0x1111, 2}, bulk());
    plug_with("1-3", {0x1111, 3}, joined({bulk(8), interface(9), interface(0xff), endpoint(0x82, 3)}));
    plug_with("1-4", {0x1111, 4}, joined({interface(0xff), endpoint(0x81, 2), interface(0xff), endpoint(0x01, 2)}));
    plug_with("1-5", {0x1111, 5}, joined({bulk(), hid()}));
    const auto pads = find_likely_pads(ids_, root_);
    ASSERT_EQ(pads.size(), 3U);
    EXPECT_EQ(pads[0].id, (UsbId{0x1111, 1}));
    EXPECT_EQ(pads[0].transport, id_lines::Transport::hid);
    EXPECT_EQ(pads[1].id, (UsbId{0x1111, 2}));
    EXPECT_EQ(pads[1].transport, id_lines::Transport::vcom);
    EXPECT_EQ(pads[2].id, (UsbId{0x1111, 5}));
    EXPECT_EQ(pads[2].transport, id_lines::Transport::hid);
}

TEST_F(LikelyPads, AreNoneThatAreLookedFor) {
    plug_with("1-1", ids_[0].id, hid());
    EXPECT_TRUE(found().empty());
}

TEST_F(LikelyPads, AreNotAnotherDriversAndNotOfADesk) {
    const Descriptor pen{0x05, 0x0d, 0x09, 0x02, 0xa1, 0x01};
    const Descriptor mouse{0x05, 0x01, 0x09, 0x02, 0xa1, 0x01};
    const Descriptor volume{0x05, 0x0c, 0x09, 0x01, 0xa1, 0x01};
    plug_with("1-1", {0x1111, 1}, hid());
    bind("1-1", 0, "usbhid", pen);
    plug_with("1-2", {0x1111, 2}, hid());
    bind("1-2", 0, "usbhid", mouse);
    plug_with("1-3", {0x1111, 3}, joined({hid(), hid()}));
    bind("1-3", 1, "usbhid", volume);
    plug_with("1-4", {0x1111, 4}, joined({bulk(), hid()}));
    bind("1-4", 0, "uvcvideo");
    plug_with("1-5", {0x1111, 5}, hid(1)); // a boot keyboard
    plug_with("1-6", {0x1111, 6}, joined({hid(), hid(2)}));
    plug_with("1-7", {0x1111, 7}, bulk());
    bind("1-7", 0, "usbfs"); // in use by some program
    EXPECT_EQ(found(), (std::vector<UsbId>{{0x1111, 1}}));
}

TEST_F(LikelyPads, HaveNamesThatDoNoHarmInAShell) {
    plug_with("1-1", {0x1111, 1}, hid());
    std::ofstream(device("1-1") / "manufacturer") << "Acme's $(rm -rf /); \x1b[31m`x`\n";
    std::ofstream(device("1-1") / "product") << "Pad-100+ v1.0\\|" << std::string(300, 'x') << '\n';
    const std::string name = find_likely_pads(ids_, root_).at(0).name;
    EXPECT_EQ(name.substr(0, 40), "Acmes rm -rf  31mx Pad-100+ v1.0" + std::string(8, 'x'));
    EXPECT_EQ(name.size(), 63U);
    plug_with("1-2", {0x1111, 2}, hid());
    std::ofstream(device("1-2") / "product") << "Pad  \n";
    EXPECT_EQ(find_likely_pads(ids_, root_).at(1).name, "Pad");
}

TEST_F(LikelyPads, DescriptorsThatLieEndEarly) {
    plug_with("1-1", {0x1111, 1}, {0});
    plug_with("1-2", {0x1111, 2}, {1, 4});
    plug_with("1-3", {0x1111, 3}, {9, 4, 0, 0, 2, 3});
    plug_with("1-4", {0x1111, 4}, {2, 4, 2, 5, 3});
    plug_with("1-5", {0x1111, 5}, joined({interface(0xff), {3, 5, 0x81}, {3, 5, 1}}));
    plug_with("1-6", {0x1111, 6}, {});
    EXPECT_TRUE(found().empty());
}

TEST_F(UsbBus, TellsTextsAndInterfaces) {
    plug("1-1.3", {0xf1a0, 0x1001}, 5);
    const fs::path directory = root_ / "sys/bus/usb/devices/1-1.3";
    // A configuration with a vendor's interface 0, an endpoint, HID interface 2 with another setting; then a second
    // one.
    const unsigned char configurations[] = {9, 2,  40, 0, 2, 3, 0, 0x80, 50, 9, 4, 0, 0, 1, 0xff, 0, 0, 0, 7, 5, 1,
                                            2, 64, 0,  0, 9, 4, 2, 0,    0,  3, 0, 0, 0, 9, 4,    2, 1, 0, 3, 0, 0,
                                            0, 9,  2,  9, 0, 0, 4, 0,    0,  0, 9, 4, 5, 0, 0,    3, 0, 0, 0};
    std::ofstream(directory / "descriptors", std::ios::app)
        .write(reinterpret_cast<const char*>(configurations), sizeof configurations);
    std::ofstream(directory / "manufacturer") << "Acme Ltd\n";
    std::ofstream(directory / "product") << "Pad 100\n";
    std::ofstream(directory / "serial") << "A1\nB2\n";
    const BusDevice found = find_on_bus(ids_, root_).at(0);
    EXPECT_EQ(found.port, "1-1.3");
    EXPECT_EQ(found.maker, "Acme Ltd");
    EXPECT_EQ(found.product, "Pad 100");
    EXPECT_EQ(found.serial, "A1");
    EXPECT_EQ(found.configuration, 3U);
    EXPECT_EQ(found.interfaces, (std::vector<unsigned int>{0, 2}));
    EXPECT_EQ(found.hid_interfaces, (std::vector<unsigned int>{2}));
}

TEST_F(UsbBus, DescriptorsThatMakeNoSenseEndTheList) {
    plug("1-1", {0xf1a0, 0x1001}, 5);
    for (const std::string& tail :
         {std::string("\x00\x02", 2), std::string("\x09\x04"), std::string("\x02\x04\x01"), std::string("\xff\x04")}) {
        std::ofstream(root_ / "sys/bus/usb/devices/1-1/descriptors", std::ios::app) << tail;
        EXPECT_TRUE(find_on_bus(ids_, root_).at(0).interfaces.empty());
    }
}

TEST_F(UsbBus, TheSearchOrderIsThatOfTheIdsAndTheNewestFirst) {
    plug("1-1", {0xf1a0, 0x1002}, 4);
    plug("1-2", {0xf1a0, 0x1001}, 5);
    plug("1-3", {0xf1a0, 0x1002}, 6);
    std::vector<std::string> ports;
    for (const BusDevice& device : in_search_order(list_on_bus(ids_, root_), ids_)) {
        ports.push_back(device.port);
    }
    EXPECT_EQ(ports, (std::vector<std::string>{"1-2", "1-3", "1-1"}));
}

TEST_F(UsbBus, AMissingDeviceFileIsNotDenied) {
    plug("1-1", {0xf1a0, 0x1001}, 5);
    fs::remove(node(5));
    EXPECT_EQ(find_on_bus(ids_, root_).at(0).access, Access::open);
}

TEST_F(UsbBus, TellsDeniedAccess) {
    plug("1-1", {0xf1a0, 0x1001}, 5);
    fs::permissions(node(5), fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    // Nothing is denied to root.
    const pid_t child = ::fork();
    if (child == 0) {
        if (::geteuid() == 0 && ::setresuid(nobody, nobody, nobody) != 0) {
            ::_exit(2);
        }
        const auto found = find_on_bus(ids_, root_);
        ::_exit(found.size() == 1 && found[0].access == Access::denied ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

} // namespace
