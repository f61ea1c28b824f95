// Pads for this machine's own kernel, which the test stands in for.
#include "base/event_loop.hpp"
#include "control/control_server.hpp"
#include "host/vhci_host.hpp"
#include "host/vhci_ports.hpp"
#include "pad/pad_settings.hpp"
#include "usb/bus.hpp"
#include "usbip_client.hpp"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace emulator;
using namespace std::chrono_literals;
using usbip_client::Bytes;
using usbip_client::Client;

// sysfs of two controllers; what stands in the files is written by the test.
class Sysfs : public testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/vxvhci-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        directory_ = name;
        write("status", "hs  0000 006 002 00010009 000005 3-1\n"
                        "hs  0001 004 000 00000000 000000 0-0\n"
                        "ss  0008 004 000 00000000 000000 0-0\n");
        write("status.1", "hs  0016 004 000 00000000 000000 0-0\n"
                          "hs  0017 004 000 00000000 000000 0-0\n");
        write("attach", "");
    }
    void TearDown() override { fs::remove_all(directory_); }

    void write(const std::string& file, const std::string& text) const {
        std::ofstream{directory_ / file} << (file == "attach" ? "" : "hub port sta spd dev      sockfd local_busid\n")
                                         << text;
    }
    std::string read(const std::string& file) const {
        std::ifstream stream{directory_ / file};
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    fs::path directory_;
};

// What the kernel does with what it is handed.
struct Kernel : VhciPorts {
    using VhciPorts::VhciPorts;

    bool exists(const std::string& device) const override { return devices->contains(device); }

    long hand_over(unsigned int port, int socket, std::uint32_t id) const override {
        if (!errors->empty()) {
            errno = errors->back();
            errors->pop_back();
            tried->push_back(port);
            return -1;
        }
        int type = 0;
        socklen_t size = sizeof type;
        EXPECT_EQ(getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &size), 0);
        EXPECT_EQ(type, SOCK_STREAM);
        tried->push_back(port);
        clients->push_back(std::make_unique<Client>(dup(socket)));
        clients->back()->set_device(id);
        return 0;
    }

    std::shared_ptr<std::set<std::string>> devices = std::make_shared<std::set<std::string>>();
    std::shared_ptr<std::vector<int>> errors = std::make_shared<std::vector<int>>(); // the next one at the end
    std::shared_ptr<std::vector<unsigned int>> tried = std::make_shared<std::vector<unsigned int>>();
    std::shared_ptr<std::vector<std::unique_ptr<Client>>> clients =
        std::make_shared<std::vector<std::unique_ptr<Client>>>();
};

class Vhci : public Sysfs {
  protected:
    void SetUp() override {
        Sysfs::SetUp();
        auto kernel = std::make_unique<Kernel>(directory_);
        devices_ = kernel->devices;
        errors_ = kernel->errors;
        tried_ = kernel->tried;
        clients_ = kernel->clients;
        host_ = std::make_unique<VhciHost>(loop_, bus_, std::move(kernel));
        bus_.add(parse_pad_settings("", 1));
        bus_.add(parse_pad_settings("type=16", 2, PadKind::vcom));
    }

    Port& pad(unsigned int number) { return *bus_.find(number); }

    void pump(std::chrono::milliseconds time = 5ms) {
        loop_.call_after(time, [this] { loop_.stop(); });
        loop_.run();
    }

    void set_up(Client& client) {
        client.start_control({0x00, 9, 1, 0, 0});
        pump();
        EXPECT_EQ(client.read_reply().status, 0);
    }

    std::string what_plugging_says(Port& port) {
        try {
            bus_.plug(port);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }

    EventLoop loop_;
    Bus bus_{loop_, false};
    std::shared_ptr<std::set<std::string>> devices_;
    std::shared_ptr<std::vector<int>> errors_;
    std::shared_ptr<std::vector<unsigned int>> tried_;
    std::shared_ptr<std::vector<std::unique_ptr<Client>>> clients_;
    std::unique_ptr<VhciHost> host_;
};

TEST_F(Sysfs, TakesAPortOfTheLeastUsedController) {
    const VhciPorts ports{directory_};
    EXPECT_EQ(ports.attach(42, 0x00010002), 16U);
    EXPECT_EQ(read("attach"), "16 42 65538 2");
    EXPECT_EQ(ports.device_at(0), "3-1");
    EXPECT_EQ(ports.device_at(1), "");
    EXPECT_EQ(ports.device_at(4711), "");
}

TEST_F(Sysfs, SaysWhatIsMissing) {
    const auto says = [&](const fs::path& directory) -> std::string {
        try {
            VhciPorts{directory}.attach(42, 0x00010002);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(says(directory_ / "nothing"),
              "the kernel module vhci-hcd is not loaded (modprobe vhci-hcd): there is no " +
                  (directory_ / "nothing").string());
    write("status.1", "");
    write("status", "ss  0008 004 000 00000000 000000 0-0\n");
    EXPECT_EQ(says(directory_), "no port of vhci-hcd is free");
    write("status", "gibberish\nhs\nhs x y\n\nhs 1\n");
    EXPECT_EQ(says(directory_), "no port of vhci-hcd is free");
    SetUp();
    fs::remove(directory_ / "attach");
    EXPECT_NE(says(directory_).find("/attach: No such file"), std::string::npos);
}

TEST_F(Vhci, OnlyRootMay) {
    *errors_ = {EACCES};
    EXPECT_TRUE(what_plugging_says(pad(1)).starts_with("only root may plug pads into this machine's kernel: "));
    EXPECT_EQ(pad(1).device, nullptr) << "it is not plugged in";
    *errors_ = {EINVAL};
    EXPECT_NE(what_plugging_says(pad(1)).find("Invalid argument"), std::string::npos);
    EXPECT_EQ(what_plugging_says(pad(1)), "");
}

TEST_F(Vhci, PortThatSomebodyTookIsPassedOver) {
    *errors_ = {EBUSY, EBUSY};
    bus_.plug(pad(1));
    EXPECT_EQ(*tried_, (std::vector<unsigned int>{16, 17, 1}));
    *errors_ = {EBUSY, EBUSY, EBUSY};
    EXPECT_EQ(what_plugging_says(pad(2)), "no port of vhci-hcd is free");
}

TEST_F(Vhci, KernelFindsThePadWithoutImportingIt) {
    bus_.plug(pad(1));
    bus_.plug(pad(2));
    ASSERT_EQ(clients_->size(), 2U);
    auto& client = *clients_->front();
    client.start_control({0x80, 6, 0x0100, 0, 18});
    client.start_in(1, 64);
    pump();
    EXPECT_EQ(client.read_reply().length, 18U);
    ASSERT_TRUE(pad(1).model->queue_input(0, Bytes{7}));
    pump();
    EXPECT_EQ(client.read_reply().data.at(0), 7);
    auto& vcom = *clients_->back();
    vcom.start_control({0x80, 6, 0x0100, 0, 18});
    pump();
    EXPECT_EQ(vcom.read_reply().length, 18U);
}

TEST_F(Vhci, UnplugEndsTheConnectionAfterWhatWasDone) {
    bus_.plug(pad(1));
    auto& client = *clients_->front();
    client.start_in(1, 64);
    client.start_in(1, 64);
    pump();
    ASSERT_TRUE(pad(1).model->queue_input(0, Bytes{8}));
    bus_.unplug(pad(1));
    pump();
    EXPECT_EQ(client.read_reply().data.at(0), 8);
    EXPECT_TRUE(client.receive(1).empty());

    bus_.plug(pad(1));
    ASSERT_EQ(clients_->size(), 2U);
    EXPECT_NE(clients_->back()->device(), client.device());
    clients_->back()->start_control({0x80, 6, 0x0100, 0, 18});
    pump();
    EXPECT_EQ(clients_->back()->read_reply().length, 18U);
}

TEST_F(Vhci, PadThatTheKernelLetsGoIsUnplugged) {
    bus_.plug(pad(1));
    bus_.plug(pad(2));
    clients_->front()->close();
    pump();
    EXPECT_EQ(pad(1).device, nullptr);
    EXPECT_NE(pad(2).device, nullptr);
    clients_->back()->send(Bytes(48, 0xff)); // no kernel says that
    pump();
    EXPECT_EQ(pad(2).device, nullptr);
    bus_.plug(pad(1));
    EXPECT_NE(pad(1).device, nullptr);
}

TEST_F(Vhci, SettledWhenTheKernelHasSetThePadsUp) {
    EXPECT_TRUE(host_->is_settled());
    bus_.plug(pad(1));
    bus_.plug(pad(2));
    EXPECT_FALSE(host_->is_settled());
    set_up(*clients_->front());
    EXPECT_FALSE(host_->is_settled());
    set_up(*clients_->back());
    EXPECT_TRUE(host_->is_settled());

    write("status.1", "hs  0016 006 002 00010002 000005 5-1\nhs  0017 006 002 00010003 000006 5-2\n");
    *devices_ = {"5-1", "5-2"};
    bus_.unplug(pad(1));
    EXPECT_FALSE(host_->is_settled());
    *devices_ = {"5-2"};
    EXPECT_TRUE(host_->is_settled());
}

TEST_F(Vhci, PadThatIsNeverSetUpIsNotWaitedForLong) {
    bus_.plug(pad(1));
    pump(2s);
    EXPECT_FALSE(host_->is_settled());
    pump(1100ms);
    EXPECT_TRUE(host_->is_settled());
}

// Requests through the control socket, of several clients at once.
class HeldReplies : public Sysfs {
  protected:
    int connect() const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_.string().copy(address.sun_path, sizeof address.sun_path - 1);
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return fd;
    }
    static void say(Client& client, const std::string& text) { client.send(Bytes(text.begin(), text.end())); }
    static std::string hear(Client& client, std::size_t size) {
        const auto bytes = client.receive(size);
        return {bytes.begin(), bytes.end()};
    }
    void pump() {
        loop_.call_after(10ms, [this] { loop_.stop(); });
        loop_.run();
    }

    EventLoop loop_;
    fs::path path_;
};

TEST_F(HeldReplies, WaitUntilEverythingIsSettled) {
    path_ = directory_ / "control";
    bool settled = true;
    std::string asked;
    ControlServer server{loop_, path_.string(),
                         [&](std::string_view request) {
                             asked += request;
                             settled = request != "plug";
                             return "ok " + std::string{request};
                         },
                         [&] { return settled; }};
    Client first{connect()};
    Client second{connect()};
    say(first, "plug\nlog\n");
    pump();
    say(second, "state\n");
    pump();
    EXPECT_EQ(asked, "plug");
    EXPECT_TRUE(first.is_silent(0ms));
    EXPECT_TRUE(second.is_silent(0ms));
    settled = true;
    pump();
    EXPECT_EQ(hear(first, 17), "ok plug\n\nok log\n\n");
    EXPECT_EQ(hear(second, 10), "ok state\n\n");

    say(first, "plug\n"); // and goes
    pump();
    first.close();
    pump();
    settled = true;
    pump();
    say(second, "list\n");
    pump();
    EXPECT_EQ(hear(second, 9), "ok list\n\n");
}

} // namespace
