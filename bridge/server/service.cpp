#include "server/service.hpp"

#include "protocol/messages.hpp"

#include <algorithm>
#include <tuple>
#include <utility>
#include <vxpadcom/vxpadcom.hpp>

namespace bridge {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t most_waiting = 16; // requests of a client
constexpr std::chrono::seconds longest_silence{10};

// Runs what asks the pads and makes a message of its failure.
template <typename Ask> std::pair<std::string, bool> attempt(std::int64_t id, const Ask& ask) {
    try {
        return {ask(), true};
    } catch (const NoSuchPad& error) {
        return {failed(id, "no-pad", error.what()), false};
    } catch (const NoReply& error) {
        return {failed(id, "no-reply", error.what()), false};
    } catch (const vxpadcom::error& error) {
        return {failed(id, "failed", error.message()), false};
    } catch (const std::exception& error) {
        return {failed(id, "failed", error.what()), false};
    }
}

} // namespace

Service::Service(ServiceSettings settings, Send send, Post post)
    : settings_{std::move(settings)}, send_{std::move(send)}, post_{std::move(post)} {
    if (!settings_.layout.empty()) {
        layout_ = vxpadctl::parse_layout(settings_.layout);
    }
    PadEvents events;
    events.plugged = [this](const Pad& pad) { post_([this, told = plugged(pad)] { tell_all(told); }); };
    events.unplugged = [this](unsigned int pad) { post_([this, pad] { forget_pad(pad); }); };
    events.pen = [this] { post_([this] { hand_on_pen_data(); }); };
    pads_ = std::make_unique<PadThread>(std::move(events));
}

void Service::join(ClientId client) {
    clients_[client];
    send_(client, welcome(settings_.version, settings_.layout));
}

void Service::leave(ClientId client) {
    const auto found = clients_.find(client);
    if (found == clients_.end()) {
        return;
    }
    while (!found->second.listens.empty()) {
        const Interface from = found->second.listens.begin()->first;
        stop_listening(client, from);
    }
    clients_.erase(found);
    if (upload_ && upload_->client == client && !upload_->is_sending) {
        upload_.reset();
    }
}

void Service::take_text(ClientId client, std::string_view text) {
    const auto found = clients_.find(client);
    if (found == clients_.end()) {
        return;
    }
    try {
        const Request request = parse_request(text);
        if (found->second.waiting == most_waiting) {
            send_(client, failed(request.id, "busy", "too many requests wait for their answers"));
            return;
        }
        ++found->second.waiting;
        answer(client, request);
    } catch (const BadRequest& error) {
        send_(client, failed(error.id, "bad-request", error.what()));
    }
}

void Service::answer(ClientId client, const Request& request) {
    switch (request.ask) {
    case bridge::Ask::list:
        return run(client, request.id, [id = request.id](Pads& pads) { return pads_told(id, pads.list()); });
    case bridge::Ask::info:
        return run(client, request.id, [id = request.id, pad = request.pad](Pads& pads) {
            const Pad told = pads.ask_facts(pad);
            std::vector<unsigned int> receiving;
            for (unsigned int interface = 0; interface < told.facts.report_bytes.size(); ++interface) {
                if (pads.is_receiving(pad, interface)) {
                    receiving.push_back(interface);
                }
            }
            return pad_told(id, told, receiving);
        });
    case bridge::Ask::get_feature:
        return run(client, request.id, [request](Pads& pads) {
            return bytes_told(request.id, pads.get_feature(request.pad, request.interface, request.size));
        });
    case bridge::Ask::set_feature:
        return run(client, request.id, [request](Pads& pads) {
            pads.set_feature(request.pad, request.interface, request.bytes);
            return done(request.id);
        });
    case bridge::Ask::write:
        return run(client, request.id, [request](Pads& pads) {
            pads.write(request.pad, request.interface, request.bytes);
            return done(request.id);
        });
    case bridge::Ask::ssp:
        return run(client, request.id, [request](Pads& pads) {
            return bytes_told(request.id, pads.ask_ssp(request.pad, request.interface, request.bytes, request.timeout));
        });
    case bridge::Ask::start:
        return start(client, request);
    case bridge::Ask::stop:
        return stop(client, request);
    case bridge::Ask::upload:
        return upload(client, request);
    }
}

void Service::run(ClientId client, std::int64_t id, Ask ask, Then then) {
    pads_->ask([this, client, id, ask = std::move(ask), then = std::move(then)](Pads& pads) {
        auto [message, is_well] = attempt(id, [&] { return ask(pads); });
        post_([this, client, then, message = std::move(message), is_well = is_well]() mutable {
            if (then) {
                then(is_well);
            }
            finish(client, std::move(message));
        });
    });
}

void Service::finish(ClientId client, std::string message) {
    const auto found = clients_.find(client);
    if (found != clients_.end()) {
        --found->second.waiting;
        send_(client, std::move(message));
    }
}

bool Service::is_heard(const Interface& from) const {
    return std::ranges::any_of(clients_, [&](const auto& client) {
        const auto listener = client.second.listens.find(from);
        return listener != client.second.listens.end() && !listener->second.is_leaving;
    });
}

void Service::start(ClientId client, const Request& request) {
    const Interface from{request.pad, request.interface};
    // From here on the end of somebody else's listening does not stop the pad.
    Listener& listener = clients_[client].listens[from];
    listener.layout = request.layout.value_or(layout_);
    listener.is_leaving = false;
    run(
        client, request.id,
        [request](Pads& pads) {
            pads.start(request.pad, request.interface);
            return done(request.id);
        },
        [this, client, from](bool is_well) {
            const auto found = clients_.find(client);
            if (found == clients_.end()) {
                return;
            }
            const auto listens = found->second.listens.find(from);
            if (listens == found->second.listens.end()) {
                return;
            }
            if (is_well) {
                listens->second.has_begun = true;
            } else {
                found->second.listens.erase(listens);
            }
        });
}

void Service::stop(ClientId client, const Request& request) {
    const Interface from{request.pad, request.interface};
    auto& listens = clients_[client].listens;
    if (const auto listener = listens.find(from); listener != listens.end()) {
        listener->second.is_leaving = true;
    }
    run(
        client, request.id,
        [request, is_last = !is_heard(from)](Pads& pads) {
            if (is_last) {
                pads.stop(request.pad, request.interface);
            }
            return done(request.id);
        },
        [this, client, from](bool) {
            // The pad's last packets were posted before this, and have been handed on.
            if (const auto found = clients_.find(client); found != clients_.end()) {
                std::erase_if(found->second.listens, [&](const auto& listener) {
                    return listener.first == from && listener.second.is_leaving;
                });
            }
        });
}

void Service::stop_listening(ClientId client, const Interface& from) {
    clients_[client].listens.erase(from);
    if (!is_heard(from)) {
        pads_->ask([from](Pads& pads) { attempt(0, [&] { return pads.stop(from.first, from.second), done(0); }); });
    }
}

void Service::hand_on_pen_data() {
    std::map<Interface, std::vector<const PenPacket*>> parts;
    const std::vector<PenPacket> packets = pads_->inbox().take();
    for (const PenPacket& packet : packets) {
        parts[{packet.pad, packet.interface}].push_back(&packet);
    }
    constexpr std::size_t most_in_message = 256;
    for (const auto& [from, list] : parts) {
        for (const auto& [client, state] : clients_) {
            const auto listener = state.listens.find(from);
            if (listener == state.listens.end() || !listener->second.has_begun) {
                continue;
            }
            for (std::span<const PenPacket* const> left{list}; !left.empty();) {
                const auto some = left.first(std::min(most_in_message, left.size()));
                send_(client, pen_data(from.first, from.second, some, listener->second.layout));
                left = left.subspan(some.size());
            }
        }
    }
}

void Service::tell_all(const std::string& message) {
    for (const auto& [client, state] : clients_) {
        send_(client, message);
    }
}

void Service::forget_pad(unsigned int pad) {
    for (auto& [client, state] : clients_) {
        std::erase_if(state.listens, [&](const auto& listen) { return listen.first.first == pad; });
    }
    tell_all(unplugged(pad));
}

void Service::upload(ClientId client, const Request& request) {
    if (upload_) {
        return finish(client, failed(request.id, "busy", "another upload is under way"));
    }
    upload_ = std::make_shared<Upload>();
    upload_->client = client;
    upload_->request = request;
    upload_->last_sign = Clock::now();
}

void Service::take_bytes(ClientId client, std::span<const unsigned char> bytes) {
    if (!clients_.contains(client)) {
        return;
    }
    if (!upload_ || upload_->client != client || upload_->is_sending) {
        send_(client, failed({}, "bad-request", "bytes come behind the request for an upload that is under way"));
        return;
    }
    upload_->last_sign = Clock::now();
    const std::size_t total = *upload_->request.size;
    if (bytes.size() > total - upload_->data.size()) {
        return end_upload(failed(upload_->request.id, "bad-request", "more bytes came than were told"));
    }
    upload_->data.insert(upload_->data.end(), bytes.begin(), bytes.end());
    if (upload_->data.size() == total) {
        upload_->is_sending = true;
        send_next_part();
    }
}

void Service::end_upload(std::string message) {
    const ClientId client = upload_->client;
    upload_.reset();
    finish(client, std::move(message));
}

// Between two parts others get their answers.
void Service::send_next_part() {
    pads_->ask([this, part = upload_](Pads& pads) {
        const Request& request = part->request;
        std::size_t sent = 0;
        auto [message, is_well] = attempt(request.id, [&] {
            sent = pads.upload_part(request.pad, request.interfaces, std::span{part->data}.subspan(part->sent));
            return std::string{};
        });
        post_([this, sent, message = std::move(message), is_well = is_well]() mutable {
            upload_->sent += sent;
            const auto [client, id, total] = std::tuple{upload_->client, upload_->request.id, *upload_->request.size};
            if (!clients_.contains(client)) {
                upload_.reset();
            } else if (!is_well) {
                end_upload(std::move(message));
            } else {
                send_(client, upload_progress(id, upload_->sent, total));
                if (upload_->sent == total) {
                    end_upload(upload_done(id, total));
                } else {
                    send_next_part();
                }
            }
        });
    });
}

void Service::look_at_clock() {
    if (upload_ && !upload_->is_sending && Clock::now() - upload_->last_sign > longest_silence) {
        end_upload(failed(upload_->request.id, "failed", "the bytes of the upload did not come"));
    }
}

} // namespace bridge
