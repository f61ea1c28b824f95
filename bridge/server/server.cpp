#include "server/server.hpp"

#include "access/token.hpp"
#include "server/page.hpp"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <deque>
#include <functional>
#include <iostream>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace bridge {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = asio::ip::tcp;
using Error = boost::system::error_code;

constexpr std::size_t longest_head = 8192;
constexpr std::size_t most_strangers = 32; // connections that have not shown the token yet
constexpr std::size_t most_clients = 16;
constexpr std::size_t most_unread = 4U << 20; // bytes that a client lets wait
constexpr std::size_t most_lines = 100;       // of refusals, so that nobody fills the journal
constexpr std::chrono::seconds for_head{5};
constexpr std::chrono::seconds for_silence{30}; // behind half of it the client is pinged
constexpr std::chrono::seconds for_farewell{1};

using Request = http::request<http::empty_body>;

std::string_view view(beast::string_view text) {
    return {text.data(), text.size()};
}

std::vector<std::string_view> lines_of(const Request& request, http::field name) {
    std::vector<std::string_view> lines;
    const auto [begin, end] = request.equal_range(name);
    for (auto line = begin; line != end; ++line) {
        lines.push_back(view(line->value()));
    }
    return lines;
}

Head head_of(const Request& request) {
    Head head;
    head.method = view(request.method_string());
    head.target = view(request.target());
    head.hosts = lines_of(request, http::field::host);
    head.origins = lines_of(request, http::field::origin);
    head.fetch_destination = view(request["Sec-Fetch-Dest"]);
    head.is_upgrade = websocket::is_upgrade(request);
    return head;
}

// What a stranger sends does not get to a terminal as it is.
std::string harmless(std::string_view text) {
    constexpr std::size_t longest = 100;
    std::string shown{text.substr(0, longest)};
    std::ranges::replace_if(
        shown, [](char c) { return c < ' ' || c > '~'; }, '?');
    return shown;
}

class Connection;
using ConnectionPointer = std::shared_ptr<Connection>;

// What a connection wants of the server, which outlives it.
class House {
  public:
    virtual const Rules& rules() const = 0;
    virtual bool reserve_place(ClientId client) = 0; // until it is let in or out
    virtual void note_refusal(const Head& head, const Decision& decision) = 0;
    virtual void let_in(const ConnectionPointer& connection) = 0;
    virtual void take_text(ClientId client, std::string_view text) = 0;
    virtual void take_bytes(ClientId client, std::span<const unsigned char> bytes) = 0;
    virtual void let_out(const ConnectionPointer& connection) = 0; // whichever way it ended

  protected:
    ~House() = default;
};

class Connection : public std::enable_shared_from_this<Connection> {
  public:
    Connection(tcp::socket socket, House& house, ClientId id) : socket_{std::move(socket)}, house_{house}, id_{id} {}

    ClientId id() const { return id_; }

    void begin() {
        Error ignored;
        stream().socket().set_option(tcp::no_delay{true}, ignored);
        stream().expires_after(for_head);
        head_.header_limit(longest_head);
        http::async_read_header(stream(), buffer_, head_,
                                [self = shared_from_this()](Error error, std::size_t) { self->take_head(error); });
    }

    // Ends all that is under way, whose handlers then let it out.
    void cut() { stream().close(); }

    void say_farewell() {
        socket_.async_close(websocket::close_code::going_away, [self = shared_from_this()](Error) {});
    }

    // A client that does not read loses its connection and nobody else's.
    void send(std::string message) {
        unread_ += message.size();
        if (unread_ > most_unread) {
            return cut();
        }
        outgoing_.push_back(std::move(message));
        if (outgoing_.size() == 1) {
            write();
        }
    }

  private:
    beast::tcp_stream& stream() { return beast::get_lowest_layer(socket_); }

    void take_head(Error error) {
        if (error && error.category() != Error{http::error::bad_method}.category()) {
            return house_.let_out(shared_from_this()); // gone, or too slow
        }
        if (error == http::error::end_of_stream) {
            return house_.let_out(shared_from_this());
        }
        const Head head = head_of(head_.get());
        if (error || (head.is_upgrade && buffer_.size() != 0)) {
            return refuse(head, {Grant::nothing, 400, "this is no request"});
        }
        const Decision decision = decide(head, house_.rules());
        switch (decision.grant) {
        case Grant::nothing:
            return refuse(head, decision);
        case Grant::page:
            return show_page();
        case Grant::pads:
            return house_.reserve_place(id_) ? accept()
                                             : refuse(head, {Grant::nothing, 503, "there are too many clients"});
        }
    }

    void refuse(const Head& head, const Decision& decision) {
        house_.note_refusal(head, decision);
        answer(decision.status, "text/plain; charset=utf-8", std::string{decision.why} + "\n",
               "default-src 'none'; frame-ancestors 'none'");
    }

    void show_page() {
        const std::string nonce = make_token();
        answer(200, "text/html; charset=utf-8", make_page(nonce), page_policy(nonce, house_.rules().port));
    }

    void answer(unsigned int status, const char* type, std::string body, const std::string& policy) {
        const auto response = std::make_shared<http::response<http::string_body>>();
        response->result(status);
        response->set(http::field::content_type, type);
        response->set(http::field::cache_control, "no-store");
        response->set("Content-Security-Policy", policy);
        response->set("Cross-Origin-Opener-Policy", "same-origin");
        response->set("Cross-Origin-Resource-Policy", "same-origin");
        response->set("Referrer-Policy", "no-referrer");
        response->set("X-Content-Type-Options", "nosniff");
        response->keep_alive(false);
        response->body() = std::move(body);
        response->prepare_payload();
        http::async_write(stream(), *response, [self = shared_from_this(), response](Error error, std::size_t) {
            Error ignored;
            self->stream().socket().shutdown(tcp::socket::shutdown_send, ignored);
            self->drain(error);
        });
    }

    // Closing with something unread would take the answer back.
    void drain(Error error) {
        drained_ += buffer_.size();
        buffer_.consume(buffer_.size());
        if (error || drained_ > longest_head) {
            cut();
            return house_.let_out(shared_from_this());
        }
        stream().async_read_some(buffer_.prepare(longest_head),
                                 [self = shared_from_this()](Error failure, std::size_t size) {
                                     self->buffer_.commit(size);
                                     self->drain(failure);
                                 });
    }

    void accept() {
        stream().expires_never(); // the WebSocket has its own clock
        socket_.set_option(websocket::stream_base::timeout{for_head, for_silence, true});
        socket_.read_message_max(longest_message);
        socket_.auto_fragment(false);
        socket_.async_accept(head_.get(), [self = shared_from_this()](Error error) {
            if (error) {
                return self->house_.let_out(self);
            }
            self->house_.let_in(self);
            self->read();
        });
    }

    void read() {
        socket_.async_read(buffer_, [self = shared_from_this()](Error error, std::size_t) { self->take(error); });
    }

    void take(Error error) {
        if (error) {
            cut();
            return house_.let_out(shared_from_this());
        }
        const auto data = buffer_.data();
        if (socket_.got_text()) {
            house_.take_text(id_, {static_cast<const char*>(data.data()), data.size()});
        } else {
            house_.take_bytes(id_, {static_cast<const unsigned char*>(data.data()), data.size()});
        }
        buffer_.consume(buffer_.size());
        read();
    }

    void write() {
        socket_.text(true);
        socket_.async_write(asio::buffer(outgoing_.front()), [self = shared_from_this()](Error error, std::size_t) {
            if (error) {
                return self->cut();
            }
            self->unread_ -= self->outgoing_.front().size();
            self->outgoing_.pop_front();
            if (!self->outgoing_.empty()) {
                self->write();
            }
        });
    }

    websocket::stream<beast::tcp_stream> socket_;
    House& house_;
    ClientId id_;
    beast::flat_buffer buffer_;
    http::request_parser<http::empty_body> head_;
    std::deque<std::string> outgoing_;
    std::size_t unread_ = 0;
    std::size_t drained_ = 0;
};

bool is_ignored(int signal) {
    struct sigaction action {};
    return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

std::string no_listening(const std::string& address, unsigned short port, const Error& error) {
    return "cannot listen at " + address + ", port " + std::to_string(port) + ": " + error.message();
}

} // namespace

struct Server::Parts final : House {
    explicit Parts(ServerSettings given) : settings{std::move(given)} {}

    // False where an address is missing that nobody asked for by name, or one port is not free at all addresses.
    bool open_door(const std::string& address, unsigned short port, Error& error) {
        const tcp::endpoint place{asio::ip::make_address(address), port};
        tcp::acceptor door{io};
        door.open(place.protocol(), error);
        if (!error) {
            door.set_option(asio::socket_base::reuse_address{true}, error);
        }
        if (!error && place.address().is_v6()) {
            door.set_option(asio::ip::v6_only{true}, error);
        }
        if (!error) {
            door.bind(place, error);
        }
        if (!error) {
            door.listen(asio::socket_base::max_listen_connections, error);
        }
        if (error) {
            return false;
        }
        allowed.port = door.local_endpoint().port();
        doors.push_back(std::move(door));
        return true;
    }

    void open_doors() {
        const bool is_chosen = !settings.addresses.empty();
        const std::vector<std::string> addresses =
            is_chosen ? settings.addresses : std::vector<std::string>{"127.0.0.1", "::1"};
        constexpr int most_attempts = 10; // a free port of one address may be taken at the other
        for (int attempt = 1;; ++attempt) {
            doors.clear();
            unsigned short port = settings.port;
            Error error;
            for (const std::string& address : addresses) {
                if (!open_door(address, port, error)) {
                    if (error == asio::error::address_in_use && settings.port == 0 && attempt < most_attempts) {
                        break;
                    }
                    const bool is_needed = is_chosen || doors.empty() || error == asio::error::address_in_use;
                    if (is_needed) {
                        throw std::runtime_error(no_listening(address, port, error));
                    }
                    error.clear();
                }
                port = allowed.port;
            }
            if (!error) {
                return;
            }
        }
    }

    const Rules& rules() const override { return allowed; }
    bool reserve_place(ClientId client) override {
        return clients.size() + entering.size() < most_clients && entering.insert(client).second;
    }

    void note_refusal(const Head& head, const Decision& decision) override {
        if (lines == most_lines || decision.status == 404) { // browsers ask for icons
            return;
        }
        ++lines;
        std::cerr << "vxpad-bridge: refused: " << decision.why;
        if (!head.origins.empty()) {
            std::cerr << " (origin " << harmless(head.origins.front()) << ')';
        }
        std::cerr << (lines == most_lines ? "; no further refusal is told" : "") << std::endl;
    }

    void let_in(const ConnectionPointer& connection) override {
        strangers.remove(connection);
        entering.erase(connection->id());
        clients[connection->id()] = connection;
        service->join(connection->id());
    }

    void take_text(ClientId client, std::string_view text) override { service->take_text(client, text); }
    void take_bytes(ClientId client, std::span<const unsigned char> bytes) override {
        service->take_bytes(client, bytes);
    }

    void let_out(const ConnectionPointer& connection) override {
        strangers.remove(connection);
        entering.erase(connection->id());
        if (clients.erase(connection->id()) != 0) {
            service->leave(connection->id());
        }
        if (is_closing && clients.empty()) {
            io.stop();
        }
    }

    void take_in(tcp::socket socket) {
        if (strangers.size() == most_strangers) {
            const ConnectionPointer oldest = strangers.front();
            strangers.pop_front();
            oldest->cut();
        }
        strangers.push_back(std::make_shared<Connection>(std::move(socket), *this, ++last_id));
        strangers.back()->begin();
    }

    void wait_at(tcp::acceptor& door) {
        door.async_accept([this, &door](Error error, tcp::socket socket) {
            if (is_closing) {
                return;
            }
            if (!error) {
                take_in(std::move(socket));
                return wait_at(door);
            }
            // No descriptor is free: some are soon, when strangers have been slow for too long.
            const auto pause = std::make_shared<asio::steady_timer>(io, std::chrono::milliseconds(100));
            pause->async_wait([this, &door, pause](Error) { wait_at(door); });
        });
    }

    void tick() {
        clock.expires_after(std::chrono::seconds(1));
        clock.async_wait([this](Error error) {
            if (!error) {
                service->look_at_clock();
                tick();
            }
        });
    }

    void close() {
        is_closing = true;
        for (tcp::acceptor& door : doors) {
            Error ignored;
            door.close(ignored);
        }
        for (const auto& [id, client] : clients) {
            client->say_farewell();
        }
        if (clients.empty()) {
            return io.stop();
        }
        clock.expires_after(for_farewell);
        clock.async_wait([this](Error) { io.stop(); });
    }

    ServerSettings settings;
    Rules allowed{};
    asio::io_context io{1};
    asio::steady_timer clock{io};
    asio::signal_set signals{io, SIGINT, SIGTERM};
    std::list<tcp::acceptor> doors;
    std::list<ConnectionPointer> strangers;
    std::set<ClientId> entering; // strangers that have shown the token and wait for their answer
    std::map<ClientId, ConnectionPointer> clients;
    ClientId last_id = 0;
    std::size_t lines = 0;
    bool is_closing = false;
    std::optional<Service> service; // the last: its threads post to the others
};

Server::Server(ServerSettings settings) : parts_{std::make_unique<Parts>(std::move(settings))} {
    parts_->allowed.origins = parts_->settings.origins;
    parts_->allowed.token = parts_->settings.token;
    parts_->open_doors();
}

Server::~Server() = default;

unsigned short Server::port() const {
    return parts_->allowed.port;
}

void Server::run() {
    Parts& parts = *parts_;
    parts.service.emplace(
        parts.settings.service,
        [&parts](ClientId client, std::string message) {
            const auto found = parts.clients.find(client);
            if (found != parts.clients.end()) {
                found->second->send(std::move(message));
            }
        },
        [&parts](std::function<void()> later) { asio::post(parts.io, std::move(later)); });
    if (!is_ignored(SIGHUP)) { // as under nohup
        parts.signals.add(SIGHUP);
    }
    parts.signals.async_wait([&parts](Error error, int) {
        if (!error) {
            parts.close();
        }
    });
    for (tcp::acceptor& door : parts.doors) {
        parts.wait_at(door);
    }
    parts.tick();
    parts.io.run();
    parts.service.reset();
}

} // namespace bridge
