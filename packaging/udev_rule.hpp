// The rule that lets the user at the seat open a pad.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace udev_rule {

// Where a maker is given, for devices whose manufacturer string begins with that name.
inline std::string for_pad(std::uint32_t vendor, std::uint32_t product, std::string_view maker = {}) {
    std::array<char, 64> ids{};
    std::snprintf(ids.data(), ids.size(), R"(ATTR{idVendor}=="%04x", ATTR{idProduct}=="%04x", )", vendor, product);
    std::string rule = ids.data();
    if (!maker.empty()) {
        rule.append(R"(ATTR{manufacturer}==")").append(maker).append(R"(*", )");
    }
    return rule + R"(MODE="0660", TAG+="uaccess")";
}

// The same in a file of its own, where nothing else has sorted out what it is not for.
inline std::string standing_alone(std::uint32_t vendor, std::uint32_t product) {
    return R"(ACTION!="remove", SUBSYSTEM=="usb", ENV{DEVTYPE}=="usb_device", )" + for_pad(vendor, product);
}

} // namespace udev_rule
