// What the preload library asks of virtual pads, from a program that has gone mad.
//
// Steps, a byte each with what it needs: a request of one of two clients, whole or as raw bytes; a client goes; a pad
// is plugged in or pulled out; a pad sends by itself. Each whole request has one reply. An accepted transfer is
// completed at most once, with a status of the protocol and never with more bytes than were asked for. In the end all
// files are closed and a well-behaved client finds every pad in order.
#include "host/usbfs_protocol.h"
#include "host/usbfs_server.hpp"
#include "input.hpp"
#include "virtual_pads.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <iterator>
#include <linux/usbdevice_fs.h>
#include <map>
#include <optional>

namespace {

using emulator::Fd;
using fuzz::Bytes;

constexpr std::size_t most_steps = 40;

std::pair<Fd, Fd> socket_pair() {
    std::array<int, 2> ends{};
    fuzz::require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "sockets");
    return {Fd{ends[0]}, Fd{ends[1]}};
}

Fd nonsense(unsigned int kind) {
    switch (kind % 4) {
    case 0:
        return Fd{::open("/dev/null", O_RDWR | O_CLOEXEC)};
    case 1:
        return Fd{::open("/proc/self/exe", O_RDONLY | O_CLOEXEC)};
    case 2: { // a pipe that keeps who reads it waiting
        std::array<int, 2> ends{};
        fuzz::require(::pipe2(ends.data(), O_CLOEXEC) == 0, "a pipe");
        static Fd writing; // an end that stays, or reading would find the end of the data
        writing = Fd{ends[1]};
        return Fd{ends[0]};
    }
    default:
        return Fd{::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    }
}

void send_with(int socket, const Bytes& bytes, const std::vector<Fd>& passed) {
    std::vector<int> numbers;
    std::transform(passed.begin(), passed.end(), std::back_inserter(numbers), [](const Fd& fd) { return fd.get(); });
    static_cast<void>(fuzz::send_with(socket, bytes, numbers, MSG_NOSIGNAL | MSG_DONTWAIT));
}

Bytes received(int fd) {
    Bytes bytes;
    std::array<unsigned char, 65536> buffer;
    ssize_t size = 0;
    while ((size = ::recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0) {
        bytes.insert(bytes.end(), buffer.begin(), buffer.begin() + size);
    }
    return bytes;
}

template <typename Value> Value take(Bytes& bytes) {
    Value value{};
    fuzz::require(bytes.size() >= sizeof value, "whole structures");
    std::memcpy(&value, bytes.data(), sizeof value);
    bytes.erase(bytes.begin(), bytes.begin() + sizeof value);
    return value;
}

// Completions on one socket, against what was asked for.
class Completions {
  public:
    explicit Completions(Fd socket) : socket_{std::move(socket)} {}

    // Of an accepted transfer. Nothing may have looked since it was asked for: it may be completed with the reply.
    void expect(std::uint64_t urb, std::uint32_t length) {
        fuzz::require(asked_.emplace(urb, length).second, "one transfer of this number");
    }

    void look() {
        Bytes bytes = received(socket_.get());
        while (!bytes.empty()) {
            const auto completion = take<usbfs_completion>(bytes);
            const auto found = asked_.find(completion.urb);
            fuzz::require(found != asked_.end(), "a completion of what was submitted");
            constexpr std::array statuses{0, -EPIPE, -EOVERFLOW, -ENOENT, -ESHUTDOWN};
            fuzz::require(std::find(statuses.begin(), statuses.end(), completion.status) != statuses.end(), "status");
            fuzz::require(completion.length <= found->second, "length of a transfer");
            fuzz::require(completion.payload <= completion.length, "bytes of a transfer");
            fuzz::require(bytes.size() >= completion.payload, "all bytes of a transfer");
            bytes.erase(bytes.begin(), bytes.begin() + completion.payload);
            last = completion;
            asked_.erase(found);
        }
    }
    std::size_t outstanding() const { return asked_.size(); }

    usbfs_completion last{};

  private:
    Fd socket_;
    std::map<std::uint64_t, std::uint32_t> asked_;
};

struct Client {
    Fd requests;
    Fd pipe; // the end that the application has
    std::unique_ptr<Completions> completions;
    std::vector<std::unique_ptr<Completions>> transfers;
    bool is_raw = false; // what it has sent is no whole request

    void look() {
        if (completions) {
            completions->look();
        }
        for (const auto& transfer : transfers) {
            transfer->look();
        }
    }
};

class Run {
  public:
    Run() : path_{fuzz::socket_path()}, server_{pads_.loop, pads_.bus, path_} { pads_.plug_all(); }

    void perform(fuzz::Input& input) {
        for (std::size_t i = 0; i < most_steps && !input.has_ended(); ++i) {
            step(input);
            for (auto& client : clients_) {
                client.look();
            }
        }
        clients_ = {};
        pads_.run();
        check_pads();
    }

  private:
    void step(fuzz::Input& input) {
        const unsigned char what = input.byte();
        auto& port = *pads_.bus.ports()[what / 8 % 3];
        switch (what % 8) {
        case 4:
            clients_[what / 8 % 2] = {};
            return pads_.run();
        case 5:
            if (port.device) {
                pads_.bus.unplug(port);
            } else {
                pads_.bus.plug(port);
            }
            return pads_.run();
        case 6:
            if (port.device && port.ssp) {
                port.ssp->send_pen_data(Bytes(1 + input.below(64), 7));
            }
            return pads_.run();
        case 7:
            if (port.device && port.settings.kind == emulator::PadKind::hid) {
                port.model->queue_input(0, Bytes(1 + input.below(20), 7));
            }
            return pads_.run();
        case 3:
            return send_raw(client(what / 8 % 2), input.counted());
        default:
            request(client(what / 8 % 2), input);
        }
    }

    Client& client(std::size_t which) {
        Client& chosen = clients_[which];
        if (!chosen.requests || chosen.is_raw) {
            chosen = {};
            chosen.requests = fuzz::connect_to(path_);
            pads_.run();
        }
        return chosen;
    }

    void send_raw(Client& client, const Bytes& bytes) {
        client.is_raw = true;
        send_with(client.requests.get(), bytes, {});
        pads_.run();
    }

    void request(Client& client, fuzz::Input& input) {
        static constexpr std::array<std::uint32_t, 8> lengths{0, 8, 18, 64, 65, 512, 65537, 20'000'000};
        usbfs_request request{};
        const unsigned char operation = input.byte();
        request.operation = operation % 17;
        request.interface = input.byte();
        request.argument = input.byte();
        request.urb = input.below(4);
        const unsigned char shape = input.byte();
        request.length = lengths[shape % lengths.size()];
        request.type = (shape & 0x7F) / 8 % 5;
        request.endpoint = input.byte();
        const Bytes setup = input.bytes(sizeof request.setup);
        std::copy(setup.begin(), setup.end(), request.setup);
        Bytes payload = input.counted();
        const unsigned char passing = input.byte();
        if ((shape & 0x80) == 0) { // as the preload library does it
            const bool is_control = request.type == USBDEVFS_URB_TYPE_CONTROL;
            const bool is_in = ((is_control ? request.setup[0] : request.endpoint) & 0x80) != 0;
            payload.resize(is_in ? 0 : std::min<std::size_t>(request.length, 512));
            request.length = is_in ? request.length : static_cast<std::uint32_t>(payload.size());
        }
        request.payload = static_cast<std::uint32_t>(payload.size());
        send(client, request, payload, passing);
    }

    void send(Client& client, usbfs_request request, const Bytes& payload, unsigned int passing) {
        std::vector<Fd> passed;
        Fd pipe;
        std::unique_ptr<Completions> completions;
        if (request.operation == usbfs_open || request.operation == usbfs_transfer) {
            auto [own, other] = socket_pair();
            completions = std::make_unique<Completions>(std::move(own));
            passed.push_back(std::move(other));
        }
        if (request.operation == usbfs_open) {
            std::array<int, 2> ends{};
            fuzz::require(::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) == 0, "a pipe");
            passed.emplace_back(ends[0]);
            pipe = Fd{ends[1]};
            if ((passing & 0x10) == 0) { // as the preload library does it: a pad that is there
                request.interface = emulator::Bus::number;
                const auto& port = *pads_.bus.ports()[request.argument % 3];
                request.argument = port.address;
            }
        }
        if ((passing & 0x20) != 0 && !passed.empty()) {
            passed[passing / 0x40 % passed.size()] = nonsense(passing);
        }
        if ((passing & 8) != 0) {
            passed.push_back(nonsense(passing));
        }
        Bytes bytes(sizeof request);
        std::memcpy(bytes.data(), &request, sizeof request);
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        send_with(client.requests.get(), bytes, passed);
        passed.clear();

        pads_.run();
        Bytes answer = received(client.requests.get());
        const auto reply = take<usbfs_reply>(answer);
        fuzz::require(answer.empty(), "one reply");
        fuzz::require(reply.error >= 0 && reply.error < 134, "an errno value");
        if (reply.error != 0) {
            return;
        }
        switch (request.operation) {
        case usbfs_open:
            client.completions = std::move(completions);
            client.pipe = std::move(pipe);
            break;
        case usbfs_submit:
            client.completions->expect(request.urb, request.length);
            break;
        case usbfs_transfer:
            completions->expect(request.urb, request.length);
            client.transfers.push_back(std::move(completions));
            break;
        default:
            break;
        }
    }

    // Device descriptor and configuration, through a client of its own.
    void check_pads() {
        for (const auto& port : pads_.bus.ports()) {
            pads_.bus.plug(*port);
            Client well_behaved;
            well_behaved.requests = fuzz::connect_to(path_);
            usbfs_request request{};
            request.operation = usbfs_open;
            request.argument = port->number - 1;
            send(well_behaved, request, {}, 0);
            fuzz::require(well_behaved.completions != nullptr, "a pad that opens");
            request = {};
            request.operation = usbfs_submit;
            request.type = USBDEVFS_URB_TYPE_CONTROL;
            request.length = 18;
            constexpr std::array<unsigned char, 8> device_descriptor{0x80, 6, 0, 1, 0, 0, 18, 0};
            std::copy(device_descriptor.begin(), device_descriptor.end(), request.setup);
            send(well_behaved, request, {}, 0);
            well_behaved.look();
            fuzz::require(well_behaved.completions->outstanding() == 0, "a completion");
            fuzz::require(well_behaved.completions->last.status == 0 && well_behaved.completions->last.length == 18,
                          "a descriptor");
        }
        pads_.run();
    }

    fuzz::VirtualPads pads_;
    std::string path_;
    emulator::UsbfsServer server_;
    std::array<Client, 2> clients_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input{data, size};
    Run{}.perform(input);
    return 0;
}
