#include "advice.hpp"

#include "hex.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>

namespace vxpadctl {

namespace {

namespace fs = std::filesystem;

constexpr const char* rules_file = "70-vxpadcom.rules";

// One line for all vendors with the same products.
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
    return text;
}

bool is_there(const fs::path& path) {
    std::error_code ignored;
    return fs::exists(path, ignored);
}

// Where udev looks for rules on its own.
bool rules_are_installed() {
    static constexpr std::array<const char*, 4> directories{"/etc/udev/rules.d", "/run/udev/rules.d",
                                                            "/usr/local/lib/udev/rules.d", "/usr/lib/udev/rules.d"};
    return std::ranges::any_of(directories, [](const char* path) { return is_there(fs::path(path) / rules_file); });
}

// The file that was installed or built together with this program, else just its name.
std::string rules_to_install() {
    std::error_code ignored;
    const fs::path here = fs::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const char* place : {"../lib/udev/rules.d", "../packaging"}) {
        if (const fs::path file = here / place / rules_file; is_there(file)) {
            return file.lexically_normal().string();
        }
    }
    return rules_file;
}

// How to get access, with the commands to type.
std::string explain_denied_access() {
    const std::string reload = "    sudo udevadm control --reload\n"
                               "    sudo udevadm trigger --action=add --subsystem-match=usb";
    const std::string effect = "give access to the user who is logged in at this machine's own screen.\n";
    if (rules_are_installed()) {
        return std::string("The installed udev rules ") + rules_file + " " + effect +
               "If that is you, plug the pad in again, or run\n" + reload;
    }
    return std::string("The udev rules ") + rules_file + " " + effect + "Install them with\n    sudo install -m 644 " +
           rules_to_install() + " /etc/udev/rules.d/\n" + reload;
}

} // namespace

std::string explain_missing_pads(std::size_t pads, std::span<const BusDevice> on_bus,
                                 std::span<const SearchedId> searched) {
    std::string denied;
    for (const BusDevice& device : on_bus) {
        if (device.access == Access::denied) {
            denied += "a pad (" + hex_id(device.id.vendor) + ":" + hex_id(device.id.product) +
                      ") is plugged in, but there is no permission to open " + device.node + "\n";
        }
    }
    if (!denied.empty()) {
        return denied + explain_denied_access();
    }
    if (on_bus.size() > pads) {
        return std::to_string(on_bus.size() - pads) +
               " of the pads plugged in cannot be used: in use by another program, no answer, or a twin of another.\n"
               "To see the library's own account: vxpadctl list --trace";
    }
    if (pads == 0) {
        return "no pad found. These USB ids are looked for:\n" + list_ids(searched) +
               "To try virtual pads: vxpad-emulator run -- vxpadctl list";
    }
    return {};
}

} // namespace vxpadctl
