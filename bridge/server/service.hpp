// What clients ask, and who hears what the pads say. Knows nothing of sockets.
#pragma once

#include "pads/pad_thread.hpp"
#include "protocol/requests.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bridge {

using ClientId = std::uint64_t;

struct ServiceSettings {
    std::string version;
    std::string layout; // of pen data, where a client names none
};

// All of it runs on one thread, that of its owner.
class Service {
  public:
    using Send = std::function<void(ClientId client, std::string message)>; // does not call back
    using Post = std::function<void(std::function<void()> later)>; // has the owner's thread run it; for any thread

    Service(ServiceSettings settings, Send send, Post post);
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    void join(ClientId client);
    void leave(ClientId client);
    void take_text(ClientId client, std::string_view text);
    void take_bytes(ClientId client, std::span<const unsigned char> bytes);

    // To be called every second: an upload whose client has fallen silent makes way.
    void look_at_clock();

  private:
    using Interface = std::pair<unsigned int, unsigned int>; // of a pad

    struct Listener {
        vxpadctl::Layout layout;
        bool has_begun = false;  // the answer to its start has gone out
        bool is_leaving = false; // the answer to its stop has not
    };

    struct Client {
        std::size_t waiting = 0; // requests without an answer yet
        std::map<Interface, Listener> listens;
    };

    struct Upload {
        ClientId client = 0;
        Request request;
        std::vector<std::uint8_t> data;
        std::size_t sent = 0;
        bool is_sending = false;
        std::chrono::steady_clock::time_point last_sign;
    };

    using Ask = std::function<std::string(Pads& pads)>; // gives the answer
    using Then = std::function<void(bool is_well)>;

    void answer(ClientId client, const Request& request);
    void run(ClientId client, std::int64_t id, Ask ask, Then then = {});
    void finish(ClientId client, std::string message);
    void start(ClientId client, const Request& request);
    void stop(ClientId client, const Request& request);
    void stop_listening(ClientId client, const Interface& from);
    bool is_heard(const Interface& from) const;
    void upload(ClientId client, const Request& request);
    void send_next_part();
    void end_upload(std::string message);
    void hand_on_pen_data();
    void tell_all(const std::string& message);
    void forget_pad(unsigned int pad);

    ServiceSettings settings_;
    vxpadctl::Layout layout_;
    Send send_;
    Post post_;
    std::map<ClientId, Client> clients_;
    std::shared_ptr<Upload> upload_;
    std::unique_ptr<PadThread> pads_; // the last: it calls the others
};

} // namespace bridge
