// What a client may ask for. docs/bridge.md tells it to people.
#pragma once

#include "layout.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace bridge {

// What one client can make the bridge keep.
constexpr std::size_t longest_message = 64U << 10;
constexpr std::size_t longest_report = 4096;
constexpr std::size_t longest_upload = 16U << 20;
constexpr std::size_t longest_layout = 2048;
constexpr std::chrono::milliseconds longest_wait{2000}; // for a reply: others wait as long
constexpr std::uint32_t all_interfaces = 0xffffffff;

enum class Ask { list, info, get_feature, set_feature, write, ssp, start, stop, upload };

struct Request {
    std::int64_t id = 0; // the client's own, for the answer
    Ask ask = Ask::list;
    unsigned int pad = 0;
    unsigned int interface = 0;
    std::uint32_t interfaces = all_interfaces; // bit i is interface i
    std::optional<std::size_t> size;
    std::vector<std::uint8_t> bytes;
    std::chrono::milliseconds timeout{1000}; // for a reply
    std::optional<vxpadctl::Layout> layout;
};

struct BadRequest : std::runtime_error {
    BadRequest(std::optional<std::int64_t> id_, const std::string& why) : std::runtime_error{why}, id{id_} {}
    std::optional<std::int64_t> id; // where there was one
};

// Takes any text. Throws BadRequest.
Request parse_request(std::string_view text);

} // namespace bridge
