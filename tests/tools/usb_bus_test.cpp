#include "usb_bus.hpp"

#include <array>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

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
