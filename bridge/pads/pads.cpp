#include "pads/pads.hpp"

#include "pads/usb_devices.hpp"

#include <algorithm>
#include <thread>

namespace bridge {

namespace {

using Clock = std::chrono::steady_clock;

// A new device's node may get its rights only after the kernel has shown it.
constexpr std::chrono::milliseconds until_second_search{1500};
constexpr std::size_t most_pieces_in_part = 128;

PadFacts facts_of(const vxpadcom::pad& pad) {
    PadFacts facts;
    facts.maker = pad.vendor_name();
    facts.product = pad.product_name();
    facts.serial = pad.serial_number();
    facts.vendor_id = pad.vendor_id();
    facts.product_id = pad.product_id();
    const unsigned int interfaces = pad.interface_count();
    for (unsigned int interface = 0; interface < interfaces; ++interface) {
        facts.report_bytes.push_back(pad.report_size(interface));
    }
    return facts;
}

std::optional<PadFacts> facts_if_any(const vxpadcom::pad& pad) {
    try {
        return facts_of(pad);
    } catch (const vxpadcom::error&) {
        return std::nullopt;
    }
}

NoSuchPad no_pad(unsigned int id) {
    return NoSuchPad{"there is no pad " + std::to_string(id)};
}

// Component and message id tell it; what is no message of a component has neither.
bool is_reply(std::span<const std::uint8_t> reply, std::span<const std::uint8_t> message) {
    constexpr std::size_t id = 3;
    constexpr std::uint8_t first_without_component = 0x80;
    return message.size() <= id || message[0] >= first_without_component ||
           (reply.size() > id && reply[0] == message[0] && reply[id] == message[id]);
}

// The library hands over what its receive thread has read, a moment after the reading has ended.
void wait_until_delivered(unsigned int number, unsigned int interface) {
    constexpr std::chrono::seconds longest{2};
    const auto deadline = Clock::now() + longest;
    unsigned int waiting = 0;
    while (GetDataPacketsAvailable(number, interface, &waiting) == 0 && waiting > 0 && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

} // namespace

Pads::Pads(PadEvents events) : events_{std::move(events)}, inbox_{events_.pen} {}

Pads::~Pads() {
    receivers_.clear();
}

void Pads::look() {
    auto devices = usb_devices();
    if (devices != devices_) {
        const bool has_new = !std::ranges::includes(devices_, devices);
        devices_ = std::move(devices);
        is_search_due_ = true;
        second_search_ = has_new ? std::optional{Clock::now() + until_second_search} : std::nullopt;
        if (!receivers_.empty()) {
            for (const Pad& pad : pads_) {
                facts_if_any(vxpadcom::pad{pad.number}); // a pad that has gone shows when it is asked
            }
            settle();
        }
    }
    if (second_search_ && Clock::now() >= *second_search_) {
        is_search_due_ = true;
        second_search_.reset();
    }
    if (is_search_due_ && receivers_.empty()) {
        search();
    }
}

void Pads::search() {
    is_search_due_ = false;
    if (session_) {
        session_->search();
    } else {
        session_.emplace();
        session_->on_removed([this](vxpadcom::pad pad) { note_removed(pad.number()); });
    }
    for (auto& removed : removed_) {
        removed = false;
    }
    std::vector<Pad> before = std::exchange(pads_, {});
    std::vector<Pad> found;
    for (const vxpadcom::pad& pad : *session_) {
        auto facts = facts_if_any(pad);
        if (!facts) {
            continue;
        }
        const auto known = std::ranges::find(before, *facts, &Pad::facts);
        if (known == before.end()) {
            found.push_back({0, pad.number(), std::move(*facts)});
        } else {
            pads_.push_back({known->id, pad.number(), std::move(*facts)});
            before.erase(known);
        }
    }
    for (const Pad& pad : before) {
        events_.unplugged(pad.id);
    }
    for (Pad& pad : found) {
        pad.id = ++last_id_;
        events_.plugged(pad);
        pads_.push_back(std::move(pad));
    }
    if (!found.empty()) {
        second_search_.reset();
    }
}

void Pads::note_removed(unsigned int number) {
    if (number < removed_.size()) {
        removed_[number] = true;
        events_.settle();
    }
}

void Pads::settle() {
    std::vector<Pad> left;
    for (Pad& pad : std::exchange(pads_, {})) {
        if (pad.number < removed_.size() && removed_[pad.number]) {
            std::erase_if(receivers_, [&](const auto& receiver) {
                if (receiver.first.first != pad.id) {
                    return false;
                }
                wait_until_delivered(pad.number, receiver.first.second);
                return true;
            });
            events_.unplugged(pad.id);
            is_search_due_ = true; // it may be there again already
        } else {
            left.push_back(std::move(pad));
        }
    }
    pads_ = std::move(left);
}

const Pad& Pads::find(unsigned int id) const {
    const auto found = std::ranges::find(pads_, id, &Pad::id);
    if (found == pads_.end() || removed_[found->number]) {
        throw no_pad(id);
    }
    return *found;
}

vxpadcom::pad Pads::reach(unsigned int id, unsigned int interface) const {
    const Pad& pad = find(id);
    if (interface >= pad.facts.report_bytes.size()) {
        throw NoSuchPad{"pad " + std::to_string(id) + " has no interface " + std::to_string(interface)};
    }
    return vxpadcom::pad{pad.number};
}

// What fails because the pad was pulled out meanwhile fails as if it had not been there.
template <typename Call> auto Pads::tell_removal(unsigned int id, const Call& call) const {
    try {
        return call();
    } catch (const vxpadcom::error&) {
        find(id);
        throw;
    }
}

Pad Pads::ask_facts(unsigned int id) {
    const Pad& pad = find(id);
    return tell_removal(id, [&] { return Pad{id, pad.number, facts_of(vxpadcom::pad{pad.number})}; });
}

vxpadcom::byte_buffer Pads::get_feature(unsigned int id, unsigned int interface, std::optional<std::size_t> size) {
    const vxpadcom::pad pad = reach(id, interface);
    return tell_removal(id, [&] { return size ? pad.get_feature(interface, *size) : pad.get_feature(interface); });
}

void Pads::set_feature(unsigned int id, unsigned int interface, std::span<const std::uint8_t> report) {
    const vxpadcom::pad pad = reach(id, interface);
    tell_removal(id, [&] { pad.set_feature(report, interface); });
}

void Pads::write(unsigned int id, unsigned int interface, std::span<const std::uint8_t> report) {
    const vxpadcom::pad pad = reach(id, interface);
    tell_removal(id, [&] { pad.write(report, interface); });
}

// Another reply may be waiting: one that came twice, or to whoever used the pad before. It would be taken for this
// one's, and this one's for the next.
vxpadcom::byte_buffer Pads::ask_ssp(unsigned int id, unsigned int interface, std::span<const std::uint8_t> message,
                                    std::chrono::milliseconds time_out) {
    const vxpadcom::pad pad = reach(id, interface);
    tell_removal(id, [&] { pad.send_ssp(message, interface); });
    const auto deadline = Clock::now() + time_out;
    for (auto left = time_out; left.count() > 0;
         left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now())) {
        try {
            auto reply = tell_removal(id, [&] { return pad.receive_ssp(left, interface); });
            if (is_reply(reply, message)) {
                return reply;
            }
        } catch (const vxpadcom::error&) {
            break;
        }
    }
    throw NoReply{"pad " + std::to_string(id) + " has sent no reply"};
}

void Pads::start(unsigned int id, unsigned int interface) {
    const vxpadcom::pad pad = reach(id, interface);
    if (!is_receiving(id, interface)) {
        receivers_[{id, interface}] = tell_removal(id, [&] {
            return std::make_unique<vxpadcom::receiver>(
                pad,
                [this, id, interface](vxpadcom::bytes report) {
                    inbox_.put(id, interface, {report.data(), report.size()});
                },
                interface);
        });
    }
}

void Pads::stop(unsigned int id, unsigned int interface) {
    const auto receiver = receivers_.find({id, interface});
    if (receiver == receivers_.end()) {
        return;
    }
    const unsigned int number = find(id).number;
    SetDataReceivingEnabled(number, interface, 0);
    wait_until_delivered(number, interface);
    receivers_.erase(receiver);
}

std::size_t Pads::upload_part(unsigned int id, std::uint32_t interfaces, std::span<const std::uint8_t> data) {
    const Pad& pad = find(id);
    const auto part = data.first(std::min(pad.facts.report_bytes.at(0) * most_pieces_in_part, data.size()));
    const std::size_t sent = tell_removal(id, [&] { return vxpadcom::pad{pad.number}.upload(part, interfaces).sent; });
    find(id);
    if (sent < part.size()) {
        throw std::runtime_error("an interface failed");
    }
    return sent;
}

} // namespace bridge
