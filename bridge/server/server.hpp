// HTTP and WebSockets on the loopback interface. Nothing that a client does harms another one.
#pragma once

#include "access/access.hpp"
#include "server/service.hpp"

#include <memory>
#include <string>
#include <vector>

namespace bridge {

struct ServerSettings {
    std::vector<std::string> addresses; // none: 127.0.0.1, and ::1 where there is one
    unsigned short port = 0;            // 0: any free one
    std::vector<std::string> origins;
    std::string token;
    ServiceSettings service;
};

class Server {
  public:
    // Listens from here on. Throws std::runtime_error.
    explicit Server(ServerSettings settings);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    unsigned short port() const;

    // Serves until SIGINT, SIGTERM or SIGHUP comes; then the clients are told and the pads left in order.
    void run();

  private:
    struct Parts; // Asio's headers are large
    std::unique_ptr<Parts> parts_;
};

} // namespace bridge
