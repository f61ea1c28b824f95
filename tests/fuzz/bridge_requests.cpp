// What comes to the bridge for browsers: any text as a request of a client, and any words as the head of a stranger.
//
// Byte 0: bit 0 the rest is a request; else bit 1 it is a WebSocket, bits 2 and 3 how many hosts, bits 4 and 5 how many
// origins; these, the method and what Sec-Fetch-Dest says (each counted), then the target. A request that is taken
// keeps the limits, one that is not is told why in a message that is JSON in one line. Pads and page are for those only
// who name the host, come from a known origin and have the token.
#include "access/access.hpp"
#include "fuzz.hpp"
#include "input.hpp"
#include "protocol/messages.hpp"
#include "protocol/requests.hpp"

#include <algorithm>
#include <string>
#include <vector>

namespace {

void check_request(const std::string& text) {
    try {
        const bridge::Request request = bridge::parse_request(text);
        fuzz::require(request.id >= 0 && request.id <= std::int64_t{1} << 53, "an id that a browser has");
        fuzz::require((request.ask == bridge::Ask::list) == (request.pad == 0), "a pad, where one is needed");
        fuzz::require(request.interface < 32 && request.interfaces != 0, "interfaces");
        fuzz::require(request.bytes.size() <= bridge::longest_report, "a report of a pad's size");
        fuzz::require(!request.size || (*request.size > 0 && *request.size <= bridge::longest_upload), "a size");
        fuzz::require((request.ask != bridge::Ask::upload) || request.size, "an upload's size");
        fuzz::require(!request.layout || !request.layout->empty(), "a layout with fields");
    } catch (const bridge::BadRequest& error) {
        fuzz::require(error.what()[0] != '\0', "a message");
        const std::string answer = bridge::failed(error.id, "bad-request", error.what());
        fuzz::require(answer.front() == '{' && answer.back() == '}', "a whole answer");
        fuzz::require(std::ranges::none_of(answer, [](char c) { return c >= 0 && c < ' '; }), "one line");
    }
}

void check_head(fuzz::Input& input, unsigned int how) {
    std::vector<std::string> hosts;
    std::vector<std::string> origins;
    for (unsigned int i = 0; i < (how >> 2 & 3); ++i) {
        hosts.push_back(input.counted_text());
    }
    for (unsigned int i = 0; i < (how >> 4 & 3); ++i) {
        origins.push_back(input.counted_text());
    }
    const std::string method = input.counted_text();
    const std::string destination = input.counted_text();
    const std::string target = input.rest_as_text();
    const bridge::Rules rules{7429, {"https://counter.example"}, "0123456789abcdef"};
    const bridge::Decision decision = bridge::decide({.method = method,
                                                      .target = target,
                                                      .hosts = {hosts.begin(), hosts.end()},
                                                      .origins = {origins.begin(), origins.end()},
                                                      .fetch_destination = destination,
                                                      .is_upgrade = (how & 2) != 0},
                                                     rules);
    fuzz::require(decision.why != nullptr && decision.status >= 101, "an answer");
    if (decision.grant == bridge::Grant::nothing) {
        fuzz::require(decision.status >= 400, "a refusal");
        return;
    }
    fuzz::require(method == "GET" && hosts.size() == 1 && origins.size() <= 1, "one of each");
    fuzz::require(target.find("token=0123456789abcdef") != std::string::npos, "the token");
    fuzz::require(hosts[0].ends_with(":7429"), "the own port");
    fuzz::require(origins.empty() || origins[0] == rules.origins[0] || origins[0].starts_with("http://"), "an origin");
    fuzz::require((decision.grant == bridge::Grant::pads) == target.starts_with("/pads?"), "what was asked for");
}

void check_origin(const std::string& text) {
    if (bridge::is_acceptable_origin(text)) {
        fuzz::require(text.find_first_of("*@?# ") == std::string::npos, "one host");
        fuzz::require(std::ranges::count(text, '/') == 2, "no path");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input{data, size};
    const unsigned int how = input.byte();
    if ((how & 1) != 0) {
        const std::string text = input.rest_as_text();
        check_request(text);
        check_origin(text);
    } else {
        check_head(input, how);
    }
    return 0;
}
