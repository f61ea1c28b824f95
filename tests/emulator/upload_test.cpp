// Runs under vxpad-emulator with the pads that CMakeLists.txt plugs in, and writes to them as an upload does.
#include "pads.hpp"

#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <hidapi.h>
#include <libusb.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using emulator::request;
using namespace pads;

// The pads of CMakeLists.txt.
constexpr int hid_pad = 1; // three interfaces
constexpr int vcom_pad = 2;
constexpr int oldest_pad = 3; // type 1
constexpr int pad_count = 3;

bool tells(const std::string& text, const std::string& what) {
    return (" " + text + " ").find(" " + what + " ") != std::string::npos;
}

Bytes frame(std::uint32_t number, unsigned char filling = 0) {
    Bytes bytes{'u', 'p', 'l', 'd'};
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<unsigned char>(number >> shift));
    }
    bytes.resize(64, filling);
    return bytes;
}

class Interface {
  public:
    Interface(int pad, int interface)
        : device_{hid_open_path(("1-" + std::to_string(pad) + ":1." + std::to_string(interface)).c_str())} {}

    void write(Bytes report) const {
        report.insert(report.begin(), 0);
        ASSERT_EQ(hid_send_feature_report(device_.get(), report.data(), report.size()),
                  static_cast<int>(report.size()));
    }

  private:
    pads::Hid device_;
};

class Uploads : public pads::FreshPads {
  protected:
    Uploads() : FreshPads{pad_count} {}
};

TEST_F(Uploads, CompleteOneOverAllInterfacesHasNoGap) {
    constexpr std::uint32_t count = 3000;
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < 3; ++i) {
        threads.emplace_back([i] {
            const Interface only{hid_pad, static_cast<int>(i)};
            for (std::uint32_t number = i; number < count; number += 3) {
                only.write(frame(number, static_cast<unsigned char>(number)));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const auto text = on_pad("uploads", hid_pad);
    EXPECT_TRUE(text.starts_with("received=3000 bytes=192000 sizes=64:3000 ")) << text;
    EXPECT_NE(text.find(" numbered=3000 gaps=0 duplicates=0 "), std::string::npos) << text;
    for (int i = 0; i < 3; ++i) {
        EXPECT_NE(text.find("\ninterface " + std::to_string(i) + " received=1000 out-of-order=0"), std::string::npos)
            << text;
    }
}

TEST_F(Uploads, GapsDuplicatesAndDisorderAreCounted) {
    const Interface first{hid_pad, 0};
    const Interface second{hid_pad, 1};
    const auto counts = [] {
        const auto text = on_pad("uploads", hid_pad);
        const auto start = text.find("numbered=");
        return text.substr(start, text.find('\n') - start) + text.substr(text.find('\n'));
    };
    first.write(frame(0));
    first.write(frame(3));
    EXPECT_EQ(counts(), "numbered=2 gaps=2 duplicates=0 out-of-order=0 too-high=0\n"
                        "interface 0 received=2 out-of-order=0");
    second.write(frame(1));
    EXPECT_EQ(counts(), "numbered=3 gaps=1 duplicates=0 out-of-order=1 too-high=0\n"
                        "interface 0 received=2 out-of-order=0\n"
                        "interface 1 received=1 out-of-order=0")
        << "each interface for itself is in order";
    first.write(frame(2));
    EXPECT_EQ(counts(), "numbered=4 gaps=0 duplicates=0 out-of-order=2 too-high=0\n"
                        "interface 0 received=3 out-of-order=1\n"
                        "interface 1 received=1 out-of-order=0");
    second.write(frame(3));
    second.write(frame(0xffffffff));
    EXPECT_EQ(counts(), "numbered=5 gaps=0 duplicates=1 out-of-order=2 too-high=1\n"
                        "interface 0 received=3 out-of-order=1\n"
                        "interface 1 received=3 out-of-order=0");
    on_pad("reset-uploads", hid_pad);
    EXPECT_EQ(on_pad("uploads", hid_pad), "received=0 bytes=0 sizes= checksum=00000000 numbered=0 gaps=0 duplicates=0 "
                                          "out-of-order=0 too-high=0");
    first.write(frame(0));
    EXPECT_TRUE(tells(on_pad("uploads", hid_pad), "duplicates=0"));
}

TEST_F(Uploads, ChecksumIsTheSumOfTheReportsChecksums) {
    const Interface first{hid_pad, 0};
    const Interface second{hid_pad, 1};
    const Bytes text{'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    first.write(text);
    EXPECT_TRUE(tells(on_pad("uploads", hid_pad), "checksum=cbf43926"));
    second.write(text);
    EXPECT_TRUE(tells(on_pad("uploads", hid_pad), "checksum=97e8724c"));
    EXPECT_TRUE(tells(on_pad("uploads", hid_pad), "sizes=9:2"));
    second.write(frame(7));
    const auto sum = on_pad("uploads", hid_pad);
    on_pad("reset-uploads", hid_pad);
    first.write(frame(7));
    first.write(text);
    first.write(text);
    const auto checksum = sum.substr(sum.find("checksum="), 17);
    EXPECT_TRUE(tells(on_pad("uploads", hid_pad), checksum)) << "in any order";
    first.write(frame(7, 1));
    EXPECT_FALSE(tells(on_pad("uploads", hid_pad), checksum));
}

TEST_F(Uploads, CommandsAreNoUpload) {
    const Interface only{hid_pad, 0};
    const std::vector<Bytes> commands{
        {0x01, 6, 2}, {0x11}, {0x27}, {0x65, 1, 0, 2, 0, 3, 0, 4, 0, 1, 2, 3, 4}, {0xf9}, {0xf8, 0xaa, 0x55}};
    for (auto command : commands) {
        command.resize(64);
        only.write(command);
    }
    EXPECT_TRUE(on_pad("uploads", hid_pad).starts_with("received=0 "));
    // What only begins like one is data.
    for (auto command : commands) {
        command.resize(63);
        command.push_back(1);
        only.write(command);
    }
    EXPECT_TRUE(on_pad("uploads", hid_pad).starts_with("received=5 ")) << "all but the piece of the stream";
    EXPECT_TRUE(tells(on_pad("state", hid_pad), "mode=6"));
    EXPECT_TRUE(tells(on_pad("state", hid_pad), "rectangle=1,2,3,4,67305985"));

    const Interface oldest{oldest_pad, 0};
    oldest.write(Bytes(64, 0x01));
    oldest.write(Bytes(64, 0xf8));
    EXPECT_TRUE(on_pad("uploads", oldest_pad).starts_with("received=2 "));
}

TEST_F(Uploads, CountsOutliveTheUnplugUntilTheNextPlug) {
    {
        const Interface only{hid_pad, 2};
        only.write(frame(0));
    }
    on_pad("unplug", hid_pad);
    EXPECT_TRUE(tells(on_pad("uploads", hid_pad), "numbered=1"));
    on_pad("plug", hid_pad);
    EXPECT_TRUE(tells(on_pad("uploads", hid_pad), "numbered=0"));
}

TEST_F(Uploads, VcomPadCountsLegacyMessages) {
    libusb_context* context = nullptr;
    ASSERT_EQ(libusb_init(&context), 0);
    libusb_device** list = nullptr;
    const auto count = libusb_get_device_list(context, &list);
    libusb_device_handle* handle = nullptr;
    for (ssize_t i = 0; i < count; ++i) {
        if (libusb_get_port_number(list[i]) == vcom_pad) {
            EXPECT_EQ(libusb_open(list[i], &handle), 0);
        }
    }
    libusb_free_device_list(list, 1);
    ASSERT_NE(handle, nullptr);
    for (const std::uint32_t number : {0U, 1U, 2U, 4U}) {
        Bytes message{0xaa, 0x55, 0x02, 0xbf};
        const auto data = frame(number);
        message.insert(message.end(), data.begin(), data.end());
        int sent = 0;
        EXPECT_EQ(libusb_bulk_transfer(handle, 0x02, message.data(), static_cast<int>(message.size()), &sent, 1000), 0);
    }
    libusb_close(handle);
    libusb_exit(context);
    EXPECT_NE(on_pad("uploads", vcom_pad).find("numbered=4 gaps=1 duplicates=0 "), std::string::npos);
}

} // namespace
