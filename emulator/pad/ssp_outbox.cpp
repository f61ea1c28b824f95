#include "pad/ssp_outbox.hpp"

#include "pad/ssp_stream.hpp"

#include <algorithm>
#include <chrono>
#include <limits>
#include <span>

namespace emulator {

namespace {

using Bytes = SspOutbox::Bytes;

constexpr std::size_t most_waiting_pieces = 4096;
constexpr std::size_t whole = std::numeric_limits<std::size_t>::max();
constexpr std::uint8_t marker_byte = 0xaa;

std::uint8_t random_byte(std::minstd_rand& random) {
    return static_cast<std::uint8_t>(random() >> 8);
}

bool is_base(const Bytes& message) {
    return (message[0] & legacy_message) == 0;
}

void alter_message(Bytes& message, const Fault& fault) {
    if (fault.kind == FaultKind::replace) {
        message = fault.bytes;
    }
    if (message.empty()) {
        return;
    }
    const std::size_t result = is_base(message) ? base_header_size + 1 : 2;
    if (fault.kind == FaultKind::wrong_component) {
        message[0] = static_cast<std::uint8_t>((is_base(message) ? message[0] + 1 : message[0]) & 0x7f);
    } else if (fault.kind == FaultKind::wrong_result && message.size() > result) {
        ++message[result];
    }
}

} // namespace

void SspOutbox::send(Bytes message, TransferKind kind) {
    if (junk_) {
        return;
    }
    const auto verdict = faults_.empty() ? Verdict{} : faults_.judge(kind);
    for (const auto* fault : verdict.alterations) {
        alter_message(message, *fault);
    }
    auto stream = framed(message);
    std::size_t piece_size = whole;
    std::chrono::milliseconds delay{0};
    const char* note = "";
    bool wait = false;
    bool twice = false;
    for (auto* fault : verdict.alterations) {
        if (fault->kind == FaultKind::cut) {
            stream.resize(std::min<std::size_t>(stream.size(), fault->parameter));
        } else if (fault->kind == FaultKind::noise) {
            Bytes noise(fault->parameter);
            std::ranges::generate(noise, [&] { return random_byte(fault->random); });
            stream.insert(stream.begin(), noise.begin(), noise.end());
        } else if (fault->kind == FaultKind::split) {
            piece_size = fault->parameter;
        } else if (fault->kind == FaultKind::delay_reply) {
            delay += std::chrono::milliseconds(fault->parameter);
        } else if (fault->kind == FaultKind::twice) {
            twice = true;
        } else if (fault->kind == FaultKind::merge) {
            wait = true;
        } else if (fault->kind == FaultKind::drop) {
            note = "dropped";
            stream.clear();
        } else if (fault->kind == FaultKind::junk) {
            note = "junk";
            junk_ = fault->random;
        }
    }
    if (kind == TransferKind::reply) {
        log_.report(true, "ssp", 0, message, note);
    }
    if (junk_) {
        if (callback_) {
            callback_();
        }
        return;
    }
    if (stream.empty()) {
        return;
    }
    if (wait) {
        held_.insert(held_.end(), stream.begin(), stream.end());
        return;
    }
    const auto queue_all = [piece_size, twice](SspOutbox& outbox, const Bytes& bytes) {
        outbox.queue(bytes, piece_size);
        if (twice) {
            outbox.queue(bytes, piece_size);
        }
    };
    if (delay.count() == 0) {
        return queue_all(*this, stream);
    }
    loop_.call_after(delay, [self = std::weak_ptr(self_), stream = std::move(stream), queue_all] {
        if (const auto outbox = self.lock()) {
            queue_all(**outbox, stream);
        }
    });
}

void SspOutbox::send_raw(Bytes stream) {
    queue(std::move(stream), whole);
}

void SspOutbox::queue(Bytes stream, std::size_t piece_size) {
    stream.insert(stream.begin(), held_.begin(), held_.end());
    held_.clear();
    if (pieces_.size() >= most_waiting_pieces) {
        ++lost_;
        return;
    }
    for (std::size_t start = 0; start < stream.size(); start += std::min(piece_size, stream.size() - start)) {
        const auto rest = std::span{stream}.subspan(start);
        const auto piece = rest.first(std::min(piece_size, rest.size()));
        pieces_.push_back({{piece.begin(), piece.end()}});
    }
    if (!empty() && callback_) {
        callback_();
    }
}

// Never the beginning of a token, so that nothing in it can be taken for a message.
Bytes SspOutbox::junk(std::size_t size) {
    Bytes bytes(size);
    std::ranges::generate(bytes, [&] {
        const auto byte = random_byte(*junk_);
        return byte == marker_byte ? std::uint8_t{0} : byte;
    });
    return bytes;
}

Bytes SspOutbox::take_packet(std::size_t packet_size) {
    if (junk_) {
        return junk(packet_size);
    }
    auto& piece = pieces_.front();
    const auto rest = std::span{piece.bytes}.subspan(piece.taken);
    const auto taken = rest.first(std::min(packet_size, rest.size()));
    Bytes packet(taken.begin(), taken.end());
    piece.taken += packet.size();
    if (packet.size() < packet_size) {
        pieces_.pop_front();
    }
    return packet;
}

Bytes SspOutbox::take_bytes(std::size_t most) {
    if (empty()) {
        return {};
    }
    auto bytes = take_packet(most);
    if (!junk_ && !pieces_.empty() && pieces_.front().taken == pieces_.front().bytes.size()) {
        pieces_.pop_front();
    }
    return bytes;
}

} // namespace emulator
