// Pads as people and programs read them.
#pragma once

#include "library.hpp"
#include "names.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace vxpadctl {

// What a pad that speaks SSP has to say; what it did not tell is left out.
struct SspFacts {
    std::optional<unsigned int> output_packet_size;
    std::optional<unsigned int> input_report_size;
    std::optional<PadDescription> description;
    std::optional<unsigned int> connection;
};

std::string pad_table(std::span<const Pad> pads);
std::string pad_list_json(std::span<const Pad> pads);

// Without facts the pad does not speak SSP.
std::string pad_details(const Pad& pad, const std::optional<SspFacts>& ssp);
std::string pad_info_json(const Pad& pad, const std::optional<SspFacts>& ssp);

std::string description_details(const PadDescription& description);
std::string description_json(const PadDescription& description);

// Types, whose places are their ids.
std::string type_table(std::span<const std::uint32_t> types, Names names, const char* column);
std::string type_list_json(std::span<const std::uint32_t> types, Names names);

} // namespace vxpadctl
