#include "pad_output.hpp"

#include "table.hpp"
#include "text.hpp"

namespace vxpadctl {

namespace {

std::string ids(const Pad& pad) {
    return hex_id(pad.id.vendor) + ":" + hex_id(pad.id.product);
}

std::string shown(const std::string& text) {
    return text.empty() ? "-" : for_terminal(text);
}

} // namespace

std::string pad_table(std::span<const Pad> pads) {
    std::vector<Row> rows{{"#", "TRANSPORT", "MAKER", "PRODUCT", "SERIAL", "ID", "INTERFACES"}};
    for (const Pad& pad : pads)
        rows.push_back({std::to_string(pad.number), shown(pad.transport), shown(pad.maker), shown(pad.product),
                        shown(pad.serial), ids(pad), std::to_string(pad.interfaces)});
    return format_table(std::move(rows));
}

std::string pad_details(const Pad& pad) {
    const std::pair<const char*, std::string> facts[] = {
        {"Pad", std::to_string(pad.number)},
        {"Transport", shown(pad.transport)},
        {"Maker", shown(pad.maker)},
        {"Product", shown(pad.product)},
        {"Serial number", shown(pad.serial)},
        {"USB id", ids(pad)},
        {"Interfaces", std::to_string(pad.interfaces)},
        {"Feature report", std::to_string(pad.feature_report_size) + " bytes"},
    };
    std::string text;
    for (const auto& [label, value] : facts) {
        std::string line = label + std::string(":");
        line.resize(16, ' ');
        text += line + value + '\n';
    }
    return text;
}

std::string pad_json(const Pad& pad) {
    return "{\"number\": " + std::to_string(pad.number) + ", \"transport\": " + json_string(pad.transport) +
           ", \"maker\": " + json_string(pad.maker) + ", \"product\": " + json_string(pad.product) +
           ", \"serial\": " + json_string(pad.serial) + ", \"vendor_id\": " + json_string(hex_id(pad.id.vendor)) +
           ", \"product_id\": " + json_string(hex_id(pad.id.product)) +
           ", \"interfaces\": " + std::to_string(pad.interfaces) +
           ", \"feature_report_bytes\": " + std::to_string(pad.feature_report_size) + "}";
}

std::string pad_list_json(std::span<const Pad> pads) {
    std::string text = "[";
    for (const Pad& pad : pads)
        text += (text.size() > 1 ? ",\n " : "") + pad_json(pad);
    return text + "]\n";
}

} // namespace vxpadctl
