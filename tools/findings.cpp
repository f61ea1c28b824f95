#include "findings.hpp"

#include "messages.hpp"
#include "text.hpp"

#include "../packaging/udev_rule.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace vxpadctl {

namespace {

constexpr std::string_view claimed_by_program = "usbfs";
constexpr std::string_view usual_device_driver = "usb";

std::vector<Holder> others(const Look& look, pid_t self) {
    std::vector<Holder> found = look.holders.processes;
    std::erase_if(found, [&](const Holder& holder) { return holder.pid == self; });
    return found;
}

bool is_claimed(const Look& look) {
    return std::ranges::any_of(look.drivers,
                               [](const InterfaceDriver& driver) { return driver.driver == claimed_by_program; });
}

bool has_other_device_driver(const Look& look) {
    return !look.device_driver.empty() && look.device_driver != usual_device_driver;
}

std::string denied(const Look& look, const Surroundings& around) {
    if (!look.rights.is_there) {
        return say(Message::no_node, {to_text(look.device.id), look.device.node});
    }
    std::string text = say(Message::denied, {to_text(look.device.id), look.device.node});
    if (around.rules && !look.device.from_file && look.tag == SeatTag::missing) {
        text += "\n" + say(Message::tag_missing, {look.device.node});
    }
    return text + "\n" + explain_denied_access({&look.device, 1}, around);
}

std::string busy(const Look& look) {
    const std::string name = name_of(look.device);
    if (has_other_device_driver(look)) {
        return say(Message::busy_with_driver, {name, look.device_driver});
    }
    std::string list;
    for (const Holder& holder : others(look, ::getpid())) {
        list +=
            (list.empty() ? "" : ", ") + for_terminal(holder.name) + " (process " + std::to_string(holder.pid) + ")";
    }
    return list.empty() ? say(Message::busy_with_nobody_seen, {name}) : say(Message::busy, {name, list});
}

} // namespace

std::string_view name_of(Finding finding) {
    static constexpr std::array<std::string_view, 6> names{"well", "denied", "busy", "silent", "unplugged", "twin"};
    return names[static_cast<std::size_t>(finding)];
}

Look look_at(const BusDevice& device, const std::filesystem::path& root) {
    return {device,
            rights_of(device.node),
            drivers_of(device, root),
            device_driver_of(device, root),
            holders_of(device, root),
            seat_tag_of(device, root)};
}

Surroundings surroundings_of_this_process() {
    return {installed_rules(), std::getenv("SSH_CONNECTION") != nullptr};
}

Finding obstacle_of(const Look& look, pid_t self) {
    if (has_other_device_driver(look)) {
        return Finding::busy;
    }
    const int error = look.rights.open_error;
    if (error == EACCES || error == EPERM || !look.rights.is_there) {
        return Finding::denied;
    }
    if (is_claimed(look) && (!others(look, self).empty() || look.holders.processes.empty())) {
        return Finding::busy;
    }
    return Finding::well;
}

Identity identity_of(const BusDevice& device, const std::optional<PadAnswer>& answer) {
    return {answer ? answer->id : device.id, device.maker, device.product, answer ? answer->serial : device.serial};
}

std::string advice_for(Finding finding, const Look& look, const Surroundings& around, const BusDevice* other) {
    const std::string name = name_of(look.device);
    switch (finding) {
    case Finding::well:
        return {};
    case Finding::denied:
        return denied(look, around);
    case Finding::busy:
        return busy(look);
    case Finding::silent:
        return say(Message::silent, {name});
    case Finding::unplugged:
        return say(Message::unplugged, {name});
    case Finding::twin:
        return say(Message::twin, {other == nullptr ? "another pad" : name_of(*other), name});
    }
    return {};
}

std::string explain_denied_access(std::span<const BusDevice> denied, const Surroundings& around) {
    std::vector<UsbId> without_rule;
    for (const BusDevice& device : denied) {
        if (device.from_file && std::ranges::find(without_rule, device.id) == without_rule.end()) {
            without_rule.push_back(device.id);
        }
    }
    std::string text;
    if (!std::ranges::all_of(denied, &BusDevice::from_file)) {
        text = around.rules ? say(Message::rules_serve_seat, {rules_file})
                            : say(Message::rules_missing, {rules_file, rules_to_install()});
    }
    for (const UsbId& id : without_rule) {
        text += (text.empty() ? "" : "\n") + explain_rule(id);
    }
    return around.over_ssh ? text + "\n" + say(Message::over_ssh) : text;
}

std::string explain_rule(UsbId id) {
    return say(Message::rule_for_added, {to_text(id), hex_id(id.vendor) + "-" + hex_id(id.product),
                                         udev_rule::standing_alone(id.vendor, id.product)});
}

} // namespace vxpadctl
