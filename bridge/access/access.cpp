#include "access/access.hpp"

#include "access/token.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace bridge {

namespace {

constexpr std::array<std::string_view, 3> loopback_names{"127.0.0.1", "[::1]", "localhost"};

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Names of hosts have no case; a browser writes them small, others may not.
bool is_same_name(std::string_view one, std::string_view other) {
    return std::ranges::equal(one, other, {}, lower, lower);
}

bool is_own_host(const Head& head, const Rules& rules) {
    return head.hosts.size() == 1 && std::ranges::any_of(own_hosts(rules.port), [&](const std::string& host) {
               return is_same_name(host, head.hosts.front());
           });
}

// Programs that are no browsers send none.
bool is_origin_allowed(const Head& head, const Rules& rules) {
    if (head.origins.empty()) {
        return true;
    }
    if (head.origins.size() > 1) {
        return false;
    }
    const std::string_view origin = head.origins.front();
    return std::ranges::find(rules.origins, origin) != rules.origins.end() ||
           std::ranges::any_of(own_hosts(rules.port),
                               [&](const std::string& host) { return origin == "http://" + host; });
}

// The only part of a query that means something.
std::string_view token_in(std::string_view query) {
    constexpr std::string_view name = "token=";
    while (!query.empty()) {
        const auto end = std::min(query.find('&'), query.size());
        if (query.starts_with(name)) {
            return query.substr(name.size(), end - name.size());
        }
        query.remove_prefix(std::min(end + 1, query.size()));
    }
    return {};
}

Decision refuse(unsigned int status, const char* why) {
    return {Grant::nothing, status, why};
}

bool is_port(std::string_view text) {
    return !text.empty() && text.size() <= 5 && text.find_first_not_of("0123456789") == std::string_view::npos;
}

} // namespace

Decision decide(const Head& head, const Rules& rules) {
    // A foreign name for this machine: the page that uses it was loaded from elsewhere under that name.
    if (!is_own_host(head, rules)) {
        return refuse(403, "this host is not allowed");
    }
    if (!is_origin_allowed(head, rules)) {
        return refuse(403, "this origin is not allowed");
    }
    if (head.method != "GET") {
        return refuse(405, "only GET is known");
    }
    const auto mark = std::min(head.target.find('?'), head.target.size());
    const std::string_view path = head.target.substr(0, mark);
    const std::string_view query = head.target.substr(std::min(mark + 1, head.target.size()));
    if (path != "/" && path != "/pads") {
        return refuse(404, "there is nothing here");
    }
    if (!is_token(token_in(query), rules.token)) {
        return refuse(403, "the token is missing or wrong");
    }
    if (path == "/pads") {
        return head.is_upgrade ? Decision{Grant::pads, 101, ""} : refuse(426, "this is a WebSocket");
    }
    if (!head.fetch_destination.empty() && head.fetch_destination != "document") {
        return refuse(403, "the page cannot be part of another one");
    }
    return {Grant::page, 200, ""};
}

std::vector<std::string> own_hosts(unsigned short port) {
    std::vector<std::string> hosts;
    for (const std::string_view name : loopback_names) {
        hosts.push_back(std::string{name}.append(":").append(std::to_string(port)));
    }
    return hosts;
}

bool is_acceptable_origin(std::string_view text) {
    constexpr std::string_view secure = "https://";
    constexpr std::string_view plain = "http://";
    const bool is_secure = text.starts_with(secure);
    if (!is_secure && !text.starts_with(plain)) {
        return false;
    }
    text.remove_prefix(is_secure ? secure.size() : plain.size());
    const std::size_t name_end = text.starts_with('[') ? text.find(']') + 1 : std::min(text.find(':'), text.size());
    const std::string_view name = text.substr(0, name_end);
    const std::string_view rest = text.substr(name.size());
    if (name.empty() || name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-[:]") != std::string_view::npos ||
        (!rest.empty() && (rest.front() != ':' || !is_port(rest.substr(1))))) {
        return false;
    }
    return is_secure || std::ranges::find(loopback_names, name) != loopback_names.end();
}

} // namespace bridge
