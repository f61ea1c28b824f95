// What the bridge says to a client.
#pragma once

#include "layout.hpp"
#include "pads/pads.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bridge {

// Answers, which have the id of a request.
std::string done(std::int64_t id);
std::string pads_told(std::int64_t id, std::span<const Pad> pads);
std::string pad_told(std::int64_t id, const Pad& pad, std::span<const unsigned int> receiving);
std::string bytes_told(std::int64_t id, std::span<const unsigned char> bytes);
std::string upload_done(std::int64_t id, std::size_t sent);
std::string failed(std::optional<std::int64_t> id, std::string_view code, std::string_view why);

// Events, which come by themselves.
std::string welcome(std::string_view version, std::string_view layout);
std::string plugged(const Pad& pad);
std::string unplugged(unsigned int pad);
std::string upload_progress(std::int64_t id, std::size_t sent, std::size_t total);
std::string pen_data(unsigned int pad, unsigned int interface, std::span<const PenPacket* const> packets,
                     const vxpadctl::Layout& layout);

} // namespace bridge
