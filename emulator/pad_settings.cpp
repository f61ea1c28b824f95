#include "pad_settings.hpp"

#include "text.hpp"

#include <array>
#include <set>
#include <span>
#include <stdexcept>

#include VXPADCOM_USB_IDS_FILE

namespace emulator {

namespace {

struct Family {
    std::span<const std::uint32_t> vendors;
    std::span<const usb_ids::Product> products;
};

constexpr std::array<std::uint32_t, 1> classic_vendors{usb_ids::classic_vendor};
constexpr std::array<Family, 2> families{{
    {usb_ids::shared_vendors, usb_ids::shared_products},
    {classic_vendors, usb_ids::classic_products},
}};

std::optional<std::u16string> usb_string(const std::string& text) {
    if (text.empty())
        return std::nullopt;
    auto string = parse_string(text);
    if (string.size() > longest_string)
        throw std::invalid_argument("a USB string has at most " + std::to_string(longest_string) + " UTF-16 units");
    return string;
}

// "1.2.3.4" with an optional ":ABCD"
FirmwareVersion firmware_version(std::string_view text) {
    FirmwareVersion version;
    const auto colon = text.find(':');
    if (colon != std::string_view::npos) {
        version.manufacturer = text.substr(colon + 1);
        if (version.manufacturer.size() != 4)
            throw std::invalid_argument("the version's manufacturer is four characters long");
    }
    auto numbers = text.substr(0, colon);
    for (auto& number : version.numbers) {
        const auto dot = std::min(numbers.find('.'), numbers.size());
        number = static_cast<std::uint32_t>(parse_number(numbers.substr(0, dot), 10, 0, 0xffffffff));
        numbers.remove_prefix(std::min(dot + 1, numbers.size()));
    }
    if (!numbers.empty())
        throw std::invalid_argument("a version has four numbers: 1.2.3.4");
    return version;
}

bool flag(std::string_view text, std::string_view off, std::string_view on) {
    if (text != on && text != off)
        throw std::invalid_argument("'" + std::string(text) + "' is neither " + std::string(off) + " nor " +
                                    std::string(on));
    return text == on;
}

using Setter = void (*)(PadSettings&, const std::string& value);

constexpr std::array<std::pair<std::string_view, Setter>, 10> setters{{
    {"type", [](PadSettings& pad, const std::string& v) { pad.type = unsigned(parse_number(v, 10, 0, 255)); }},
    {"vendor",
     [](PadSettings& pad, const std::string& v) { pad.vendor_id = std::uint16_t(parse_number(v, 16, 0, 0xffff)); }},
    {"id",
     [](PadSettings& pad, const std::string& v) { pad.product_id = std::uint16_t(parse_number(v, 16, 0, 0xffff)); }},
    {"interfaces",
     [](PadSettings& pad, const std::string& v) { pad.interfaces = unsigned(parse_number(v, 10, 1, 255)); }},
    {"maker", [](PadSettings& pad, const std::string& v) { pad.maker = usb_string(v); }},
    {"product", [](PadSettings& pad, const std::string& v) { pad.product = usb_string(v); }},
    {"serial", [](PadSettings& pad, const std::string& v) { pad.serial = usb_string(v); }},
    {"version", [](PadSettings& pad, const std::string& v) { pad.version = firmware_version(v); }},
    {"mode-delay",
     [](PadSettings& pad, const std::string& v) { pad.mode_delay = unsigned(parse_number(v, 10, 0, 1000000)); }},
    {"unknown", [](PadSettings& pad, const std::string& v) { pad.loop_back = flag(v, "refuse", "loop-back"); }},
}};

// Gives a pad of a known type the first ids of that type, as far as it has none.
void fill_ids(PadSettings& pad, bool has_vendor, bool has_product) {
    for (const auto& family : families)
        for (const auto& product : family.products) {
            if (product.pad_type != pad.type)
                continue;
            if (!has_vendor)
                pad.vendor_id = static_cast<std::uint16_t>(family.vendors.front());
            if (!has_product)
                pad.product_id = static_cast<std::uint16_t>(product.product_id);
            return;
        }
    if (!has_vendor || !has_product)
        throw std::invalid_argument("there are no USB ids for type " + std::to_string(pad.type) +
                                    "; give vendor and id");
}

// The type that goes with the ids; a device that is no known pad keeps its type.
void fill_type(PadSettings& pad) {
    for (const auto& family : families)
        for (const auto vendor : family.vendors)
            for (const auto& product : family.products)
                if (vendor == pad.vendor_id && product.product_id == pad.product_id)
                    pad.type = product.pad_type;
}

} // namespace

PadSettings parse_pad_settings(std::string_view text, unsigned number) {
    PadSettings pad;
    const auto digits = std::to_string(number);
    pad.maker = u"Virtual Pads";
    pad.product = u"Virtual Signature Pad";
    pad.serial = parse_string("SN" + std::string(digits.size() < 4 ? 4 - digits.size() : 0, '0') + digits);

    std::set<std::string> given;
    for (const auto& [key, value] : parse_list(text)) {
        Setter setter = nullptr;
        std::string keys;
        for (const auto& [name, set] : setters) {
            keys += (keys.empty() ? "" : ", ") + std::string(name);
            if (name == key)
                setter = set;
        }
        if (setter == nullptr)
            throw std::invalid_argument("unknown key '" + key + "'; there are " + keys);
        try {
            setter(pad, value);
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(key + ": " + error.what());
        }
        given.insert(key);
    }
    const bool has_vendor = given.contains("vendor");
    const bool has_product = given.contains("id");
    fill_ids(pad, has_vendor, has_product);
    if (!given.contains("type"))
        fill_type(pad);
    return pad;
}

} // namespace emulator
