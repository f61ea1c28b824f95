// Starts `vxpad-emulator serve` and `attach`: what they say, what they refuse, and how they end.
#include "control_client.hpp"
#include "program.hpp"
#include "usbip_client.hpp"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace program;
using usbip_client::Client;
using usbip_client::connect_to;

class Serve : public Program {
  protected:
    void TearDown() override {
        if (process_ > 0) {
            kill(process_, SIGTERM);
            EXPECT_EQ(finish(), 0);
        }
        unsetenv(emulator::control_variable);
        Program::TearDown();
    }

    // Until it has said where it is.
    void start_server(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "serve");
        fs::remove(file("output"));
        start(arguments);
        ASSERT_TRUE(eventually([&] { return content("output").ends_with("control\n"); })) << content("output");
        setenv(emulator::control_variable, word_after("control socket: ").c_str(), 1);
        address_ = word_after(" at ");
    }

    std::string word_after(const std::string& text) const {
        const auto output = content("output");
        const auto begin = output.find(text) + text.size();
        return output.substr(begin, output.find('\n', begin) - begin);
    }

    std::string address_;
};

TEST_F(Serve, TellsWhereThePadsAre) {
    start_server({"--listen", "127.0.0.1:0", "--pad", "type=16", "--vcom", "type=17"});
    EXPECT_TRUE(content("output").starts_with("2 pads at 127.0.0.1:")) << content("output");
    EXPECT_EQ(Client{connect_to(address_)}.list().size(), 2U);
    EXPECT_TRUE(emulator::request("list").starts_with("1 plugged"));
}

TEST_F(Serve, SignalEndsItInOrder) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        start_server({"--listen", "127.0.0.1:0"});
        Client idle{connect_to(address_)};
        Client client{connect_to(address_)};
        ASSERT_EQ(client.import("1-1"), 0U);
        client.start_in(1, 64);
        client.control({0x80, 6, 0x0100, 0, 18});
        kill(process_, signal);
        EXPECT_EQ(finish(), 0);
        EXPECT_TRUE(client.has_ended());
        EXPECT_TRUE(idle.has_ended());
        EXPECT_TRUE(files().empty());
    }
}

TEST_F(Serve, KilledOneEndsItsConnectionsAndTheNextCleansUp) {
    start_server({"--listen", "127.0.0.1:0"});
    Client client{connect_to(address_)};
    ASSERT_EQ(client.import("1-1"), 0U);
    kill(process_, SIGKILL);
    EXPECT_EQ(finish(), -1);
    EXPECT_TRUE(client.has_ended());
    ASSERT_EQ(files().size(), 1U);
    fs::last_write_time(files().front(), fs::file_time_type::clock::now() - 1h);
    start_server({"--listen", address_}); // the same place, although it has just been in use
    EXPECT_EQ(files().size(), 1U);
    kill(process_, SIGTERM);
    EXPECT_EQ(finish(), 0);
}

TEST_F(Serve, ListensOnIpv6) {
    start_server({"--listen", "[::1]:0"});
    EXPECT_TRUE(address_.starts_with("[::1]:")) << address_;
    EXPECT_EQ(Client{connect_to(address_)}.list().size(), 1U);
}

TEST_F(Serve, UsualPlaceIsThePortOfTheProtocolOnLoopback) {
    const Client taken{connect_to("127.0.0.1:3240")};
    if (taken.fd() >= 0) {
        GTEST_SKIP() << "somebody listens there";
    }
    start_server({"--listen=127.0.0.1"});
    EXPECT_EQ(address_, "127.0.0.1:3240");
    const auto first = std::exchange(process_, -1);
    EXPECT_EQ(run({"serve"}), 125);
    EXPECT_NE(content("output").find("127.0.0.1:3240: Address already in use"), std::string::npos) << content("output");
    process_ = first;
}

TEST_F(Serve, RunsACommandThatFindsIt) {
    EXPECT_EQ(run({"serve", "--listen", "127.0.0.1:0", "--", "sh", "-c",
                   "test -S \"$VXPAD_EMULATOR_CONTROL\" && test -z \"$LD_PRELOAD\" && "
                   "case $VXPAD_EMULATOR_USBIP in 127.0.0.1:*) exit 42;; esac"}),
              42)
        << content("output");
    EXPECT_EQ(run({"serve", "--listen", "127.0.0.1:0", "--", "sh", "-c", "kill -TERM $$"}), 128 + SIGTERM);
}

TEST_F(Serve, WrongOptionsAreRefused) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> wrong{
        {{"serve", "--listen"}, "--listen needs a value"},
        {{"serve", "--listen", "localhost"}, "'localhost' is neither an IPv4 nor an IPv6 address"},
        {{"serve", "--listen", "127.0.0.1:65536"}, "'65536'"},
        {{"serve", "--listen", "127.0.0.1:"}, "''"},
        {{"serve", "--listen", ":3240"}, "''"},
        {{"serve", "--listen", ""}, "''"},
        {{"serve", "--listen", "[::1"}, "[ADDRESS]:PORT"},
        {{"serve", "--listen", "[::1]3240"}, "[ADDRESS]:PORT"},
        {{"serve", "--listen", "[]:3240"}, "''"},
        {{"serve", "--listen", "1:2:3"}, "'1:2:3'"},
        {{"serve", "--vhci", "/"}, "--vhci"},
        {{"attach", "--listen", "::1"}, "--listen"},
        {{"run", "--listen", "::1", "--", "true"}, "--listen"},
        {{"serve", "--fault", "2:stall"}, "no pad 2"},
    };
    for (const auto& [arguments, text] : wrong) {
        EXPECT_EQ(run(arguments), 2) << text;
        EXPECT_NE(content("output").find(text), std::string::npos) << text << ": " << content("output");
    }
    EXPECT_EQ(run({"serve", "--listen", "192.0.2.1:0"}), 125); // an address of nobody's machine
    EXPECT_NE(content("output").find("192.0.2.1:0: "), std::string::npos) << content("output");
}

TEST_F(Serve, AttachWithoutTheModuleSaysSo) {
    EXPECT_EQ(run({"attach", "--vhci", (directory_ / "nothing").string()}), 125);
    EXPECT_NE(content("output").find("module vhci-hcd is not loaded"), std::string::npos) << content("output");
}

} // namespace
