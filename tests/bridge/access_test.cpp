#include "access/access.hpp"

#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <string_view>

namespace {

using bridge::Grant;
using bridge::Head;

const bridge::Rules rules{7429, {"https://counter.example"}, std::string(64, 'a')};
const std::string pads = "/pads?token=" + rules.token;

Head socket_head() {
    Head head;
    head.method = "GET";
    head.target = pads;
    head.hosts = {"127.0.0.1:7429"};
    head.is_upgrade = true;
    return head;
}

TEST(Access, GrantsThePadsToWhoeverHasTheToken) {
    EXPECT_EQ(bridge::decide(socket_head(), rules).grant, Grant::pads);
}

TEST(Access, RefusesHostsOfOthersBeforeAnythingElse) {
    for (const std::string_view host :
         {"127.0.0.1", "127.0.0.1:742", "127.0.0.1:74290", "127.0.0.2:7429", "0.0.0.0:7429", "localhost.:7429",
          "attacker.example:7429", "user@127.0.0.1:7429", ""}) {
        Head head = socket_head();
        head.method = "POST";
        head.hosts = {host};
        EXPECT_EQ(bridge::decide(head, rules).status, 403U) << host;
    }
    Head twice = socket_head();
    twice.hosts.push_back(twice.hosts.front());
    EXPECT_EQ(bridge::decide(twice, rules).status, 403U);
}

TEST(Access, TakesItsOwnAndListedOriginsOnly) {
    const auto grant = [](std::string_view origin) {
        Head head = socket_head();
        head.origins = {origin};
        return bridge::decide(head, rules).grant;
    };
    for (const char* origin :
         {"http://127.0.0.1:7429", "http://[::1]:7429", "http://localhost:7429", "https://counter.example"}) {
        EXPECT_EQ(grant(origin), Grant::pads) << origin;
    }
    for (const char* origin : {"http://127.0.0.1", "https://localhost:7429", "HTTPS://COUNTER.EXAMPLE", "null", "",
                               "https://counter.example/", "https://counter.example.attacker.example"}) {
        EXPECT_EQ(grant(origin), Grant::nothing) << origin;
    }
}

TEST(Access, FindsTheTokenAmongOthers) {
    const auto status = [](const std::string& target) {
        Head head = socket_head();
        head.target = target;
        return bridge::decide(head, rules).status;
    };
    EXPECT_EQ(status("/pads?a=b&token=" + rules.token + "&c"), 101U);
    EXPECT_EQ(status("/pads?&&token=" + rules.token), 101U);
    for (const auto& target : std::initializer_list<std::string>{
             "/pads", "/pads?", "/pads?token", "/pads?token=", "/pads?xtoken=" + rules.token,
             "/pads?token=x&token=" + rules.token, "/pads#token=" + rules.token}) {
        EXPECT_NE(status(target), 101U) << target;
    }
}

TEST(Access, GivesThePageToWholeWindowsOnly) {
    const std::string target = "/?token=" + rules.token;
    Head head = socket_head();
    head.target = target;
    head.is_upgrade = false;
    EXPECT_EQ(bridge::decide(head, rules).grant, Grant::page);
    head.fetch_destination = "document";
    EXPECT_EQ(bridge::decide(head, rules).grant, Grant::page);
    head.fetch_destination = "iframe";
    EXPECT_EQ(bridge::decide(head, rules).status, 403U);
}

TEST(Access, KnowsOriginsThatNobodyOnTheWayCanChange) {
    for (const char* origin :
         {"https://counter.example", "https://counter.example:8443", "https://10.0.0.1", "https://[2001:db8::1]:443",
          "http://localhost", "http://localhost:3000", "http://127.0.0.1:1", "http://[::1]:3000"}) {
        EXPECT_TRUE(bridge::is_acceptable_origin(origin)) << origin;
    }
    for (const char* origin :
         {"", "*", "null", "counter.example", "http://counter.example", "https://", "https://*", "https://a/",
          "https://a b", "https://A", "https://a:", "https://a:x", "https://a:123456", "https://[::1",
          "http://localhost.example", "http://[::1]x", "ftp://a", "file://"}) {
        EXPECT_FALSE(bridge::is_acceptable_origin(origin)) << origin;
    }
}

} // namespace
