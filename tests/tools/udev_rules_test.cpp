#include VXPADCOM_USB_IDS_FILE

#include <fstream>
#include <gmock/gmock.h>
#include <regex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

using testing::Contains;

namespace {

// Vendor, product and, where the ids alone do not make a pad, the maker.
using RulePad = std::tuple<std::uint32_t, std::uint32_t, std::string>;

std::vector<std::string> rule_lines() {
    std::vector<std::string> lines;
    std::ifstream file{UDEV_RULES};
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::set<RulePad> all_pads() {
    std::set<RulePad> pads;
    for (const std::uint32_t vendor : usb_ids::shared_vendors) {
        for (const auto& product : usb_ids::shared_products) {
            pads.emplace(vendor, product.product_id, "");
        }
        for (const std::uint32_t product : usb_ids::vcom_products) {
            pads.emplace(vendor, product, "");
        }
    }
    for (const auto& product : usb_ids::classic_products) {
        pads.emplace(usb_ids::classic_vendor, product.product_id, "");
    }
    for (const auto maker : usb_ids::vcom_named_makers) {
        pads.emplace(usb_ids::vcom_named_vendor, usb_ids::vcom_named_product, maker);
    }
    return pads;
}

} // namespace

TEST(UdevRules, GiveEveryPadToTheUserAtTheSeatAndToNobodyElse) {
    static const std::regex rule(R"re(ATTR\{idVendor\}=="([0-9a-f]{4})", ATTR\{idProduct\}=="([0-9a-f]{4})", )re"
                                 R"re((?:ATTR\{manufacturer\}=="(\w+)\*", )?MODE="0660", TAG\+="uaccess")re");
    std::set<RulePad> found;
    for (const std::string& line : rule_lines()) {
        std::smatch match;
        if (std::regex_match(line, match, rule)) {
            found.emplace(std::stoul(match[1], nullptr, 16), std::stoul(match[2], nullptr, 16), match[3]);
        } else {
            EXPECT_TRUE(line.starts_with("#") || line.find("GOTO=") != std::string::npos || line.starts_with("LABEL="))
                << line;
        }
    }
    EXPECT_EQ(found, all_pads());
}

TEST(UdevRules, JumpToALabelThatIsThere) {
    static const std::regex jump{R"re(.*GOTO="(\w+)")re"};
    const auto lines = rule_lines();
    int jumps = 0;
    for (const std::string& line : lines) {
        std::smatch match;
        if (!std::regex_match(line, match, jump)) {
            continue;
        }
        ++jumps;
        EXPECT_THAT(lines, Contains("LABEL=\"" + match[1].str() + "\""));
    }
    EXPECT_GT(jumps, 0);
}
