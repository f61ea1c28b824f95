#include "pads/usb_devices.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <string>

namespace {

TEST(UsbDevices, AreKnownByPortAndNumber) {
    char name[] = "/tmp/vxpad-devices-XXXXXX";
    const std::filesystem::path directory = ::mkdtemp(name);
    for (const char* device : {"1-1", "usb1", "1-1:1.0"}) {
        std::filesystem::create_directory(directory / device);
    }
    std::ofstream{directory / "1-1" / "devnum"} << "7\n";
    std::ofstream{directory / "usb1" / "devnum"} << "1\n";
    EXPECT_EQ(bridge::usb_devices(directory), (std::set<std::string>{"1-1 7", "usb1 1"}));
    std::filesystem::remove_all(directory);
    EXPECT_TRUE(bridge::usb_devices(directory).empty());
}

} // namespace
