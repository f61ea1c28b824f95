// Any bytes of a USB/IP client, cut anywhere, while its pad sends, is struck by faults, goes and comes back. Whatever
// it says: each request that it has sent is answered once at most, with no more than it has asked for, a cancelled one
// by its unlink alone, and nothing piles up.
#include "host/usbip_session.hpp"
#include "base/event_loop.hpp"
#include "fuzz.hpp"
#include "pad/faults.hpp"
#include "pad/pad_settings.hpp"
#include "pad/ssp_outbox.hpp"
#include "pad/ssp_pad.hpp"
#include "usb/bus.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <vector>

namespace {

using namespace emulator;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t operation_size = 8;
constexpr std::size_t import_size = 40;
constexpr std::size_t device_size = 312;
constexpr std::size_t head_size = 48;

std::uint32_t word(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(bytes[offset]) << 24 | static_cast<std::uint32_t>(bytes[offset + 1]) << 16 |
           static_cast<std::uint32_t>(bytes[offset + 2]) << 8 | bytes[offset + 3];
}

// Bytes of the input, from the front.
class Script {
  public:
    explicit Script(std::span<const std::uint8_t> bytes) : bytes_{bytes} {}

    bool empty() const { return bytes_.empty(); }
    std::uint8_t take() { return empty() ? std::uint8_t{0} : take(1).front(); }
    std::span<const std::uint8_t> take(std::size_t size) {
        const auto taken = bytes_.first(std::min(size, bytes_.size()));
        bytes_ = bytes_.subspan(taken.size());
        return taken;
    }

  private:
    std::span<const std::uint8_t> bytes_;
};

// What a client that knows what it has said makes of what it gets.
class Client {
  public:
    explicit Client(bool imported) : imported_{imported} {}

    void says(std::span<const std::uint8_t> bytes) {
        said_.insert(said_.end(), bytes.begin(), bytes.end());
        note_commands();
    }

    void hears(std::span<const std::uint8_t> bytes) {
        while (!bytes.empty()) { // the session appends whole replies
            const auto size = imported_ ? hear_command(bytes) : hear_operation(bytes);
            bytes = bytes.subspan(size);
        }
    }

  private:
    struct Request {
        bool in;
        std::size_t length;
    };

    void note_commands() {
        while (imported_ && said_.size() >= head_size) {
            const std::span head{said_};
            const bool submits = word(head, 0) == 1;
            const bool in = word(head, 12) != 0;
            const auto length = static_cast<std::size_t>(word(head, 24));
            const auto size = head_size + (submits && !in ? length : 0);
            if (said_.size() < size) {
                return;
            }
            if (submits) {
                requests_[word(head, 4)].push_back({in, length});
            } else {
                unlinks_[word(head, 4)].push_back(word(head, 20));
            }
            said_.erase(said_.begin(), said_.begin() + static_cast<std::ptrdiff_t>(size));
        }
    }

    std::size_t hear_operation(std::span<const std::uint8_t> bytes) {
        fuzz::require(bytes.size() >= operation_size, "a whole reply");
        if (word(bytes, 0) == 0x01110005) {
            return bytes.size(); // the list ends the connection
        }
        fuzz::require(word(bytes, 0) == 0x01110003, "kind of reply");
        const auto status = word(bytes, 4);
        if (status != 0) {
            fuzz::require(status == 2 || status == 4, "status of a refusal");
            fuzz::require(bytes.size() == operation_size, "nothing behind a refusal");
            return operation_size;
        }
        fuzz::require(bytes.size() >= operation_size + device_size, "a device behind an import");
        imported_ = true;
        said_.erase(said_.begin(), said_.begin() + import_size);
        note_commands();
        return operation_size + device_size;
    }

    std::size_t hear_command(std::span<const std::uint8_t> bytes) {
        fuzz::require(bytes.size() >= head_size, "a whole head");
        const auto number = word(bytes, 4);
        const auto status = static_cast<int>(word(bytes, 20));
        if (word(bytes, 0) == 4) {
            const auto unlinked = answered(unlinks_, number);
            fuzz::require(status == 0 || status == -ECONNRESET, "status of an unlink");
            if (status == -ECONNRESET) {
                answered(requests_, unlinked);
            }
            return head_size;
        }
        fuzz::require(word(bytes, 0) == 3, "kind of reply to a command");
        const auto request = answered(requests_, number);
        const auto length = static_cast<std::size_t>(word(bytes, 24));
        fuzz::require(length <= request.length, "no more than was asked for");
        fuzz::require(status == 0 || status == -EPIPE || status == -EOVERFLOW || status == -EREMOTEIO, "status");
        const auto size = head_size + (request.in ? length : 0);
        fuzz::require(bytes.size() >= size, "all of the data");
        return size;
    }

    // A number may be used again, but not before it has been answered: the oldest is meant.
    template <typename Value>
    static Value answered(std::map<std::uint32_t, std::deque<Value>>& open, std::uint32_t number) {
        fuzz::require(!open[number].empty(), "an answer to something that was asked and not answered yet");
        const auto value = open[number].front();
        open[number].pop_front();
        return value;
    }

    bool imported_;
    Bytes said_;
    std::map<std::uint32_t, std::deque<Request>> requests_;
    std::map<std::uint32_t, std::deque<std::uint32_t>> unlinks_; // numbers that they cancel
};

// A session with its client, who may stop reading.
struct Conversation {
    Conversation(UsbipExports& exports, Port* port)
        : client{port != nullptr}, session{exports, [this] { woken = true; }, port} {}

    void say(std::span<const std::uint8_t> bytes) {
        if (!session.listens()) {
            read();
        }
        if (session.listens()) {
            client.says(bytes);
            session.receive(bytes);
        }
    }

    void read() {
        while (!session.unsent().empty()) {
            client.hears(session.unsent().bytes());
            session.unsent().clear();
            session.proceed();
        }
    }

    Client client;
    bool woken = false;
    UsbipSession session;
};

// Steps of a script; any other byte tells how many bytes the client says.
enum Action : std::uint8_t { input = 0xe0, stream, fault, well, unplug, plug, reconnect, stop_reading, read_again };

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const auto hid = parse_pad_settings("pen=off", 1);
    static const auto vcom = parse_pad_settings("pen=off", 2, PadKind::vcom);
    static const std::array faults{parse_fault("stall,count=2"),          parse_fault("silence,count=1"),
                                   parse_fault("short=3,count=2"),        parse_fault("garbage,count=2"),
                                   parse_fault("unplug,after=2,count=1"), parse_fault("delay=1000,count=2")};
    EventLoop loop;
    Bus bus{loop, false};
    bus.add(hid);
    bus.add(vcom);
    UsbipExports exports{bus, {}};
    std::optional<Conversation> conversation;
    bus.observe([](Port&) {},
                [&](Port& port) {
                    if (conversation && conversation->session.port() == &port) {
                        conversation->session.unplugged();
                    }
                });
    for (const auto& port : bus.ports()) {
        bus.plug(*port);
    }

    Script script{{data, size}};
    bool reads = true;
    const auto begin = [&] {
        const auto which = script.take() % 3U; // 0: imports by itself
        auto* port = which == 0 ? nullptr : bus.find(which);
        conversation.reset();
        conversation.emplace(exports, port != nullptr && port->device ? port : nullptr);
    };
    begin();
    while (!script.empty()) {
        auto& session = conversation->session;
        const auto before = session.unsent().size();
        const bool ended = session.ended();
        conversation->woken = false;
        const auto step = script.take();
        switch (step) {
        case input:
            if (bus.ports()[0]->device) {
                bus.ports()[0]->model->queue_input(script.take() % 2, script.take(3));
            }
            break;
        case stream:
            if (bus.ports()[1]->device) {
                bus.ports()[1]->ssp->outbox().send_raw(Bytes(script.take(), 0x5a));
            }
            break;
        case fault: {
            const auto which = script.take();
            bus.find(which % 2 + 1U)->faults.add(faults[which / 2 % faults.size()]);
            break;
        }
        case well:
            for (const auto& port : bus.ports()) {
                port->faults.clear();
            }
            break;
        case unplug:
            bus.unplug(*bus.find(script.take() % 2 + 1U));
            break;
        case plug:
            bus.plug(*bus.find(script.take() % 2 + 1U));
            break;
        case reconnect:
            begin();
            continue;
        case stop_reading:
        case read_again:
            reads = step == read_again;
            break;
        default:
            conversation->say(script.take(step + 1U));
            conversation->woken = true; // whoever has received looks by himself
        }
        if (session.unsent().size() != before || session.ended() != ended) {
            fuzz::require(conversation->woken, "what comes later wakes");
        }
        loop.post([&] { loop.stop(); });
        loop.run(); // what has been posted: a pad that pulls itself out
        if (reads) {
            conversation->read();
        }
    }
    return 0;
}
