#include "examination.hpp"

#include "messages.hpp"
#include "text.hpp"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstring>

namespace vxpadctl {

namespace {

constexpr std::size_t label_width = 15;

void add_line(std::string& text, std::string label, const std::string& value) {
    label += ":";
    label.resize(std::max(label.size() + 1, label_width), ' ');
    text += "  " + label + value + "\n";
}

// Each line but the first one below its label.
std::string indented(const std::string& text) {
    std::string result;
    for (const char c : text) {
        result += c;
        if (c == '\n') {
            result.append(label_width + 2, ' ');
        }
    }
    return result;
}

std::string shown(const std::string& text) {
    return text.empty() ? "-" : for_terminal(text);
}

std::string rights_text(const Look& look, const User& user) {
    std::string text = describe_rights(look.rights);
    if (look.rights.open_error != 0) {
        return text + "; this user may not open it (" + std::strerror(look.rights.open_error) + ")";
    }
    const auto by = granted_by(look.rights, user);
    return text + "; this user may open it" + (by ? " (" + *by + ")" : "");
}

std::string rule_text(const Look& look, const Surroundings& around) {
    static constexpr const char* tags[] = {"in effect (tag uaccess)", "not in effect (no tag uaccess)",
                                           "udev says nothing of this pad"};
    const std::string rule = look.device.from_file ? "its own, for its ids stand in a file"
                             : around.rules        ? around.rules->string()
                                                   : std::string(rules_file) + " is not installed";
    return rule + "; " + tags[static_cast<std::size_t>(look.tag)];
}

std::string drivers_text(const Look& look) {
    std::string text;
    for (const InterfaceDriver& driver : look.drivers) {
        text += (text.empty() ? "" : ", ") + std::to_string(driver.interface) + " " +
                (driver.driver.empty()      ? "none"
                 : driver.driver == "usbfs" ? "usbfs (a program)"
                                            : driver.driver);
    }
    return text.empty() ? "-" : text;
}

std::string holders_text(const Holders& holders) {
    std::string text;
    for (const Holder& holder : holders.processes) {
        text +=
            (text.empty() ? "" : ", ") + for_terminal(holder.name) + " (process " + std::to_string(holder.pid) + ")";
    }
    if (text.empty()) {
        text = "nobody";
    }
    return holders.all_seen ? text : text + "; other users' programs cannot be seen";
}

std::string answer_text(const Examined& pad) {
    if (pad.answer) {
        return "after " + std::to_string(pad.answer->milliseconds) + " ms";
    }
    return pad.finding == Finding::denied || pad.finding == Finding::busy ? "not asked" : "none";
}

std::string pad_text(const Examined& pad, const Examination& examination) {
    const BusDevice& device = pad.look.device;
    std::string text =
        "Pad " + std::to_string(pad.number) + " on the bus: " + to_text(device.id) + " in port " + device.port + "\n";
    add_line(text, "Device file", device.node);
    add_line(text, "Maker", shown(device.maker));
    add_line(text, "Product", shown(device.product));
    add_line(text, "Serial", shown(pad.answer ? pad.answer->serial : device.serial));
    add_line(text, "Rights", rights_text(pad.look, examination.user));
    add_line(text, "Rule", rule_text(pad.look, examination.around));
    add_line(text, "Drivers", drivers_text(pad.look));
    add_line(text, "In use by", holders_text(pad.look.holders));
    add_line(text, "Answer", answer_text(pad));
    if (pad.answer) {
        add_line(text, "Firmware", shown(pad.answer->version));
    }
    std::string messages;
    for (const std::string& message : pad.kernel_messages) {
        messages += (messages.empty() ? "" : "\n") + for_terminal(message);
    }
    if (!examination.kernel_log_trouble.empty()) {
        messages = say(Message::no_kernel_messages, {examination.kernel_log_trouble});
    }
    add_line(text, "Kernel", indented(messages.empty() ? "says nothing about it" : messages));
    add_line(text, "Finding", std::string(name_of(pad.finding)));
    return pad.advice.empty() ? text : text + pad.advice + "\n";
}

std::string json_field(const char* name, const std::string& json) {
    return ", \"" + std::string(name) + "\": " + json;
}

template <typename Items, typename ToJson> std::string json_list(const Items& items, ToJson to_json) {
    std::string text;
    for (const auto& item : items) {
        text += (text.empty() ? "[" : ", ") + to_json(item);
    }
    return text.empty() ? "[]" : text + "]";
}

std::string json_bool(bool value) {
    return value ? "true" : "false";
}

std::string pad_json(const Examined& pad) {
    const BusDevice& device = pad.look.device;
    const NodeRights& rights = pad.look.rights;
    static constexpr const char* tags[] = {"true", "false", "null"};
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned int>(rights.mode & 07777));
    return "{\"number\": " + std::to_string(pad.number) + json_field("node", json_string(device.node)) +
           json_field("port", json_string(device.port)) +
           json_field("vendor_id", json_string(hex_id(device.id.vendor))) +
           json_field("product_id", json_string(hex_id(device.id.product))) +
           json_field("maker", json_string(device.maker)) + json_field("product", json_string(device.product)) +
           json_field("serial", json_string(pad.answer ? pad.answer->serial : device.serial)) +
           json_field("owner", json_string(user_name(rights.owner))) +
           json_field("group", json_string(group_name(rights.group))) + json_field("mode", json_string(mode)) +
           json_field("acl", json_list(rights.acl.entries,
                                       [](const AclEntry& entry) {
                                           const bool is_user = entry.kind == AclEntry::Kind::user;
                                           return "{\"" + std::string(is_user ? "user" : "group") + "\": " +
                                                  json_string(is_user ? user_name(entry.id) : group_name(entry.id)) +
                                                  ", \"rights\": " + std::to_string(entry.rights) + "}";
                                       })) +
           json_field("may_open", json_bool(rights.open_error == 0)) +
           json_field("uaccess", tags[static_cast<std::size_t>(pad.look.tag)]) +
           json_field("drivers", json_list(pad.look.drivers,
                                           [](const InterfaceDriver& driver) {
                                               return "{\"interface\": " + std::to_string(driver.interface) +
                                                      ", \"driver\": " + json_string(driver.driver) + "}";
                                           })) +
           json_field("holders", json_list(pad.look.holders.processes,
                                           [](const Holder& holder) {
                                               return "{\"process\": " + std::to_string(holder.pid) +
                                                      ", \"name\": " + json_string(holder.name) + "}";
                                           })) +
           json_field("answer_ms", pad.answer ? std::to_string(pad.answer->milliseconds) : "null") +
           json_field("firmware", pad.answer ? json_string(pad.answer->version) : "null") +
           json_field("kernel", json_list(pad.kernel_messages, json_string)) +
           json_field("finding", json_string(name_of(pad.finding))) + json_field("advice", json_string(pad.advice)) +
           "}";
}

bool is_word_character(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-';
}

void replace_words(std::string& text, const std::string& secret, const std::string& mask) {
    for (std::size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at)) {
        const std::size_t behind = at + secret.size();
        const bool begins = at == 0 || !is_word_character(text[at - 1]) || !is_word_character(secret.front());
        const bool ends =
            behind == text.size() || !is_word_character(text[behind]) || !is_word_character(secret.back());
        if (begins && ends) {
            text.replace(at, secret.size(), mask);
            at += mask.size();
        } else {
            ++at;
        }
    }
}

} // namespace

bool Examination::is_well() const {
    return !pads.empty() && std::ranges::all_of(pads, [](const Examined& pad) { return pad.finding == Finding::well; });
}

void find_twins(std::span<Examined> pads, const Surroundings& around) {
    const auto takes_part = [](const Examined& pad) {
        return pad.finding == Finding::well || pad.finding == Finding::twin;
    };
    for (Examined& pad : pads) {
        for (const Examined& other : pads) {
            if (&pad != &other && takes_part(pad) && takes_part(other) &&
                identity_of(pad.look.device, pad.answer) == identity_of(other.look.device, other.answer)) {
                pad.finding = Finding::twin;
                pad.advice = advice_for(Finding::twin, pad.look, around, &other.look.device);
                break;
            }
        }
    }
}

std::string examination_text(const Examination& examination) {
    std::string versions;
    for (const auto& [name, version] : examination.versions) {
        versions += (versions.empty() ? "" : ", ") + name + " " + version;
    }
    std::string text = versions + "\n";
    for (const std::string& complaint : examination.left_out) {
        text += say(Message::left_out, {complaint}) + "\n";
    }
    std::size_t not_well = 0;
    for (const Examined& pad : examination.pads) {
        text += "\n" + pad_text(pad, examination);
        not_well += pad.finding == Finding::well ? 0 : 1;
    }
    text += "\n";
    if (examination.pads.empty()) {
        return text + say(Message::no_pad_for_doctor) + "\n";
    }
    return text +
           (not_well == 0
                ? say(Message::well)
                : say(Message::not_well, {std::to_string(not_well), counted(examination.pads.size(), "pad")})) +
           "\n";
}

std::string examination_json(const Examination& examination) {
    std::string versions;
    for (const auto& [name, version] : examination.versions) {
        versions += (versions.empty() ? "" : ", ") + json_string(name) + ": " + json_string(version);
    }
    const auto& rules = examination.around.rules;
    return "{\"well\": " + json_bool(examination.is_well()) + json_field("versions", "{" + versions + "}") +
           json_field("rules", rules ? json_string(rules->string()) : "null") +
           json_field("kernel_log_trouble", json_string(examination.kernel_log_trouble)) +
           json_field("left_out", json_list(examination.left_out, json_string)) +
           json_field("pads", json_list(examination.pads, pad_json)) + "}\n";
}

std::string masked_serial(const std::string& serial) {
    constexpr std::size_t shown_end = 2;
    if (serial.size() <= shown_end * 2) {
        return "(" + counted(serial.size(), "character") + ")";
    }
    return "..." + serial.substr(serial.size() - shown_end) + " (" + counted(serial.size(), "character") + ")";
}

Masks masks_of(const Examination& examination, const std::string& home, const std::string& user) {
    Masks masks;
    for (const Examined& pad : examination.pads) {
        masks.emplace_back(pad.look.device.serial, masked_serial(pad.look.device.serial));
        if (pad.answer && pad.answer->serial != pad.look.device.serial) {
            masks.emplace_back(pad.answer->serial, masked_serial(pad.answer->serial));
        }
        for (const AclEntry& entry : pad.look.rights.acl.entries) {
            if (entry.kind == AclEntry::Kind::user) {
                masks.emplace_back(user_name(entry.id), "USER");
            }
        }
        if (const std::string owner = user_name(pad.look.rights.owner); owner != "root") {
            masks.emplace_back(owner, "USER");
        }
    }
    masks.emplace_back(home, "HOME");
    if (user != "root") {
        masks.emplace_back(user, "USER");
    }
    // The longest first: one may hold another.
    std::ranges::stable_sort(masks,
                             [](const auto& one, const auto& other) { return one.first.size() > other.first.size(); });
    return masks;
}

std::string masked(std::string text, const Masks& masks) {
    constexpr std::size_t shortest_secret = 3;
    for (const auto& [secret, mask] : masks) {
        if (secret.size() >= shortest_secret) {
            replace_words(text, secret, mask);
        }
    }
    return text;
}

} // namespace vxpadctl
