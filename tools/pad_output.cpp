#include "pad_output.hpp"

#include "hex.hpp"
#include "table.hpp"
#include "text.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace vxpadctl {

namespace {

using Fact = std::pair<const char*, std::string>;

std::string shown(std::string_view text) {
    return text.empty() ? "-" : for_terminal(text);
}

std::string bytes(unsigned int size) {
    return std::to_string(size) + " bytes";
}

std::string format_facts(std::span<const Fact> facts) {
    std::string text;
    for (const auto& [label, value] : facts) {
        std::string line = label + std::string(":");
        line.resize(16, ' ');
        text += line + value + '\n';
    }
    return text;
}

std::string id_fields(const UsbId& id) {
    return "\"vendor_id\": " + json_string(hex_id(id.vendor)) + ", \"product_id\": " + json_string(hex_id(id.product));
}

std::string pad_fields(const Pad& pad) {
    return "\"number\": " + std::to_string(pad.number) + ", \"transport\": " + json_string(pad.transport) +
           ", \"maker\": " + json_string(pad.maker) + ", \"product\": " + json_string(pad.product) +
           ", \"serial\": " + json_string(pad.serial) + ", " + id_fields(pad.id) +
           ", \"interfaces\": " + std::to_string(pad.interfaces) +
           ", \"feature_report_bytes\": " + std::to_string(pad.feature_report_size);
}

std::string json_number(const std::optional<unsigned int>& number) {
    return number ? std::to_string(*number) : "null";
}

std::string ssp_json(const SspFacts& ssp) {
    return "{\"packet_bytes\": " + json_number(ssp.output_packet_size) +
           ", \"input_bytes\": " + json_number(ssp.input_report_size) +
           ", \"description\": " + (ssp.description ? description_json(*ssp.description) : "null") +
           ", \"connection\": " + json_number(ssp.connection) + "}";
}

std::vector<Fact> description_facts(const PadDescription& description) {
    return {
        {"Signpad id", to_text(description.id)},
        {"Firmware", shown(description.version)},
        {"Signpad serial", shown(description.serial)},
    };
}

std::vector<Fact> facts_of(const SspFacts& ssp) {
    std::vector<Fact> facts;
    if (ssp.output_packet_size) {
        facts.emplace_back("Packets out", bytes(*ssp.output_packet_size));
    }
    if (ssp.input_report_size) {
        facts.emplace_back("Packets in", bytes(*ssp.input_report_size));
    }
    if (ssp.description) {
        for (const Fact& fact : description_facts(*ssp.description)) {
            facts.push_back(fact);
        }
    }
    if (ssp.connection) {
        facts.emplace_back("Connection", std::to_string(*ssp.connection));
    }
    return facts;
}

} // namespace

std::string pad_table(std::span<const Pad> pads) {
    std::vector<Row> rows{{"#", "TRANSPORT", "MAKER", "PRODUCT", "SERIAL", "ID", "INTERFACES"}};
    for (const Pad& pad : pads) {
        rows.push_back({std::to_string(pad.number), shown(pad.transport), shown(pad.maker), shown(pad.product),
                        shown(pad.serial), to_text(pad.id), std::to_string(pad.interfaces)});
    }
    return format_table(std::move(rows));
}

std::string pad_list_json(std::span<const Pad> pads) {
    std::string text = "[";
    for (const Pad& pad : pads) {
        text += (text.size() > 1 ? ",\n {" : "{") + pad_fields(pad) + "}";
    }
    return text + "]\n";
}

std::string pad_details(const Pad& pad, const std::optional<SspFacts>& ssp) {
    std::vector<Fact> facts{
        {"Pad", std::to_string(pad.number)},
        {"Transport", shown(pad.transport)},
        {"Maker", shown(pad.maker)},
        {"Product", shown(pad.product)},
        {"Serial number", shown(pad.serial)},
        {"USB id", to_text(pad.id)},
        {"Interfaces", std::to_string(pad.interfaces)},
        {"Feature report", bytes(pad.feature_report_size)},
        {"SSP", ssp ? "yes" : "no"},
    };
    if (ssp) {
        for (const Fact& fact : facts_of(*ssp)) {
            facts.push_back(fact);
        }
    }
    return format_facts(facts);
}

std::string pad_info_json(const Pad& pad, const std::optional<SspFacts>& ssp) {
    return "{" + pad_fields(pad) + ", \"ssp\": " + (ssp ? ssp_json(*ssp) : "null") + "}";
}

std::string description_details(const PadDescription& description) {
    return format_facts(description_facts(description));
}

std::string description_json(const PadDescription& description) {
    return "{" + id_fields(description.id) + ", \"version\": " + json_string(description.version) +
           ", \"serial\": " + json_string(description.serial) + "}";
}

std::string type_table(std::span<const std::uint32_t> types, Names names, const char* column) {
    std::vector<Row> rows{{"ID", "TYPE", column}};
    for (std::size_t id = 0; id < types.size(); ++id) {
        rows.push_back({std::to_string(id), std::to_string(types[id]), shown(name_of(names, types[id]))});
    }
    return format_table(std::move(rows));
}

std::string type_list_json(std::span<const std::uint32_t> types, Names names) {
    std::string text = "[";
    for (std::size_t id = 0; id < types.size(); ++id) {
        text += (id > 0 ? ",\n " : "") + ("{\"id\": " + std::to_string(id)) +
                ", \"type\": " + std::to_string(types[id]) + ", \"name\": " + json_string(name_of(names, types[id])) +
                "}";
    }
    return text + "]\n";
}

} // namespace vxpadctl
