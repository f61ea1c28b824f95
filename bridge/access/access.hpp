// Who may have what, decided from the head of a request alone.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace bridge {

// What counts of the head; a line that comes twice is there twice.
struct Head {
    std::string_view method;
    std::string_view target;
    std::vector<std::string_view> hosts;
    std::vector<std::string_view> origins;
    std::string_view fetch_destination; // Sec-Fetch-Dest, which a page's scripts cannot change
    bool is_upgrade = false;            // to a WebSocket
};

struct Rules {
    unsigned short port;
    std::vector<std::string> origins; // besides those of the bridge's own page
    std::string token;
};

enum class Grant { nothing, page, pads };

struct Decision {
    Grant grant;
    unsigned int status; // for the answer, where nothing is granted
    const char* why;
};

Decision decide(const Head& head, const Rules& rules);

// "127.0.0.1:7429" and the like: what a request for this bridge may call it.
std::vector<std::string> own_hosts(unsigned short port);

// An origin as a browser writes it, whose pages nobody on the way can have changed: https, or http of this machine.
bool is_acceptable_origin(std::string_view text);

} // namespace bridge
