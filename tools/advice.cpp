#include "advice.hpp"

#include "findings.hpp"
#include "hex.hpp"
#include "messages.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <set>
#include <string_view>
#include <unistd.h>

namespace vxpadctl {

namespace {

// One line for all vendors with the same products, the last one without its end.
std::string list_ids(std::span<const SearchedId> searched) {
    std::map<std::uint32_t, std::set<std::uint32_t>> products_of;
    for (const SearchedId& entry : searched) {
        products_of[entry.id.vendor].insert(entry.id.product);
    }
    std::map<std::set<std::uint32_t>, std::string> vendors_of;
    for (const auto& [vendor, products] : products_of) {
        vendors_of[products].append(" ").append(hex_id(vendor));
    }
    std::string text;
    for (const auto& [products, vendors] : vendors_of) {
        text += "  vendor" + vendors + ", product";
        for (const std::uint32_t product : products) {
            text.append(" ").append(hex_id(product));
        }
        text += '\n';
    }
    return text.substr(0, text.rfind('\n'));
}

bool is_denied(const BusDevice& device) {
    return device.access == Access::denied;
}

bool is_hid(const BusDevice& device) {
    return !device.hid_interfaces.empty();
}
bool is_hid(const Pad& pad) {
    return pad.transport == "HID";
}

// A VCOM pad has other ids on the bus than it tells.
bool is_same(const BusDevice& device, const Pad& pad) {
    return device.serial == pad.serial && is_hid(device) == is_hid(pad) && (!is_hid(pad) || device.id == pad.id);
}

// Drops those that a search may have found under another serial number, which a VCOM pad tells itself.
void drop_found_otherwise(std::vector<const BusDevice*>& not_found, std::span<const BusDevice> on_bus,
                          std::span<const Pad> found) {
    for (const bool hid : {true, false}) {
        const auto unknown = std::ranges::count_if(found, [&](const Pad& pad) {
            return is_hid(pad) == hid &&
                   std::ranges::none_of(on_bus, [&](const BusDevice& device) { return is_same(device, pad); });
        });
        const auto is_of_these = [&](const BusDevice* device) { return is_hid(*device) == hid; };
        if (std::ranges::count_if(not_found, is_of_these) <= unknown) {
            std::erase_if(not_found, is_of_these);
        }
    }
}

std::string lines(std::span<const std::string> texts) {
    std::string text;
    for (const std::string& line : texts) {
        text += line + "\n";
    }
    return text;
}

// Devices that are no pads as far as anyone knows, with the way to say that they are. Each begins with a newline.
std::string name_likely_pads(std::span<const LikelyPad> likely) {
    constexpr std::size_t most = 4;
    std::string text;
    for (const LikelyPad& pad : likely.first(std::min(likely.size(), most))) {
        const std::string vendor = hex_id(pad.id.vendor);
        const std::string product = hex_id(pad.id.product);
        const std::string_view transport = id_lines::transport_names[static_cast<std::size_t>(pad.transport)];
        const std::string name = pad.name.empty() ? "Pad" : pad.name;
        text += "\n" + say(Message::likely_pad,
                           {to_text(pad.id), name, vendor, product, transport, name, vendor, product, transport, name});
    }
    return text;
}

} // namespace

std::string explain_missing_pads(std::size_t pads, std::span<const BusDevice> on_bus,
                                 std::span<const SearchedId> searched, std::span<const LikelyPad> likely,
                                 std::span<const std::string> reasons) {
    std::vector<BusDevice> denied;
    std::ranges::copy_if(on_bus, std::back_inserter(denied), is_denied);
    if (!denied.empty()) {
        std::string text = lines(reasons);
        for (const BusDevice& device : denied) {
            text += say(Message::denied, {to_text(device.id), device.node}) + "\n";
        }
        return text + explain_denied_access(denied, surroundings_of_this_process());
    }
    const std::string where_to_see = "\n" + say(Message::see_trace);
    if (on_bus.size() > pads) {
        const std::string missing = std::to_string(on_bus.size() - pads);
        return reasons.empty() ? say(Message::unusable_pads_of_any_kind, {missing}) + where_to_see
                               : say(Message::unusable_pads, {missing}) + "\n" + lines(reasons) +
                                     say(Message::see_doctor) + where_to_see;
    }
    if (!reasons.empty()) { // pads that are no longer there
        return lines(reasons) + say(Message::see_doctor);
    }
    return pads == 0 ? say(Message::no_pad, {list_ids(searched) + name_likely_pads(likely)}) : "";
}

std::vector<std::string> reasons_for_missing(std::span<const BusDevice> before, std::span<const BusDevice> now,
                                             std::span<const Pad> found) {
    const Surroundings around = surroundings_of_this_process();
    std::vector<std::string> reasons;
    for (const BusDevice& device : before) {
        if (std::ranges::find(now, device.node, &BusDevice::node) == now.end()) {
            reasons.push_back(advice_for(Finding::unplugged, {.device = device}, around));
        }
    }
    if (now.size() <= found.size()) {
        return reasons;
    }
    std::vector<const BusDevice*> not_found;
    for (const BusDevice& device : now) {
        if (is_denied(device)) {
            continue; // told by itself
        }
        const Look look = look_at(device);
        const auto twin = std::ranges::find(now.begin(), now.begin() + (&device - now.data()), identity_of(device),
                                            [](const BusDevice& earlier) { return identity_of(earlier); });
        if (const Finding obstacle = obstacle_of(look, ::getpid()); obstacle != Finding::well) {
            reasons.push_back(advice_for(obstacle, look, around));
        } else if (&*twin != &device) {
            reasons.push_back(advice_for(Finding::twin, look, around, &*twin));
        } else if (std::ranges::none_of(found, [&](const Pad& pad) { return is_same(device, pad); })) {
            not_found.push_back(&device);
        }
    }
    drop_found_otherwise(not_found, now, found);
    const bool is_only_one = now.size() == found.size() + 1;
    for (const BusDevice* device : not_found) {
        reasons.push_back(say(is_only_one ? Message::silent : Message::silent_or_not_asked, {name_of(*device)}));
    }
    return reasons;
}

} // namespace vxpadctl
