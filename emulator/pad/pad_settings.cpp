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

constexpr std::array<PadKey, 27> keys{{
    {"type", "16", "kind of pad: 1, 8 to 13, 15 to 17",
     [](PadSettings& pad, const std::string& v) { pad.type = parse_count(v, 0, 255); }},
    {"vendor", "", "USB vendor id in hexadecimal; default: the first one of the type",
     [](PadSettings& pad, const std::string& v) { pad.vendor_id = std::uint16_t(parse_number(v, 16, 0, 0xffff)); }},
    {"id", "", "USB product id in hexadecimal; default: the first one of the type",
     [](PadSettings& pad, const std::string& v) { pad.product_id = std::uint16_t(parse_number(v, 16, 0, 0xffff)); }},
    {"interfaces", "2", "HID interfaces, 1 to 255; not of a VCOM pad",
     [](PadSettings& pad, const std::string& v) { pad.interfaces = parse_count(v, 1, 255); }},
    {"maker", "",
     "text in UTF-8, at most 126 UTF-16 units; `\\,` is a comma, `\\\\` a backslash, `\\uXXXX` any UTF-16 unit; an "
     "empty one means that the pad has no such string",
     [](PadSettings& pad, const std::string& v) { pad.maker = usb_string(v); }},
    {"product", "", "likewise", [](PadSettings& pad, const std::string& v) { pad.product = usb_string(v); }},
    {"serial", "", "likewise; default: SN and the number of the pad in four digits",
     [](PadSettings& pad, const std::string& v) { pad.serial = usb_string(v); }},
    {"version", "1.2.3.4:VPAD", "firmware version and its manufacturer",
     [](PadSettings& pad, const std::string& v) { pad.version = firmware_version(v); }},
    {"mode-delay", "0", "status replies that still show the old mode after a mode was set",
     [](PadSettings& pad, const std::string& v) { pad.mode_delay = parse_count(v, 0, 1000000); }},
    {"unknown", "refuse",
     "unknown commands are answered with status 5; loop-back, the default of VCOM pads: what was written can be read "
     "back",
     [](PadSettings& pad, const std::string& v) { pad.loop_back = flag(v, "refuse", "loop-back"); }},
    {"named", "no",
     "yes: bus ids of the chip vendor whose devices are pads only by their maker's name; of VCOM pads only",
     [](PadSettings& pad, const std::string& v) { pad.named = flag(v, "no", "yes"); }},
    {"access", "open", "denied: under run nobody may open its device file",
     [](PadSettings& pad, const std::string& v) { pad.denied = flag(v, "open", "denied"); }},
    {"ssp", "", "yes: the pad speaks SSP; default: of types 15 to 17 and of VCOM pads yes, else no",
     [](PadSettings& pad, const std::string& v) { pad.has_ssp = flag(v, "no", "yes"); }},
    {"components", "5:11:3:1", "component types, as the pad lists them; their places are their ids",
     [](PadSettings& pad, const std::string& v) { pad.ssp.components = numbers<std::uint8_t>(v, 255); }},
    {"modes", "0:5:6:13", "types of the signpad's modes, likewise",
     [](PadSettings& pad, const std::string& v) { pad.ssp.modes = numbers<std::uint32_t>(v, 0xffffffff); }},
    {"told-vendor", "",
     "vendor id in hexadecimal in the pad's description; default: the pad's own, of a VCOM pad that of its type",
     [](PadSettings& pad, const std::string& v) {
         pad.ssp.vendor_id = std::uint32_t(parse_number(v, 16, 0, 0xffffffff));
     }},
    {"told-id", "", "product id in hexadecimal in the pad's description, likewise",
     [](PadSettings& pad, const std::string& v) {
         pad.ssp.product_id = std::uint32_t(parse_number(v, 16, 0, 0xffffffff));
     }},
    {"told-serial", "", "serial number in the pad's description; default: the pad's own",
     [](PadSettings& pad, const std::string& v) { pad.ssp.serial = told_serial(v); }},
    {"conf-busy", "0", "state queries that find a changed configuration still being applied",
     [](PadSettings& pad, const std::string& v) { pad.ssp.conf_busy = parse_count(v, 0, 1000000); }},
    {"conf-fail", "no", "yes: a changed configuration fails",
     [](PadSettings& pad, const std::string& v) { pad.ssp.conf_fails = flag(v, "no", "yes"); }},
    {"connection", "0", "connection type",
     [](PadSettings& pad, const std::string& v) { pad.ssp.connection = std::uint8_t(parse_number(v, 10, 0, 255)); }},
    {"set-connection", "silent", "answered: setting the connection type is answered",
     [](PadSettings& pad, const std::string& v) { pad.ssp.answers_set_connection = flag(v, "silent", "answered"); }},
    {"pen", "follow",
     "plays a signature as pen data while the program has it switched on; loop: always, also as input reports of a HID "
     "pad; off: only on request",
     [](PadSettings& pad, const std::string& v) { pad.pen.mode = pen_mode(v); }},
    {"pen-rate", "100", "packets of pen data in a second; 0: only on request",
     [](PadSettings& pad, const std::string& v) { pad.pen.rate = parse_count(v, 0, fastest_pen); }},
    {"pen-size", "64", "bytes in a record of pen data, 1 to 64",
     [](PadSettings& pad, const std::string& v) { pad.pen.size = parse_count(v, 1, 64); }},
    {"pen-interface", "0", "interface of a HID pad on which pen data comes as input reports",
     [](PadSettings& pad, const std::string& v) { pad.pen.interface = parse_count(v, 0, 254); }},
    {"signature", "", "file with what the pen writes: a line for each point, x y pressure; an empty line lifts the pen",
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

// What was not given follows from the type. A VCOM pad shows other ids on the bus than it tells of itself, unless they
// are added ones.
void fill_ids(PadSettings& pad, const std::set<std::string>& given, std::span<const id_lines::Id> added) {
    const auto from = [&](const char* prefix) {
        return std::pair(given.contains(prefix + std::string{"vendor"}), given.contains(prefix + std::string{"id"}));
    };
    const bool vcom = pad.kind == PadKind::vcom;
    const auto [has_vendor, has_product] = from("");
    const auto line = std::ranges::find_if(added, [&](const id_lines::Id& id) {
        return id.vendor_id == pad.vendor_id && id.product_id == pad.product_id;
    });
    const bool is_added = has_vendor && has_product && line != added.end();
    if (is_added && !given.contains("type")) {
        pad.type = line->pad_type;
    }
    const auto known = ids_of(pad.type);
    auto bus = known.value_or(Ids{});
    if (vcom) {
        bus = pad.named ? Ids{usb_ids::vcom_named_vendor, usb_ids::vcom_named_product}
                        : Ids{usb_ids::shared_vendors.front(), usb_ids::vcom_products.front()};
    }
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
    if (!vcom && !is_added && !given.contains("type")) {
        fill_type(pad);
    }
    const auto told = vcom && !is_added ? known.value_or(Ids{}) : Ids{pad.vendor_id, pad.product_id};
    if (!tells_vendor) {
        pad.ssp.vendor_id = told.vendor;
    }
    if (!tells_product) {
        pad.ssp.product_id = told.product;
    }
}

} // namespace

std::span<const PadKey> pad_keys() {
    return keys;
}

PadSettings parse_pad_settings(std::string_view text, unsigned int number, PadKind kind,
                               std::span<const id_lines::Id> added) {
    PadSettings pad;
    pad.kind = kind;
    pad.loop_back = kind == PadKind::vcom;
    const auto digits = std::to_string(number);
    pad.maker = u"Virtual Pads";
    pad.product = u"Virtual Signature Pad";
    pad.serial = parse_string("SN" + std::string(digits.size() < 4 ? 4 - digits.size() : 0, '0') + digits);

    std::set<std::string> given;
    for (const auto& [key, value] : parse_list(text)) {
        const auto* known = std::ranges::find(keys, key, &PadKey::name);
        if (known == keys.end()) {
            std::string names;
            for (const auto& each : keys) {
                names += (names.empty() ? "" : ", ") + std::string{each.name};
            }
            throw std::invalid_argument("unknown key '" + key + "'; there are " + names);
        }
        try {
            known->set(pad, value);
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(key + ": " + error.what());
        }
        given.insert(key);
    }
    fill_ids(pad, given, added);
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
