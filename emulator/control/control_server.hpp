// A text socket through which a running program, or its test, changes the pads: a line is a request.
#pragma once

#include "base/event_loop.hpp"
#include "base/fd.hpp"
#include "base/send_buffer.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace emulator {

class ControlServer {
  public:
    using Answer = std::function<std::string(std::string_view request)>;
    using Settled = std::function<bool()>;

    // A reply is sent when everything is settled that the request has brought about; other requests wait meanwhile.
    ControlServer(EventLoop& loop, std::string socket_path, Answer answer, Settled settled);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

  private:
    struct Client {
        Fd socket;
        std::string received;
        SendBuffer unsent;
        std::string reply; // that waits until everything is settled
    };

    void accept_client();
    void on_event(int fd, std::uint32_t events);
    bool receive(Client& client);
    bool flush(Client& client);
    void answer_all(int fd);
    void hold();
    static void release(Client& client);
    void drop(int fd);

    EventLoop& loop_;
    std::string path_;
    Answer answer_;
    Settled settled_;
    std::optional<EventLoop::Timer> holding_; // while a reply waits
    Fd listener_;
    std::map<int, Client> clients_;
};

} // namespace emulator
