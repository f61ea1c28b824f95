#include "names.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace vxpadctl {

namespace {

constexpr std::array<Name, 3> component_table{
    {{communication, "communication"}, {configuration, "configuration"}, {signpad, "signpad"}}};

constexpr std::array<Name, 4> mode_table{{{signature_mode, "signature"},
                                          {doc_view_mode, "doc-view"},
                                          {doc_sign_mode, "doc-sign"},
                                          {user_input_mode, "user-input"}}};

constexpr std::array<Name, 11> button_table{{
    {200, "zoom-in"},
    {201, "zoom-out"},
    {202, "next"},
    {203, "prev"},
    {204, "ssig"},
    {205, "rotate"},
    {206, "ok"},
    {207, "repeat"},
    {208, "cancel"},
    {209, "rotate-90"},
    {99, "rotate-180"},
}};

constexpr std::array<Name, 5> state_table{{{0, "idle"}, {1, "waiting"}, {2, "running"}, {3, "done"}, {4, "failed"}}};

constexpr std::array<Name, 3> export_table{{{csv_format, "csv"}, {json_format, "json"}, {inkml_format, "inkml"}}};

constexpr std::array<Name, 3> picture_table{{{svg_format, "svg"}, {png_format, "png"}, {pdf_format, "pdf"}}};

} // namespace

constinit const Names component_types = component_table;
constinit const Names mode_types = mode_table;
constinit const Names button_modes = Names(mode_table).first(3);
constinit const Names buttons = button_table;
constinit const Names configuration_states = state_table;
constinit const Names export_formats = export_table;
constinit const Names picture_formats = picture_table;

std::string_view name_of(Names names, std::uint32_t value) {
    const auto found = std::ranges::find(names, value, &Name::value);
    return found == names.end() ? std::string_view() : found->name;
}

std::optional<std::uint32_t> value_of(Names names, std::string_view name) {
    const auto found = std::ranges::find(names, name, &Name::name);
    return found == names.end() ? std::nullopt : std::optional(found->value);
}

std::string list_names(Names names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        text.append(i == 0 ? "" : i + 1 == names.size() ? " or " : ", ").append(names[i].name);
    }
    return text;
}

std::string list_values(Names names) {
    std::string text;
    for (const Name& name : names) {
        text.append(text.empty() ? "" : ", ").append(std::to_string(name.value));
    }
    return text;
}

} // namespace vxpadctl
