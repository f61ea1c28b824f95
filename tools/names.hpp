// Numbers of the pads' world that have names.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vxpadctl {

enum ComponentType : std::uint32_t { communication = 1, configuration = 3, signpad = 11 };
enum ModeType : std::uint32_t { signature_mode = 0, doc_view_mode = 5, doc_sign_mode = 6, user_input_mode = 13 };
enum ExportFormat : std::uint32_t { csv_format, json_format, inkml_format };
enum PictureFormat : std::uint32_t { svg_format, png_format, pdf_format };

struct Name {
    std::uint32_t value;
    std::string_view name;
};
using Names = std::span<const Name>;

extern const Names component_types;
extern const Names mode_types;
extern const Names button_modes; // the modes that have buttons
extern const Names buttons;
extern const Names configuration_states;
extern const Names export_formats;
extern const Names picture_formats;

// Empty where it has none.
std::string_view name_of(Names names, std::uint32_t value);

std::optional<std::uint32_t> value_of(Names names, std::string_view name);

// "signature, doc-view or doc-sign"
std::string list_names(Names names);

// "0, 5, 6"
std::string list_values(Names names);

} // namespace vxpadctl
