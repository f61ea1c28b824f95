// A text socket through which a running program, or its test, changes the pads: a line is a request.
#pragma once

#include "base/event_loop.hpp"
#include "usb/bus.hpp"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace emulator {

class ControlServer {
  public:
    ControlServer(EventLoop& loop, Bus& bus, std::string socket_path);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    // "ok", perhaps with text after a blank, or "error " and what is wrong; may have several lines.
    std::string answer(std::string_view request);

  private:
    struct Command;
    struct Client {
        Fd socket;
        std::string received;
        std::string unsent;
    };
    using Words = std::vector<std::string>;

    void accept_client();
    void on_event(int fd, std::uint32_t events);
    bool receive(Client& client);
    bool flush(Client& client);
    void drop(int fd);

    std::string list(const Words&);
    std::string plug(const Words& words);
    std::string unplug(const Words& words);
    std::string fault(const Words& words);
    std::string clear_faults(const Words& words);
    std::string input(const Words& words);
    std::string log(const Words& words);
    std::string state(const Words& words);
    std::string ssp(const Words& words);
    std::string button(const Words& words);
    std::string pen(const Words& words);
    std::string send(const Words& words);
    std::string play(const Words& words);
    std::string stop(const Words& words);
    std::string replay(const Words& words);
    std::string uploads(const Words& words);
    std::string reset_uploads(const Words& words);
    Port& port(const Words& words);
    Port& plugged_port(const Words& words);
    SspPad& ssp_pad(const Words& words);

    EventLoop& loop_;
    Bus& bus_;
    std::string path_;
    Fd listener_;
    std::map<int, Client> clients_;
};

} // namespace emulator
