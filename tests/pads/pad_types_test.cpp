// One pad of every type.
#include "pad_test.hpp"

#include <algorithm>
#include <map>
#include <set>

#include VXPADCOM_USB_IDS_FILE

#include <sstream>

using namespace pads;

namespace {

const std::set<unsigned int> types{1, 8, 9, 10, 11, 12, 13, 15, 16, 17};
const std::set<unsigned int> types_with_rectangle{9, 11, 12, 15, 16, 17};

struct Pad {
    unsigned int device; // the library's number
    int number;          // the emulator's
};

// The serial numbers are the emulator's numbers: "SN0001" is its first pad.
std::map<unsigned int, Pad> pads_by_type() {
    std::map<unsigned int, Pad> result;
    for (unsigned int device = 1; device <= types.size(); ++device) {
        const auto serial = serial_number(device);
        const int number = std::stoi(std::string(serial.begin() + 2, serial.end()));
        std::istringstream list{emulator::request("list")};
        for (std::string line; std::getline(list, line);) {
            if (line.starts_with(std::to_string(number) + " ")) {
                result[static_cast<unsigned int>(std::stoul(line.substr(line.find(" type=") + 6)))] = {device, number};
            }
        }
    }
    return result;
}

std::size_t count_of(const std::vector<std::string>& log, const std::string& beginning) {
    return static_cast<std::size_t>(std::ranges::count_if(
        log, [&](const std::string& line) { return line.starts_with("out feature 0 " + beginning); }));
}

class PadTypes : public PluggedPads {
  protected:
    void SetUp() override {
        PluggedPads::SetUp();
        Initialize();
        unsigned int reply = 0;
        ASSERT_EQ(GetDeviceCount(&reply), static_cast<int>(types.size()));
        pads_ = pads_by_type();
        ASSERT_EQ(pads_.size(), types.size());
    }

    std::map<unsigned int, Pad> pads_;
};

TEST_F(PadTypes, AreToldByTheirIds) {
    for (const auto& found : pads_) {
        const auto type = found.first;
        const auto device = found.second.device;
        const bool classic = type == 1 || type == 8;
        EXPECT_EQ(number_of([&](auto* reply) { return GetVendorId(device, reply); }),
                  classic ? usb_ids::classic_vendor : usb_ids::shared_vendors[0]);
        const auto product_of = [&](const auto& products) {
            return std::ranges::find(products, type, &usb_ids::Product::pad_type)->product_id;
        };
        EXPECT_EQ(number_of([&](auto* reply) { return GetProductId(device, 0, reply); }),
                  classic ? product_of(usb_ids::classic_products) : product_of(usb_ids::shared_products));
    }
}

TEST_F(PadTypes, AreAskedForTheirVersionExceptTheFirstType) {
    for (const auto& [type, pad] : pads_) {
        EXPECT_EQ(count_of(take_log(pad.number), "11"), type == 1 ? 0U : 1U) << "type " << type;
    }
}

TEST_F(PadTypes, AreClearedWhenTheyBecomeCurrentIfTheyHaveARectangle) {
    for (const auto& [type, pad] : pads_) {
        // The first pad is current at the beginning and once more at the end of the walk through all pads.
        const auto times = pad.device == 1 ? 2U : 1U;
        EXPECT_EQ(count_of(take_log(pad.number), "65"), types_with_rectangle.contains(type) ? times : 0U)
            << "type " << type;
    }
}

TEST_F(PadTypes, AreClearedBeforeTheyAreClosedIfTheyHaveARectangle) {
    Bytes command{0xaa, 0x65, 1, 0, 2, 0, 3, 0, 4, 0, 5};
    command.resize(65);
    for (const auto& [type, pad] : pads_) {
        EXPECT_EQ(set_feature(pad.device, 0, command), 0);
    }
    for (const auto& [type, pad] : pads_) {
        EXPECT_EQ(state_of(pad.number, "rectangle"), "1,2,3,4,5") << "selecting a pad by its number clears nothing";
    }
    Deinitialize();
    for (const auto& [type, pad] : pads_) {
        EXPECT_EQ(state_of(pad.number, "rectangle"), types_with_rectangle.contains(type) ? "0,0,0,0,0" : "1,2,3,4,5")
            << "type " << type;
    }
}

TEST_F(PadTypes, HandOutInputReportsOfTheirSize) {
    for (const auto& [type, pad] : pads_) {
        const unsigned int size = type == 1 ? 20 : 64;
        // Selecting a pad opens it anew: what it had sent before is lost.
        EXPECT_EQ(read(ReadFile, pad.device, 0).reply, reply_untouched);
        to_pad("input", pad.number, "0 010203");
        Bytes sent{1, 2, 3};
        sent.resize(size);
        const auto answer = next_input(pad.device, 0, size + 1);
        EXPECT_EQ(answer.result, 0) << "type " << type;
        EXPECT_EQ(answer.reply, size + 1);
        EXPECT_EQ(answer.buffer, received(sent));
        EXPECT_EQ(failure(read(ReadFile, pad.device, 0, size + 2).result),
                  invalid_parameter("ReadFile",
                                    "Error of input parameters, const unsigned int dst_length > max packet size + 1"));
    }
}

} // namespace
