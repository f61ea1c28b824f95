// A USB/IP client of its own, which says what it is told to and checks what it gets.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <map>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace usbip_client {

using Bytes = std::vector<std::uint8_t>;
using namespace std::chrono_literals;

constexpr std::chrono::milliseconds patience = 10s;

inline void put(Bytes& bytes, std::uint32_t number, int size) {
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<std::uint8_t>(number >> shift));
    }
}

inline std::uint32_t number(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t size) {
    std::uint32_t value = 0;
    for (const auto byte : bytes.subspan(offset, size)) {
        value = value << 8 | byte;
    }
    return value;
}

inline std::string text(std::span<const std::uint8_t> bytes) {
    std::string result;
    for (const auto byte : bytes) {
        if (byte == 0) {
            break;
        }
        result += static_cast<char>(byte);
    }
    return result;
}

// "127.0.0.1:3240" or "[::1]:3240"
inline int connect_to(const std::string& address) {
    const auto colon = address.rfind(':');
    auto host = address.substr(0, colon);
    if (host.starts_with('[')) {
        host = host.substr(1, host.size() - 2);
    }
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), address.substr(colon + 1).c_str(), &hints, &found) != 0) {
        return -1;
    }
    int fd = ::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(fd, found->ai_addr, found->ai_addrlen) < 0) {
        ::close(fd);
        fd = -1;
    }
    freeaddrinfo(found);
    const int yes = 1; // as the stock client: what is sent goes at once
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    return fd;
}

struct Setup {
    std::uint8_t request_type = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;
};

struct Submit {
    std::uint32_t number = 0;
    std::uint32_t device = 0;
    std::uint32_t in = 0;
    std::uint32_t endpoint = 0;
    std::uint32_t flags = 0;
    std::int32_t length = 0;
    std::int32_t packets = 0;
    Setup setup;
    Bytes data;
    std::uint32_t code = 1;

    Bytes bytes() const {
        Bytes result;
        for (const auto word : {code, number, device, in, endpoint, flags, static_cast<std::uint32_t>(length), 0U,
                                static_cast<std::uint32_t>(packets), 0U}) {
            put(result, word, 4);
        }
        result.push_back(setup.request_type);
        result.push_back(setup.request);
        for (const auto word : {setup.value, setup.index, setup.length}) {
            result.push_back(static_cast<std::uint8_t>(word & 0xff));
            result.push_back(static_cast<std::uint8_t>(word >> 8));
        }
        result.insert(result.end(), data.begin(), data.end());
        return result;
    }
};

struct Reply {
    std::uint32_t code = 0; // 3: of a submit, 4: of an unlink
    std::uint32_t number = 0;
    int status = 0;
    std::uint32_t length = 0;
    Bytes data;
};

struct Device {
    std::string path;
    std::string bus_id;
    std::uint32_t bus = 0;
    std::uint32_t address = 0;
    std::uint32_t speed = 0;
    std::uint32_t vendor = 0;
    std::uint32_t product = 0;
    Bytes rest; // release, class, subclass, protocol, configuration, configurations, interfaces
    std::vector<Bytes> interfaces;
};

// Everything that a request to import "1-N" is made of.
inline Bytes operation(std::uint16_t code, std::string_view bus_id = {}, std::uint16_t version = 0x0111) {
    Bytes bytes;
    put(bytes, version, 2);
    put(bytes, code, 2);
    put(bytes, 0, 4);
    if (code == 0x8003) {
        bytes.insert(bytes.end(), bus_id.begin(), bus_id.end());
        bytes.resize(8 + 32);
    }
    return bytes;
}

class Client {
  public:
    explicit Client(int fd) : fd_{fd} {}
    Client() : fd_{connect_to(std::getenv("VXPAD_EMULATOR_USBIP"))} {
        if (fd_ < 0) {
            throw std::runtime_error("cannot connect");
        }
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { close(); }

    int fd() const { return fd_; }
    void close() {
        if (fd_ >= 0) {
            ::close(std::exchange(fd_, -1));
        }
    }

    void send(std::span<const std::uint8_t> bytes) {
        while (!bytes.empty()) {
            const auto size = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (size <= 0) {
                return; // the reply will be missing
            }
            bytes = bytes.subspan(static_cast<std::size_t>(size));
        }
    }

    // Whether nothing comes for a while.
    bool is_silent(std::chrono::milliseconds time = 50ms) {
        pollfd entry{fd_, POLLIN, 0};
        return ::poll(&entry, 1, static_cast<int>(time.count())) == 0;
    }

    // So many bytes; fewer at the end of the connection.
    Bytes receive(std::size_t size) {
        Bytes bytes(size);
        std::size_t have = 0;
        while (have < size) {
            pollfd entry{fd_, POLLIN, 0};
            if (::poll(&entry, 1, static_cast<int>(patience.count())) <= 0) {
                throw std::runtime_error("nothing comes");
            }
            const auto some = ::recv(fd_, bytes.data() + have, size - have, 0);
            if (some <= 0) {
                break;
            }
            have += static_cast<std::size_t>(some);
        }
        bytes.resize(have);
        return bytes;
    }

    // Whether the server has ended the connection, after whatever else it had sent.
    bool has_ended() {
        for (;;) {
            try {
                if (receive(4096).size() < 4096) {
                    return true;
                }
            } catch (const std::runtime_error&) {
                return false;
            }
        }
    }

    Device read_device() {
        const auto bytes = receive(312);
        if (bytes.size() < 312) {
            throw std::runtime_error("half a device");
        }
        const std::span all{bytes};
        Device device{text(all.first(256)),
                      text(all.subspan(256, 32)),
                      number(all, 288, 4),
                      number(all, 292, 4),
                      number(all, 296, 4),
                      number(all, 300, 2),
                      number(all, 302, 2),
                      Bytes(bytes.begin() + 304, bytes.end()),
                      {}};
        return device;
    }

    std::vector<Device> list() {
        send(operation(0x8005));
        const auto head = receive(12);
        if (head.size() != 12 || number(head, 0, 4) != 0x01110005 || number(head, 4, 4) != 0) {
            throw std::runtime_error("no list");
        }
        std::vector<Device> devices;
        for (auto left = number(head, 8, 4); left > 0; --left) {
            devices.push_back(read_device());
            for (int interface = 0; interface < devices.back().rest.back(); ++interface) {
                devices.back().interfaces.push_back(receive(4));
            }
        }
        return devices;
    }

    // The status of the reply; with 0 the pad belongs to this connection.
    std::uint32_t import(std::string_view bus_id) {
        send(operation(0x8003, bus_id));
        return read_import();
    }

    std::uint32_t read_import() {
        const auto head = receive(8);
        if (head.size() != 8 || number(head, 0, 4) != 0x01110003) {
            throw std::runtime_error("no reply to an import");
        }
        const auto status = number(head, 4, 4);
        if (status == 0) {
            imported_ = read_device();
            device_ = imported_.bus << 16 | imported_.address;
        }
        return status;
    }

    const Device& imported() const { return imported_; }
    std::uint32_t device() const { return device_; }
    void set_device(std::uint32_t device) { device_ = device; }

    Submit make(std::uint32_t endpoint, bool in, std::int32_t length) {
        Submit submit;
        submit.number = ++last_;
        submit.device = device_;
        submit.endpoint = endpoint;
        submit.in = in ? 1 : 0;
        submit.length = length;
        return submit;
    }

    // All return the number by which the reply will be known.
    std::uint32_t start(const Submit& submit) {
        send(submit.bytes());
        if (submit.in != 0) {
            asked_[submit.number] = submit.length;
        }
        return submit.number;
    }
    std::uint32_t start_in(std::uint32_t endpoint, std::int32_t length) { return start(make(endpoint, true, length)); }
    std::uint32_t start_control(const Setup& setup, const Bytes& data = {}) {
        auto submit = make(0, (setup.request_type & 0x80) != 0, setup.length);
        submit.setup = setup;
        submit.data = data;
        return start(submit);
    }
    std::uint32_t start_unlink(std::uint32_t unlinked) {
        Bytes bytes;
        for (const auto word : {2U, ++last_, device_, 0U, 0U, unlinked}) {
            put(bytes, word, 4);
        }
        bytes.resize(48);
        send(bytes);
        return last_;
    }

    Reply read_reply() {
        const auto head = receive(48);
        if (head.size() != 48) {
            throw std::runtime_error("the connection has ended");
        }
        Reply reply{number(head, 0, 4), number(head, 4, 4), static_cast<int>(number(head, 20, 4)), 0, {}};
        for (const auto& [offset, size] : {std::pair{8U, 12U}, {28U, 20U}}) { // nothing else is told
            for (const auto byte : std::span{head}.subspan(offset, size)) {
                if (byte != 0) {
                    throw std::runtime_error("something where nothing should be");
                }
            }
        }
        if (reply.code == 3) {
            reply.length = number(head, 24, 4);
            if (const auto asked = asked_.find(reply.number); asked != asked_.end()) {
                if (reply.length > static_cast<std::uint32_t>(asked->second)) {
                    throw std::runtime_error("more than was asked for");
                }
                reply.data = receive(reply.length);
                asked_.erase(asked);
            }
        } else if (reply.code != 4) {
            throw std::runtime_error("a reply of an unknown kind");
        }
        return reply;
    }

    Reply control(const Setup& setup, const Bytes& data = {}) {
        start_control(setup, data);
        return read_reply();
    }
    Reply get_descriptor(std::uint16_t value, std::uint16_t length) { return control({0x80, 6, value, 0, length}); }
    Reply out(std::uint32_t endpoint, const Bytes& data) {
        auto submit = make(endpoint, false, static_cast<std::int32_t>(data.size()));
        submit.data = data;
        start(submit);
        return read_reply();
    }

  private:
    int fd_;
    std::uint32_t device_ = 0;
    std::uint32_t last_ = 0;
    Device imported_;
    std::map<std::uint32_t, std::int32_t> asked_; // by number: bytes of a buffer
};

} // namespace usbip_client
