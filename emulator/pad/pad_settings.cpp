#include "pad/pad_settings.hpp"

#include "base/text.hpp"

#include <algorithm>
#include <array>
#include <set>
#include <span>
#include <stdexcept>
#include <utility>

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
    if (text.empty()) {
        return std::nullopt;
    }
    auto string = parse_string(text);
    if (string.size() > longest_string) {
        throw std::invalid_argument("a USB string has at most " + std::to_string(longest_string) + " UTF-16 units");
    }
    return string;
}

// "1.2.3.4" with an optional ":ABCD"
FirmwareVersion firmware_version(std::string_view text) {
    FirmwareVersion version;
    const auto colon = text.find(':');
    if (colon != std::string_view::npos) {
        version.manufacturer = text.substr(colon + 1);
        if (version.manufacturer.size() != 4) {
            throw std::invalid_argument("the version's manufacturer is four characters long");
        }
    }
    auto numbers = text.substr(0, colon);
    for (auto& number : version.numbers) {
        const auto dot = std::min(numbers.find('.'), numbers.size());
        number = static_cast<std::uint32_t>(parse_number(numbers.substr(0, dot), 10, 0, 0xffffffff));
        numbers.remove_prefix(std::min(dot + 1, numbers.size()));
    }
    if (!numbers.empty()) {
        throw std::invalid_argument("a version has four numbers: 1.2.3.4");
    }
    return version;
}

bool flag(std::string_view text, std::string_view off, std::string_view on) {
    if (text != on && text != off) {
        throw std::invalid_argument("'" + std::string{text} + "' is neither " + std::string{off} + " nor " +
                                    std::string{on});
    }
    return text == on;
}

// "5:11:3:1", perhaps empty
template <typename Number> std::vector<Number> numbers(std::string_view text, unsigned long highest) {
    constexpr std::size_t most = 255; // as the pad counts them in one byte
    std::vector<Number> list;
    while (!text.empty()) {
        const auto colon = std::min(text.find(':'), text.size());
        list.push_back(static_cast<Number>(parse_number(text.substr(0, colon), 10, 0, highest)));
        text.remove_prefix(std::min(colon + 1, text.size()));
    }
    if (list.size() > most) {
        throw std::invalid_argument("at most " + std::to_string(most));
    }
    return list;
}

std::string told_serial(const std::string& text) {
    constexpr std::size_t longest = 255;
    if (text.size() > longest) {
        throw std::invalid_argument("at most " + std::to_string(longest) + " bytes");
    }
    return text;
}

PenMode pen_mode(const std::string& text) {
    constexpr std::array<std::pair<std::string_view, PenMode>, 3> modes{{
        {"follow", PenMode::follow},
        {"loop", PenMode::loop},
        {"off", PenMode::off},
    }};
    for (const auto& [name, mode] : modes) {
        if (name == text) {
            return mode;
        }
    }
    throw std::invalid_argument("'" + text + "' is none of follow, loop and off");
}

using Setter = void (*)(PadSettings&, const std::string& value);

constexpr std::array<std::pair<std::string_view, Setter>, 26> setters{{
    {"type", [](PadSettings& pad, const std::string& v) { pad.type = parse_count(v, 0, 255); }},
    {"vendor",
     [](PadSettings& pad, const std::string& v) { pad.vendor_id = std::uint16_t(parse_number(v, 16, 0, 0xffff)); }},
    {"id",
     [](PadSettings& pad, const std::string& v) { pad.product_id = std::uint16_t(parse_number(v, 16, 0, 0xffff)); }},
    {"interfaces", [](PadSettings& pad, const std::string& v) { pad.interfaces = parse_count(v, 1, 255); }},
    {"maker", [](PadSettings& pad, const std::string& v) { pad.maker = usb_string(v); }},
    {"product", [](PadSettings& pad, const std::string& v) { pad.product = usb_string(v); }},
    {"serial", [](PadSettings& pad, const std::string& v) { pad.serial = usb_string(v); }},
    {"version", [](PadSettings& pad, const std::string& v) { pad.version = firmware_version(v); }},
    {"mode-delay", [](PadSettings& pad, const std::string& v) { pad.mode_delay = parse_count(v, 0, 1000000); }},
    {"unknown", [](PadSettings& pad, const std::string& v) { pad.loop_back = flag(v, "refuse", "loop-back"); }},
    {"named", [](PadSettings& pad, const std::string& v) { pad.named = flag(v, "no", "yes"); }},
    {"ssp", [](PadSettings& pad, const std::string& v) { pad.has_ssp = flag(v, "no", "yes"); }},
    {"components", [](PadSettings& pad, const std::string& v) { pad.ssp.components = numbers<std::uint8_t>(v, 255); }},
    {"modes", [](PadSettings& pad, const std::string& v) { pad.ssp.modes = numbers<std::uint32_t>(v, 0xffffffff); }},
    {"told-vendor",
     [](PadSettings& pad, const std::string& v) {
         pad.ssp.vendor_id = std::uint32_t(parse_number(v, 16, 0, 0xffffffff));
     }},
    {"told-id", [](PadSettings& pad,
                   const std::string& v) { pad.ssp.product_id = std::uint32_t(parse_number(v, 16, 0, 0xffffffff)); }},
    {"told-serial", [](PadSettings& pad, const std::string& v) { pad.ssp.serial = told_serial(v); }},
    {"conf-busy", [](PadSettings& pad, const std::string& v) { pad.ssp.conf_busy = parse_count(v, 0, 1000000); }},
    {"conf-fail", [](PadSettings& pad, const std::string& v) { pad.ssp.conf_fails = flag(v, "no", "yes"); }},
    {"connection",
     [](PadSettings& pad, const std::string& v) { pad.ssp.connection = std::uint8_t(parse_number(v, 10, 0, 255)); }},
    {"set-connection",
     [](PadSettings& pad, const std::string& v) { pad.ssp.answers_set_connection = flag(v, "silent", "answered"); }},
    {"pen", [](PadSettings& pad, const std::string& v) { pad.pen.mode = pen_mode(v); }},
    {"pen-rate", [](PadSettings& pad, const std::string& v) { pad.pen.rate = parse_count(v, 0, fastest_pen); }},
    {"pen-size", [](PadSettings& pad, const std::string& v) { pad.pen.size = parse_count(v, 1, 64); }},
    {"pen-interface", [](PadSettings& pad, const std::string& v) { pad.pen.interface = parse_count(v, 0, 254); }},
    {"signature",
     [](PadSettings& pad, const std::string& v) {
         pad.pen.signature = std::make_shared<const Signature>(read_signature(v));
     }},
}};

constexpr std::array<unsigned int, 3> ssp_types{15, 16, 17};

struct Ids {
    std::uint32_t vendor = 0;
    std::uint32_t product = 0;
};

// The first ids of a type.
std::optional<Ids> ids_of(unsigned int type) {
    for (const auto& family : families) {
        for (const auto& product : family.products) {
            if (product.pad_type == type) {
                return Ids{family.vendors.front(), product.product_id};
            }
        }
    }
    return std::nullopt;
}

// The type that goes with the ids; a device that is no known pad keeps its type.
void fill_type(PadSettings& pad) {
    for (const auto& family : families) {
        for (const auto vendor : family.vendors) {
            for (const auto& product : family.products) {
                if (vendor == pad.vendor_id && product.product_id == pad.product_id) {
                    pad.type = product.pad_type;
                }
            }
        }
    }
}

// What was not given follows from the type. A VCOM pad shows other ids on the bus than it tells of itself.
void fill_ids(PadSettings& pad, const std::set<std::string>& given) {
    const auto from = [&](const char* prefix) {
        return std::pair(given.contains(prefix + std::string{"vendor"}), given.contains(prefix + std::string{"id"}));
    };
    const bool vcom = pad.kind == PadKind::vcom;
    const auto known = ids_of(pad.type);
    auto bus = known.value_or(Ids{});
    if (vcom) {
        bus = pad.named ? Ids{usb_ids::vcom_named_vendor, usb_ids::vcom_named_product}
                        : Ids{usb_ids::shared_vendors.front(), usb_ids::vcom_products.front()};
    }
    const auto [has_vendor, has_product] = from("");
    const auto [tells_vendor, tells_product] = from("told-");
    if (!known && (vcom ? !tells_vendor || !tells_product : !has_vendor || !has_product)) {
        throw std::invalid_argument("there are no ids for type " + std::to_string(pad.type) + "; give " +
                                    (vcom ? "told-vendor and told-id" : "vendor and id"));
    }
    if (!has_vendor) {
        pad.vendor_id = static_cast<std::uint16_t>(bus.vendor);
    }
    if (!has_product) {
        pad.product_id = static_cast<std::uint16_t>(bus.product);
    }
    if (!vcom && !given.contains("type")) {
        fill_type(pad);
    }
    const auto told = vcom ? known.value_or(Ids{}) : Ids{pad.vendor_id, pad.product_id};
    if (!tells_vendor) {
        pad.ssp.vendor_id = told.vendor;
    }
    if (!tells_product) {
        pad.ssp.product_id = told.product;
    }
}

} // namespace

PadSettings parse_pad_settings(std::string_view text, unsigned int number, PadKind kind) {
    PadSettings pad;
    pad.kind = kind;
    pad.loop_back = kind == PadKind::vcom;
    const auto digits = std::to_string(number);
    pad.maker = u"Virtual Pads";
    pad.product = u"Virtual Signature Pad";
    pad.serial = parse_string("SN" + std::string(digits.size() < 4 ? 4 - digits.size() : 0, '0') + digits);

    std::set<std::string> given;
    for (const auto& [key, value] : parse_list(text)) {
        Setter setter = nullptr;
        std::string keys;
        for (const auto& [name, set] : setters) {
            keys += (keys.empty() ? "" : ", ") + std::string{name};
            if (name == key) {
                setter = set;
            }
        }
        if (setter == nullptr) {
            throw std::invalid_argument("unknown key '" + key + "'; there are " + keys);
        }
        try {
            setter(pad, value);
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(key + ": " + error.what());
        }
        given.insert(key);
    }
    fill_ids(pad, given);
    if (!given.contains("told-serial")) {
        pad.ssp.serial = utf8(pad.serial.value_or(u"")).substr(0, 255);
    }
    if (kind == PadKind::vcom) {
        if (given.contains("interfaces") || !pad.has_ssp) {
            throw std::invalid_argument("a VCOM pad has one interface, which speaks SSP");
        }
        pad.interfaces = 1;
    } else if (pad.named) {
        throw std::invalid_argument("named is for VCOM pads");
    } else if (!given.contains("ssp")) {
        pad.has_ssp = std::ranges::find(ssp_types, pad.type) != ssp_types.end();
    }
    if (pad.pen.interface >= pad.interfaces) {
        throw std::invalid_argument("pen-interface: the pad has only " + std::to_string(pad.interfaces) +
                                    " interfaces");
    }
    if (pad.pen.mode == PenMode::loop && pad.pen.rate == 0) {
        throw std::invalid_argument("pen=loop needs a pen-rate");
    }
    return pad;
}

} // namespace emulator
