// What is wrong with a pad, judged by what was found out about it.
#pragma once

#include "node_rights.hpp"
#include "pad_holders.hpp"
#include "pad_question.hpp"
#include "udev_state.hpp"
#include "usb_bus.hpp"

#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vxpadctl {

enum class Finding { well, denied, busy, silent, unplugged, twin };

// "denied"
std::string_view name_of(Finding finding);

// What one look at a pad tells, without a word to the pad itself.
struct Look {
    BusDevice device;
    NodeRights rights = {};
    std::vector<InterfaceDriver> drivers = {};
    std::string device_driver = {};
    Holders holders = {};
    SeatTag tag = SeatTag::unknown;
};
Look look_at(const BusDevice& device, const std::filesystem::path& root = "/");

// Where and as whom this program runs, as far as that decides who gets a pad.
struct Surroundings {
    std::optional<std::filesystem::path> rules = {}; // where they are installed
    bool over_ssh = false;
};
Surroundings surroundings_of_this_process();

// What keeps this process (its id) from asking the pad: denied, busy, or nothing, which is well.
Finding obstacle_of(const Look& look, pid_t self);

// By what the library tells pads apart. What a pad has answered counts before what the kernel says of it.
struct Identity {
    UsbId id;
    std::string maker;
    std::string product;
    std::string serial;
    bool operator==(const Identity&) const = default;
};
Identity identity_of(const BusDevice& device, const std::optional<PadAnswer>& answer = std::nullopt);

// One sentence or more that says what to do. Twin needs the other pad.
std::string advice_for(Finding finding, const Look& look, const Surroundings& around, const BusDevice* other = nullptr);

// Whom the rules serve, with the commands to type. Pads whose ids a file adds need rules of their own.
std::string explain_denied_access(std::span<const BusDevice> denied, const Surroundings& around);

// The udev rule for pads with ids that were added, and what to do with it. No newline at the end.
std::string explain_rule(UsbId id);

} // namespace vxpadctl
