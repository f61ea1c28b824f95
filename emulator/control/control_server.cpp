#include "control/control_server.hpp"

#include "base/sockets.hpp"
#include "base/text.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sstream>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace emulator {

namespace {

constexpr std::size_t longest_request = 65536;

std::string hex16(unsigned int value) {
    return hex(std::array{static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value & 0xff)});
}

} // namespace

struct ControlServer::Command {
    std::string_view name;
    std::size_t least_words;
    std::size_t most_words;
    std::string_view usage;
    std::string (ControlServer::*run)(const Words& words);
};

ControlServer::ControlServer(EventLoop& loop, Bus& bus, std::string socket_path)
    : loop_{loop}, bus_{bus}, path_{std::move(socket_path)}, listener_{listen_at(path_)} {
    loop_.watch(listener_.get(), EPOLLIN, [this](std::uint32_t) { accept_client(); });
}

ControlServer::~ControlServer() {
    loop_.forget(listener_.get());
    for (const auto& [fd, client] : clients_) {
        loop_.forget(fd);
    }
    ::unlink(path_.c_str());
}

void ControlServer::accept_client() {
    Fd socket{::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)};
    if (!socket) {
        return;
    }
    const int fd = socket.get();
    clients_.emplace(fd, Client{std::move(socket), {}, {}});
    loop_.watch(fd, EPOLLIN, [this, fd](std::uint32_t events) { on_event(fd, events); });
}

void ControlServer::drop(int fd) {
    loop_.forget(fd);
    clients_.erase(fd);
}

void ControlServer::on_event(int fd, std::uint32_t events) {
    auto& client = clients_.at(fd);
    if ((events & EPOLLIN) != 0 && !receive(client)) {
        return drop(fd);
    }
    if ((events & EPOLLIN) == 0 && (events & (EPOLLHUP | EPOLLERR)) != 0) {
        return drop(fd);
    }
    for (auto end = client.received.find('\n'); end != std::string::npos; end = client.received.find('\n')) {
        const auto line = client.received.substr(0, end);
        client.received.erase(0, end + 1);
        client.unsent += answer(line) + "\n\n";
    }
    if (!flush(client)) {
        drop(fd);
    }
}

bool ControlServer::receive(Client& client) {
    std::array<char, 4096> buffer;
    const auto size = ::recv(client.socket.get(), buffer.data(), buffer.size(), 0);
    if (size <= 0) {
        return size < 0 && errno == EAGAIN;
    }
    client.received.append(buffer.data(), static_cast<std::size_t>(size));
    return client.received.size() <= longest_request;
}

bool ControlServer::flush(Client& client) {
    const int fd = client.socket.get();
    const auto sent = ::send(fd, client.unsent.data(), client.unsent.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno != EAGAIN) {
        return false;
    }
    client.unsent.erase(0, static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
    loop_.change(fd, client.unsent.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT);
    return true;
}

std::string ControlServer::answer(std::string_view request) {
    static constexpr std::array<Command, 17> commands{{
        {"list", 1, 1, "list", &ControlServer::list},
        {"plug", 2, 2, "plug N", &ControlServer::plug},
        {"unplug", 2, 2, "unplug N", &ControlServer::unplug},
        {"fault", 3, 3, "fault N FAULT", &ControlServer::fault},
        {"clear-faults", 2, 2, "clear-faults N", &ControlServer::clear_faults},
        {"input", 4, 5, "input N INTERFACE HEX [COUNT]", &ControlServer::input},
        {"log", 2, 2, "log N", &ControlServer::log},
        {"state", 2, 2, "state N", &ControlServer::state},
        {"ssp", 2, 2, "ssp N", &ControlServer::ssp},
        {"button", 3, 3, "button N VALUE", &ControlServer::button},
        {"pen", 3, 3, "pen N HEX", &ControlServer::pen},
        {"send", 3, 3, "send N HEX", &ControlServer::send},
        {"play", 2, 4, "play N [COUNT|once|loop] [RATE]", &ControlServer::play},
        {"stop", 2, 2, "stop N", &ControlServer::stop},
        {"replay", 3, 3, "replay N FILE", &ControlServer::replay},
        {"uploads", 2, 2, "uploads N", &ControlServer::uploads},
        {"reset-uploads", 2, 2, "reset-uploads N", &ControlServer::reset_uploads},
    }};
    std::istringstream stream{std::string{request}};
    Words words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    try {
        const auto* command =
            std::ranges::find_if(commands, [&](const auto& c) { return !words.empty() && c.name == words[0]; });
        if (command == commands.end()) {
            std::string usages;
            for (const auto& c : commands) {
                usages += (usages.empty() ? "" : ", ") + std::string{c.usage};
            }
            throw std::invalid_argument("unknown request; there are " + usages);
        }
        if (words.size() < command->least_words || words.size() > command->most_words) {
            throw std::invalid_argument("usage: " + std::string{command->usage});
        }
        auto text = (this->*command->run)(words);
        while (text.ends_with('\n')) {
            text.pop_back();
        }
        return text.empty() ? "ok" : "ok " + text;
    } catch (const std::invalid_argument& error) {
        return std::string{"error "} + error.what();
    }
}

Port& ControlServer::port(const Words& words) {
    const auto number = parse_number(words[1], 10, 1, std::max<std::size_t>(bus_.ports().size(), 1));
    auto* port = bus_.find(static_cast<unsigned int>(number));
    if (port == nullptr) {
        throw std::invalid_argument("there are no pads");
    }
    return *port;
}

Port& ControlServer::plugged_port(const Words& words) {
    auto& plugged = port(words);
    if (!plugged.device) {
        throw std::invalid_argument("pad " + words[1] + " is not plugged in");
    }
    return plugged;
}

SspPad& ControlServer::ssp_pad(const Words& words) {
    auto& plugged = plugged_port(words);
    if (!plugged.ssp) {
        throw std::invalid_argument("pad " + words[1] + " does not speak SSP");
    }
    return *plugged.ssp;
}

// A line for each pad.
std::string ControlServer::list(const Words&) {
    std::string text;
    for (const auto& port : bus_.ports()) {
        const auto& pad = port->settings;
        text += std::to_string(port->number) + (port->device ? " plugged" : " unplugged") + " port=" + port->name() +
                " kind=" + (pad.kind == PadKind::vcom ? "vcom" : "hid") + " address=" + std::to_string(port->address) +
                " type=" + std::to_string(pad.type) + " vendor=" + hex16(pad.vendor_id) +
                " id=" + hex16(pad.product_id) + " interfaces=" + std::to_string(pad.interfaces) +
                " serial=" + utf8(pad.serial.value_or(u"")) + "\n";
    }
    return text;
}

std::string ControlServer::plug(const Words& words) {
    auto& unplugged = port(words);
    if (unplugged.device) {
        throw std::invalid_argument("pad " + words[1] + " is plugged in");
    }
    bus_.plug(unplugged);
    return {};
}

std::string ControlServer::unplug(const Words& words) {
    bus_.unplug(plugged_port(words));
    return {};
}

std::string ControlServer::fault(const Words& words) {
    port(words).faults.add(parse_fault(words[2]));
    return {};
}

std::string ControlServer::clear_faults(const Words& words) {
    port(words).faults.clear();
    return {};
}

std::string ControlServer::input(const Words& words) {
    auto& pad = plugged_port(words);
    const auto interface = parse_count(words[2], 0, pad.settings.interfaces - 1);
    const auto report = parse_hex(words[3]);
    const auto count = words.size() > 4 ? parse_number(words[4], 10, 1, 1000000) : 1;
    for (unsigned long i = 0; i < count; ++i) {
        if (!pad.model->queue_input(interface, report)) {
            throw std::invalid_argument(report.size() > pad.settings.input_report_size()
                                            ? "an input report has at most " +
                                                  std::to_string(pad.settings.input_report_size()) + " bytes"
                                            : "too many input reports are waiting");
        }
    }
    return {};
}

std::string ControlServer::log(const Words& words) {
    return port(words).log.take();
}

std::string ControlServer::state(const Words& words) {
    auto& pad = port(words);
    return std::string{"plugged="} + (pad.device ? "1 " : "0 ") + (pad.model ? pad.model->state() : "") +
           (pad.device ? " " + pad.pen().state() : "");
}

std::string ControlServer::ssp(const Words& words) {
    return ssp_pad(words).state();
}

std::string ControlServer::button(const Words& words) {
    ssp_pad(words).press_button(static_cast<std::uint8_t>(parse_number(words[2], 10, 0, 255)));
    return {};
}

std::string ControlServer::pen(const Words& words) {
    auto& pad = ssp_pad(words);
    const auto record = parse_hex(words[2]);
    if (record.empty() || record.size() > longest_legacy_payload) {
        throw std::invalid_argument("pen data has 1 to " + std::to_string(longest_legacy_payload) + " bytes");
    }
    pad.send_pen_data(record);
    return {};
}

std::string ControlServer::send(const Words& words) {
    ssp_pad(words).outbox().send_raw(parse_hex(words[2]));
    return {};
}

std::string ControlServer::play(const Words& words) {
    auto& pad = plugged_port(words);
    const auto& pen = pad.settings.pen;
    const std::string how_often = words.size() > 2 ? words[2] : "once";
    std::optional<std::uint64_t> count;
    if (how_often == "once") {
        count = pen.signature->size();
    } else if (how_often != "loop") {
        count = parse_number(how_often, 10, 1, 1000000000);
    }
    const auto rate = words.size() > 3 ? words[3] : std::to_string(pen.rate);
    pad.pen().play(count, parse_count(rate, 1, fastest_pen));
    return {};
}

std::string ControlServer::stop(const Words& words) {
    plugged_port(words).pen().stop();
    return {};
}

std::string ControlServer::replay(const Words& words) {
    auto& pad = plugged_port(words);
    auto recording = read_recording(words[2]);
    const auto most = pad.settings.kind == PadKind::hid ? pad.settings.input_report_size() : longest_legacy_payload;
    if (recording.longest_packet > most) {
        throw std::invalid_argument(words[2] + ": has packets of " + std::to_string(recording.longest_packet) +
                                    " bytes; the pad sends at most " + std::to_string(most));
    }
    pad.pen().replay(std::move(recording));
    return {};
}

std::string ControlServer::uploads(const Words& words) {
    auto& pad = port(words);
    return pad.model ? pad.model->uploads().text() : "";
}

std::string ControlServer::reset_uploads(const Words& words) {
    auto& pad = port(words);
    if (pad.model) {
        pad.model->uploads().reset();
    }
    return {};
}

} // namespace emulator
