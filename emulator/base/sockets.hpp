#pragma once

#include "base/fd.hpp"

#include <string>
#include <string_view>

namespace emulator {

// A listening Unix socket, not blocking.
Fd listen_at(const std::string& path);

struct TcpAddress {
    std::string host = "127.0.0.1"; // a number, not a name
    std::string port = "3240";
};

// "ADDRESS", "ADDRESS:PORT" or, of IPv6, "[ADDRESS]:PORT"; throws std::invalid_argument.
TcpAddress parse_tcp_address(std::string_view text);

// A listening TCP socket, not blocking; and where it listens, in the form above.
Fd listen_at(const TcpAddress& address);
std::string address_of(int socket);

// Sends without waiting for more to send, and notices when the other side has vanished.
void make_lively(int tcp_socket);

} // namespace emulator
