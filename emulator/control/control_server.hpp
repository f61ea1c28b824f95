// A text socket through which a running program, or its test, changes the pads: a line is a request.
#pragma once

#include "base/event_loop.hpp"
#include "base/fd.hpp"
#include "base/send_buffer.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace emulator {

class ControlServer {
  public:
    using Answer = std::function<std::string(std::string_view request)>;

    ControlServer(EventLoop& loop, std::string socket_path, Answer answer);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

  private:
    struct Client {
        Fd socket;
        std::string received;
        SendBuffer unsent;
    };

    void accept_client();
    void on_event(int fd, std::uint32_t events);
    bool receive(Client& client);
    bool flush(Client& client);
    void drop(int fd);

    EventLoop& loop_;
    std::string path_;
    Answer answer_;
    Fd listener_;
    std::map<int, Client> clients_;
};

} // namespace emulator
